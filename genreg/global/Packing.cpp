// Records to packed images and back.

#include <genreg/GlobalReg.h>
#include <osse/Memory.h>

#include <algorithm>
#include <utility>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/PackedImage.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::headerOf;
using genreg::IMAGE_CHECKSUM_SIZE;
using genreg::IMAGE_LEAST_SIZE;
using genreg::IMAGE_MASK_SIZE;
using genreg::IMAGE_TYPE_SIZE;
using genreg::ImageHeader;
using genreg::ITEM_LENGTH_SIZE;
using genreg::ITEMLESS_BIT;
using genreg::loadLittle;
using genreg::memberOf;
using genreg::PackedItem;
using genreg::PackedItems;
using genreg::RecordType;
using genreg::recordTypeOf;
using genreg::setValue;
using genreg::storeLittle;
using genreg::textOf;
using genreg::valueOf;
using genreg::walkUnchecked;

namespace {

constexpr char MEMORY_TAG[] = "GlobalReg";

// Fields of a later release in the previous image. They mean something for records of that type only.
unsigned long bitsToCarry(const RecordType* type, const void* previous) noexcept {
    if (type == nullptr || previous == nullptr) {
        return 0;
    }
    const ImageHeader header = headerOf(previous);
    return header.recordType == type->type ? header.fieldMask & ~type->known & ~ITEMLESS_BIT : 0;
}

unsigned long itemSize(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    return ITEM_LENGTH_SIZE + (field.kind == GLOBALREG_FIELD_TEXT ? textOf(record, field).size() + 1 : field.capacity);
}

// What an image is made of: the record's own fields and those carried from its previous image.
struct ImagePlan {
    const GlobalRegRecord& record;
    const void* previous;
    const RecordType* type;
    unsigned long own;
    unsigned long carried;

    ImagePlan(const GlobalRegRecord& aRecord, const void* aPrevious) noexcept
        : record(aRecord),
          previous(aPrevious),
          type(recordTypeOf(aRecord.recordType)),
          own(type == nullptr ? 0 : aRecord.fieldMask & type->known),
          carried(bitsToCarry(type, aPrevious)) {}

    // The mask promises no item that the image lacks, so bits of a later release need a previous image.
    [[nodiscard]] unsigned long writtenMask() const noexcept {
        return own | carried | (record.fieldMask & ITEMLESS_BIT);
    }

    [[nodiscard]] unsigned long size() const noexcept {
        unsigned long size = IMAGE_LEAST_SIZE;
        if (type != nullptr) {
            for (const GlobalRegField& field : type->fields) {
                size += (own & field.bit) != 0 ? itemSize(record, field) : 0;
            }
        }
        if (carried != 0) {
            PackedItems items(previous);
            for (PackedItem item; items.next(&item);) {
                size += (carried & item.bit) != 0 ? ITEM_LENGTH_SIZE + item.length : 0;
            }
        }
        return size;
    }
};

// Writes into a buffer and counts; what lies beyond its end is counted only.
class ImageWriter {
public:
    ImageWriter(unsigned char* image, unsigned long size) noexcept : image_(image), size_(size) {}

    void number(unsigned long value, unsigned long size) noexcept {
        unsigned char bytes[sizeof value];
        storeLittle(bytes, value, size);
        put(bytes, size);
    }
    void put(const void* bytes, unsigned long size) noexcept {
        if (written_ + size <= size_) {
            std::memcpy(image_ + written_, bytes, size);
        }
        written_ += size;
    }
    [[nodiscard]] unsigned long written() const noexcept { return written_; }

private:
    unsigned char* image_;
    unsigned long size_;
    unsigned long written_ = 0;
};

void writeOwn(const GlobalRegRecord& record, const GlobalRegField& field, ImageWriter* writer) noexcept {
    if (field.kind == GLOBALREG_FIELD_TEXT) {
        const std::string_view text = textOf(record, field);
        writer->number(text.size() + 1, ITEM_LENGTH_SIZE);
        writer->put(text.data(), text.size());
        writer->number(0, 1);
    } else {
        writer->number(field.capacity, ITEM_LENGTH_SIZE);
        writer->number(valueOf(record, field), field.capacity);
    }
}

unsigned long writeImage(const ImagePlan& plan, unsigned char* image, unsigned long size) noexcept {
    ImageWriter writer(image, size);
    writer.number(plan.record.recordType, IMAGE_TYPE_SIZE);
    writer.number(plan.writtenMask(), IMAGE_MASK_SIZE);
    writer.number(plan.record.missingFieldMask, IMAGE_MASK_SIZE);
    if (plan.type != nullptr) {
        for (const GlobalRegField& field : plan.type->fields) {
            if ((plan.own & field.bit) != 0) {
                writeOwn(plan.record, field, &writer);
            }
        }
    }
    // Bits of a later release are above all known ones, so their items stand behind.
    if (plan.carried != 0) {
        PackedItems items(plan.previous);
        for (PackedItem item; items.next(&item);) {
            if ((plan.carried & item.bit) != 0) {
                writer.number(item.length, ITEM_LENGTH_SIZE);
                writer.put(item.bytes, item.length);
            }
        }
    }
    writer.number(static_cast<unsigned int>(plan.record.checksum), IMAGE_CHECKSUM_SIZE);
    return writer.written();
}

unsigned long imageSize(const void* image) noexcept {
    PackedItems items(image);
    for (PackedItem item; items.next(&item);) {
    }
    return static_cast<unsigned long>(items.end() - static_cast<const unsigned char*>(image)) + IMAGE_CHECKSUM_SIZE;
}

void readField(const PackedItem& item, const GlobalRegField& field, GlobalRegRecord* record) noexcept {
    if (field.kind != GLOBALREG_FIELD_TEXT) {
        setValue(*record, field, valueOf(item, field));
        return;
    }
    // An item that fills its member holds its NUL; one that lies is cut to leave room for it.
    const bool fits = item.length < field.capacity || std::memchr(item.bytes, 0, field.capacity) != nullptr;
    std::memcpy(memberOf(*record, field), item.bytes,
                fits ? std::min(item.length, field.capacity) : field.capacity - 1);
}

// The record of the image before its fields are read.
void readHeader(const void* image, GlobalRegRecord* record) noexcept {
    const ImageHeader header = headerOf(image);
    std::memset(static_cast<void*>(record), 0, sizeof *record);
    record->recordType = header.recordType;
    record->fieldMask = header.fieldMask;
    record->missingFieldMask = header.missingFieldMask;
}

void readImage(const void* image, const RecordType& type, GlobalRegRecord* record) noexcept {
    readHeader(image, record);
    record->missingFieldMask |= type.known & ~record->fieldMask;
    PackedItems items(image);
    PackedItem item;
    bool more = items.next(&item);
    for (const GlobalRegField& field : type.fields) {
        if (more && item.bit == field.bit) {
            readField(item, field, record);
            more = items.next(&item);
        }
    }
    while (more) {
        more = items.next(&item);
    }
    record->checksum = static_cast<int>(loadLittle(items.end(), IMAGE_CHECKSUM_SIZE));
}

}  // namespace

unsigned int GlobalReg::GetRecordSize(void*, unsigned long* size) noexcept {
    FunctionTrace trace{Function::GlobalGetRecordSize};
    *size = sizeof(GlobalRegRecord);
    return trace.exit(0);
}

unsigned int GlobalReg::GetMaxRecordSize(unsigned long* size) noexcept {
    FunctionTrace trace{Function::GlobalGetMaxRecordSize};
    *size = sizeof(GlobalRegRecord);
    return trace.exit(0);
}

unsigned int GlobalReg::GetPackedRecordSize(void* packed, unsigned long* size) noexcept {
    FunctionTrace trace{Function::GetPackedRecordSize};
    *size = imageSize(packed);
    return trace.exit(0);
}

unsigned int GlobalReg::PackRecord(void** buffer, void* previousImage) noexcept {
    FunctionTrace trace{Function::PackRecord};
    const ImagePlan plan(*static_cast<const GlobalRegRecord*>(*buffer), previousImage);
    const unsigned long size = plan.size();
    void* image = _ossMemAlloc(size, MEMORY_TAG, __LINE__);
    if (image == nullptr) {
        return trace.fail(10, REG_NO_PACK_BUFFER);
    }
    unsigned int rc = 0;
    if (writeImage(plan, static_cast<unsigned char*>(image), size) != size) {
        rc = trace.fail(20, REG_PACKED_SIZE_DIFFERS);
    } else if (size > sizeof(GlobalRegRecord)) {
        std::swap(*buffer, image);
    } else {
        std::memcpy(*buffer, image, size);
    }
    if (_ossMemFree(image, MEMORY_TAG, __LINE__) != 0 && rc == 0) {
        return trace.fail(30, REG_FREE_PACK_BUFFER_FAILED);
    }
    return trace.exit(rc);
}

// The work buffer holds the image, so that the record is unpacked into its place at once.
unsigned int GlobalReg::UnpackRecord(void** buffer) noexcept {
    FunctionTrace trace{Function::UnpackRecord};
    const unsigned long size = imageSize(*buffer);
    void* image = _ossMemAlloc(size, MEMORY_TAG, __LINE__);
    if (image == nullptr) {
        return trace.fail(10, REG_NO_UNPACK_BUFFER);
    }
    std::memcpy(image, *buffer, size);
    unsigned int rc = 0;
    if (const RecordType* type = recordTypeOf(headerOf(image).recordType)) {
        readImage(image, *type, static_cast<GlobalRegRecord*>(*buffer));
    } else {
        rc = trace.fail(20, REG_UNKNOWN_RECORD_TYPE);
    }
    if (_ossMemFree(image, MEMORY_TAG, __LINE__) != 0 && rc == 0) {
        return trace.fail(30, REG_FREE_UNPACK_BUFFER_FAILED);
    }
    return trace.exit(rc);
}

extern "C" unsigned int globalRegReadImage(const void* image, unsigned long length, GlobalRegRecord* record) {
    if (record == nullptr) {
        return REG_NULL_POINTER;
    }
    if (image != nullptr && length >= IMAGE_LEAST_SIZE) {
        readHeader(image, record);
        record->checksum = static_cast<int>(
            loadLittle(static_cast<const unsigned char*>(image) + length - IMAGE_CHECKSUM_SIZE, IMAGE_CHECKSUM_SIZE));
    } else {
        std::memset(static_cast<void*>(record), 0, sizeof *record);
    }
    const auto take = [&](const PackedItem& item, const GlobalRegField* field) {
        if (field != nullptr) {
            readField(item, *field, record);
        }
    };
    unsigned long damage = 0;
    return walkUnchecked(image, length, &damage, take);
}

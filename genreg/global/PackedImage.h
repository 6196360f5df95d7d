// The packed image of a global registry record, read in place.
//
//   0   4  recordType      4   8  fieldMask      12  8  missingFieldMask
//   20     for each bit of fieldMask from 0 to 62 an item: 16-bit length L, L bytes
//   end-4  checksum
// Little-endian, unaligned. Everything here but checkImage and walkUnchecked wants an image that passed it.
#pragma once

#include <bit>
#include <string_view>

#include "genreg/global/Fields.h"

namespace genreg {

constexpr unsigned long IMAGE_TYPE_SIZE = 4;
constexpr unsigned long IMAGE_MASK_SIZE = 8;
constexpr unsigned long IMAGE_HEADER_SIZE = IMAGE_TYPE_SIZE + 2 * IMAGE_MASK_SIZE;
constexpr unsigned long IMAGE_CHECKSUM_SIZE = 4;
constexpr unsigned long IMAGE_LEAST_SIZE = IMAGE_HEADER_SIZE + IMAGE_CHECKSUM_SIZE;
constexpr unsigned long ITEM_LENGTH_SIZE = 2;

// The one bit of a field mask that has no item; it is carried as it stands.
constexpr unsigned long ITEMLESS_BIT = 1UL << 63;

[[nodiscard, gnu::always_inline]] inline unsigned long loadLittle(const unsigned char* bytes,
                                                                  unsigned long size) noexcept {
    unsigned long value = 0;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&value, bytes, size);  // one load where the size is a constant
        return value;
    }
    for (unsigned long index = 0; index < size; ++index) {
        value |= static_cast<unsigned long>(bytes[index]) << (8 * index);
    }
    return value;
}
[[gnu::always_inline]] inline void storeLittle(unsigned char* bytes, unsigned long value, unsigned long size) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(bytes, &value, size);
        return;
    }
    for (unsigned long index = 0; index < size; ++index) {
        bytes[index] = static_cast<unsigned char>(value >> (8 * index));
    }
}

[[nodiscard, gnu::always_inline]] inline unsigned long itemLength(const unsigned char* item) noexcept {
    return item[0] | static_cast<unsigned long>(item[1]) << 8U;
}

struct ImageHeader {
    unsigned int recordType;
    unsigned long fieldMask;
    unsigned long missingFieldMask;
};
[[nodiscard]] inline ImageHeader headerOf(const void* image) noexcept {
    const auto* bytes = static_cast<const unsigned char*>(image);
    return {static_cast<unsigned int>(loadLittle(bytes, IMAGE_TYPE_SIZE)),
            loadLittle(bytes + IMAGE_TYPE_SIZE, IMAGE_MASK_SIZE),
            loadLittle(bytes + IMAGE_TYPE_SIZE + IMAGE_MASK_SIZE, IMAGE_MASK_SIZE)};
}

struct PackedItem {
    unsigned long bit = 0;
    unsigned long length = 0;
    const unsigned char* bytes = nullptr;
};

// The item as its field's member would hold it. An item longer than the member is cut.
[[nodiscard]] std::string_view textOf(const PackedItem& item, const GlobalRegField& field) noexcept;
[[nodiscard]] unsigned long valueOf(const PackedItem& item, const GlobalRegField& field) noexcept;

// Takes the lowest bit out of the set.
[[nodiscard]] inline unsigned long takeLowest(unsigned long* bits) noexcept {
    const unsigned long bit = *bits & (~*bits + 1);
    *bits ^= bit;
    return bit;
}

[[nodiscard]] inline const GlobalRegField& fieldOf(const RecordType& type, unsigned long bit) noexcept {
    return type.fields[static_cast<unsigned long>(std::countr_zero(bit))];
}

// A text needs its NUL: within the item, or in the room that the item leaves in the member.
[[nodiscard]] inline bool fitsMember(const PackedItem& item, const GlobalRegField& field) noexcept {
    if (item.length == field.capacity && field.kind == GLOBALREG_FIELD_TEXT) {
        return std::memchr(item.bytes, 0, item.length) != nullptr;
    }
    return item.length <= field.capacity;
}

// Shows `visit` each item of an image that nobody has checked, with its field (null for one of a later release), up to
// what does not fit; *damage is the offset of that.
template <class Visit>
[[nodiscard]] unsigned int walkUnchecked(const void* image, unsigned long length, unsigned long* damage,
                                         Visit visit) noexcept {
    *damage = 0;
    if (image == nullptr || length < IMAGE_LEAST_SIZE) {
        return REG_UNPACK_FAILED;
    }
    const ImageHeader header = headerOf(image);
    const RecordType* type = recordTypeOf(header.recordType);
    if (type == nullptr) {
        return REG_UNKNOWN_RECORD_TYPE;
    }
    const auto* const bytes = static_cast<const unsigned char*>(image);
    const unsigned long end = length - IMAGE_CHECKSUM_SIZE;
    unsigned long at = IMAGE_HEADER_SIZE;
    for (unsigned long bits = header.fieldMask & ~ITEMLESS_BIT; bits != 0;) {
        *damage = at;
        const unsigned long bit = takeLowest(&bits);
        if (end - at < ITEM_LENGTH_SIZE) {
            return REG_UNPACK_FAILED;
        }
        const PackedItem item = {bit, loadLittle(bytes + at, ITEM_LENGTH_SIZE), bytes + at + ITEM_LENGTH_SIZE};
        if (item.length > end - at - ITEM_LENGTH_SIZE) {
            return REG_UNPACK_FAILED;
        }
        const GlobalRegField* field = (bit & type->known) != 0 ? &fieldOf(*type, bit) : nullptr;
        if (field != nullptr && !fitsMember(item, *field)) {
            return REG_UNPACK_FAILED;
        }
        visit(item, field);
        at += ITEM_LENGTH_SIZE + item.length;
    }
    // What stands behind the checksum would be lost when the record is written again, so it is no whole image.
    *damage = at;
    return at == end ? 0U : static_cast<unsigned int>(REG_UNPACK_FAILED);
}

// Walks the items in their order. An image of an unknown type counts as having none.
class PackedItems {
public:
    explicit PackedItems(const void* image) noexcept
        : bits_(0), at_(static_cast<const unsigned char*>(image) + IMAGE_HEADER_SIZE) {
        const ImageHeader header = headerOf(image);
        if (recordTypeOf(header.recordType) != nullptr) {
            bits_ = header.fieldMask & ~ITEMLESS_BIT;
        }
    }

    // False when there are no more.
    [[nodiscard]] bool next(PackedItem* item) noexcept {
        if (bits_ == 0) {
            return false;
        }
        *item = {takeLowest(&bits_), loadLittle(at_, ITEM_LENGTH_SIZE), at_ + ITEM_LENGTH_SIZE};
        at_ = item->bytes + item->length;
        return true;
    }

    // Behind the last item that was walked.
    [[nodiscard]] const unsigned char* end() const noexcept { return at_; }

private:
    unsigned long bits_;
    const unsigned char* at_;
};

// The slots of GlobalReg for images from a file, as GenRegBin.h describes them.
[[nodiscard]] unsigned int checkImage(const void* image, unsigned long length) noexcept;
[[nodiscard]] bool imageMayMatch(unsigned long mask, const void* image, unsigned long length, const void* key) noexcept;
[[nodiscard]] bool imagePacksAlike(const void* image, unsigned long length) noexcept;

}  // namespace genreg

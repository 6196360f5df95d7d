#include "genreg/global/InfoTransaction.h"

#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>

#include "genreg/bin/Frames.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/global/Fields.h"
#include "genreg/global/ImageItems.h"
#include "genreg/global/ImageWays.h"

namespace genreg {
namespace {

constexpr unsigned long SERVICE_BIT = 0x1;
constexpr unsigned long VERSION_BIT = 0x2;
constexpr unsigned long THIRD_BIT = 0x4;
static_assert(INSTANCE_SERVICE == SERVICE_BIT && SERVICE_SERVICE == SERVICE_BIT);
static_assert(INSTANCE_VERSION_CODE == VERSION_BIT && SERVICE_VERSION_CODE == VERSION_BIT);
static_assert(INSTANCE_NAME == THIRD_BIT && SERVICE_PATH == THIRD_BIT);

const GlobalRegField& fieldOf(const InfoSchema& schema, unsigned long bit) noexcept {
    return schema.fields[static_cast<unsigned long>(std::countr_zero(bit))];
}

// Sets a field that is worth recording: an empty text and a number of 0 are left out.
void putText(const GlobalRegField& field, const char* text, GlobalRegRecord* record) noexcept {
    if (text[0] != '\0') {
        setText(memberOf(*record, field), field.capacity, text);
        record->fieldMask |= field.bit;
    }
}
void putValue(const GlobalRegField& field, unsigned long value, GlobalRegRecord* record) noexcept {
    if (value != 0) {
        setValue(*record, field, value);
        record->fieldMask |= field.bit;
    }
}

// The member's bytes, read and written as the field's type.
unsigned long memberValue(const char* member, unsigned long size) noexcept {
    if (size == sizeof(unsigned long)) {
        unsigned long value = 0;
        std::memcpy(&value, member, sizeof value);
        return value;
    }
    unsigned int number = static_cast<unsigned char>(*member);
    if (size == sizeof number) {
        std::memcpy(&number, member, sizeof number);
    }
    return number;
}

void recordFromInfo(const InfoSchema& schema, const void* info, GlobalRegRecord* record) noexcept {
    *record = {};
    record->recordType = schema.recordType;
    for (unsigned long index = 0; index < schema.fields.size(); ++index) {
        const GlobalRegField& field = schema.fields[index];
        const InfoMember& place = schema.members[index];
        const char* source = static_cast<const char*>(info) + place.member.offset;
        if (field.kind == GLOBALREG_FIELD_TEXT) {
            putText(field, source, record);
        } else if (place.flag != 0) {
            putValue(field, (memberValue(source, sizeof place.flag) & place.flag) != 0 ? 1 : 0, record);
        } else {
            putValue(field, memberValue(source, field.capacity), record);
        }
    }
}

void putMemberValue(char* member, unsigned long size, unsigned long value) noexcept {
    if (size == sizeof value) {
        std::memcpy(member, &value, sizeof value);
        return;
    }
    const auto number = static_cast<unsigned int>(value);
    if (size == sizeof number) {
        std::memcpy(member, &number, sizeof number);
    } else {
        *member = static_cast<char>(value);
    }
}

class RecordFields {
public:
    explicit RecordFields(const GlobalRegRecord& record) noexcept : record_(record) {}
    [[nodiscard]] bool has(unsigned long bit) const noexcept { return (record_.fieldMask & bit) != 0; }
    void putText(const GlobalRegField& field, char* member) const noexcept {
        setText(member, field.capacity, memberOf(record_, field));
    }
    [[nodiscard]] unsigned long value(const GlobalRegField& field) const noexcept { return valueOf(record_, field); }

private:
    const GlobalRegRecord& record_;
};

// Fields: what is asked of a record, of a field that it lacks an empty text or 0; and whether it has a field.
template <class Fields>
void infoFrom(const InfoSchema& schema, Fields fields, void* info) noexcept {
    // Copied: what is written through a char* could be the schema's.
    const std::span<const InfoMember> members = schema.members;
    for (std::size_t index = 0; const GlobalRegField& field : schema.fields) {
        const InfoMember& place = members[index++];
        char* target = static_cast<char*>(info) + place.member.offset;
        if (field.kind == GLOBALREG_FIELD_TEXT) {
            fields.putText(field, target);
        } else if (place.flag != 0) {
            // Kept: a flag is only ever set; callers zero the word first.
            unsigned long flags = memberValue(target, sizeof flags);
            flags |= fields.value(field) == 1 ? place.flag : 0;
            std::memcpy(target, &flags, sizeof flags);
        } else if (field.kind == GLOBALREG_FIELD_FLAG && !fields.has(field.bit)) {
            *target = place.absent;
        } else {
            putMemberValue(target, field.capacity, fields.value(field));
        }
    }
}

// What a list asks the scan for: the record, or the structure that is made of it, which saves the record.
struct Listed {
    GlobalRegRecord record;  // first, where the scan puts it
    const InfoSchema* schema;
    void* info;
    bool filled;
};

Taken takeInfo(unsigned long mask, const char* image, std::size_t length, const void* key, void* result) noexcept {
    auto& listed = *static_cast<Listed*>(result);
    return takeMatch(mask, image, length, key,
                     [&listed](const RecordType&, const ImageHeader& header, const ItemPlaces& places) {
                         infoFrom(*listed.schema, PlacedFields(places, header.fieldMask), listed.info);
                         listed.filled = true;
                     });
}

constexpr FrameWays LIST_WAYS = {true, passImages, nullptr, takeInfo, nullptr, nullptr, nullptr};

// What a look-up asks for: the record, or the image that it would be made of, which is shorter. The structure waits
// until the look-up has ended well.
struct Found {
    GlobalRegRecord record;  // first, where the look-up puts it
    std::size_t length;      // of the image; 0: it is a record
    char image[longestImage()];
};

Taken keepImage(unsigned long mask, const char* image, std::size_t length, const void* key, void* result) noexcept {
    auto& found = *static_cast<Found*>(result);
    return takeMatch(mask, image, length, key, [&](const RecordType&, const ImageHeader&, const ItemPlaces&) {
        std::memcpy(found.image, image, length);
        found.length = length;
    });
}

constexpr FrameWays LOOK_UP_WAYS = {true, passImages, nullptr, keepImage, nullptr, nullptr, nullptr};

void infoFrom(const InfoSchema& schema, const Found& found, void* info) noexcept {
    ImageHeader header;
    ItemPlaces places;
    if (openImage(found.image, found.length, &header, &places) != nullptr) {
        infoFrom(schema, PlacedFields(places, header.fieldMask), info);
    } else {
        infoFrom(schema, RecordFields(found.record), info);
    }
}

void beginList(GlobalReg& list) noexcept {
    BinFrames::useWays(list, LIST_WAYS);
    FileInternals::of(list).leaveStream();
}

// A key text longer than its member is cut as it was on writing, so that it is found again. What is behind the head and
// is no field of the key means nothing: it would be most of the work of a list.
void fillKey(const InfoSchema& schema, const InfoKey& wanted, GlobalRegRecord& key) noexcept {
    std::memset(static_cast<void*>(&key), 0, offsetof(GlobalRegRecord, body));
    key.recordType = schema.recordType;
    const auto put = [&](unsigned long bit, const char* text) {
        if (text != nullptr) {
            const GlobalRegField& field = fieldOf(schema, bit);
            setText(memberOf(key, field), field.capacity, text);
            key.fieldMask |= bit;
        }
    };
    put(SERVICE_BIT, wanted.service);
    putValue(fieldOf(schema, VERSION_BIT), wanted.versionCode, &key);
    put(THIRD_BIT, wanted.third);
}

// Which part of the key a record or key lacks; 0 when none.
unsigned int missingKeyPart(const InfoSchema& schema, const GlobalRegRecord& record) noexcept {
    if (valueOf(record, fieldOf(schema, VERSION_BIT)) == 0) {
        return REG_INFO_VERSION_MISSING;
    }
    if (textOf(record, fieldOf(schema, SERVICE_BIT)).empty()) {
        return REG_INFO_SERVICE_MISSING;
    }
    if ((schema.key & THIRD_BIT) != 0 && textOf(record, fieldOf(schema, THIRD_BIT)).empty()) {
        return REG_INFO_INSTANCE_MISSING;
    }
    return 0;
}

}  // namespace

unsigned int setInfo(const InfoSchema& schema, const void* info) noexcept {
    OperationTrace trace{schema.set};
    if (info == nullptr) {
        return trace.fail(10, schema.infoNull);
    }
    GlobalRegRecord record;
    recordFromInfo(schema, info, &record);
    if (const unsigned int rc = missingKeyPart(schema, record)) {
        return trace.fail(20, rc);
    }
    GlobalReg registry;
    registry.SetChangeLoggingFuncID(static_cast<unsigned int>(schema.set));
    const CauseMark mark;
    const unsigned int added = registry.Add(schema.key, &record);
    if (added == 0) {
        return trace.exit(0);
    }
    if (added != REG_DUPLICATE) {
        return trace.fail(30, schema.addFailed);
    }
    mark.restore();
    GlobalRegRecord key = record;
    const unsigned int changed = registry.Change(schema.key, &key, &record);
    if (changed == 0 || changed == REG_UNCHANGED) {
        return trace.exit(changed);
    }
    return trace.fail(40, schema.changeFailed);
}

unsigned int getInfo(const InfoSchema& schema, const InfoKey& wanted, void* info) noexcept {
    OperationTrace trace{schema.get};
    if (info == nullptr) {
        return trace.fail(10, schema.infoNull);
    }
    GlobalReg registry;
    BinFrames::useWays(registry, LOOK_UP_WAYS);
    GlobalRegRecord key;
    fillKey(schema, wanted, key);
    Found found;  // its record means nothing before the look-up has put one there
    found.length = 0;
    const unsigned int rc = registry.Get(key.fieldMask, &key, &found);
    if (rc == REG_NOT_FOUND) {
        return trace.exit(rc);
    }
    if (rc != 0) {
        return trace.fail(20, schema.getFailed);
    }
    infoFrom(schema, found, info);
    return trace.exit(0);
}

unsigned int removeInfo(const InfoSchema& schema, const InfoKey& wanted) noexcept {
    OperationTrace trace{schema.remove};
    GlobalRegRecord key = {};
    fillKey(schema, wanted, key);
    if (const unsigned int rc = missingKeyPart(schema, key)) {
        return trace.fail(10, rc);
    }
    // Kept: the change log is not told the caller of a removal.
    GlobalReg registry;
    const unsigned int rc = registry.Delete(schema.key, &key);
    if (rc == 0 || rc == REG_NOT_FOUND) {
        return trace.exit(rc);
    }
    return trace.fail(20, schema.removeFailed);
}

unsigned int openInstanceList(const char* service, void** handle, bool useDefaultPath) noexcept {
    OperationTrace trace{Function::OssOpenInstanceList};
    if (handle == nullptr) {
        return trace.fail(10, REG_LIST_HANDLE_NULL);
    }
    std::unique_ptr<GlobalReg> list(new GlobalReg(useDefaultPath));
    if (list == nullptr) {
        return trace.fail(20, REG_NO_LIST);
    }
    if (service == nullptr) {
        return trace.fail(30, REG_LIST_SERVICE_NULL);
    }
    beginList(*list);
    if (const unsigned int rc = list->OpenScan()) {
        return trace.fail(40, rc);
    }
    GlobalRegList::setService(list.get(), service);
    *handle = list.release();
    return trace.exit(0);
}

unsigned int openServiceList(void** handle) noexcept {
    OperationTrace trace{Function::OssOpenServiceList};
    if (handle == nullptr) {
        return trace.fail(10, REG_LIST_HANDLE_NULL);
    }
    std::unique_ptr<GlobalReg> list(new GlobalReg());
    if (list == nullptr) {
        return trace.fail(20, REG_NO_LIST);
    }
    beginList(*list);
    if (list->OpenScan() != 0) {
        return trace.fail(30, REG_OPEN_SERVICE_LIST_FAILED);
    }
    *handle = list.release();
    return trace.exit(0);
}

unsigned int nextInfo(const InfoSchema& schema, void* handle, void* info) noexcept {
    OperationTrace trace{schema.next};
    if (handle == nullptr) {
        return trace.fail(10, REG_LIST_HANDLE_NULL);
    }
    if (info == nullptr) {
        return trace.fail(20, schema.infoNull);
    }
    auto* list = static_cast<GlobalReg*>(handle);
    GlobalRegRecord key;
    fillKey(schema, {GlobalRegList::service(list), 0, nullptr}, key);
    Listed listed;  // its record means nothing before the scan has put one there
    listed.schema = &schema;
    listed.info = info;
    listed.filled = false;
    const unsigned int rc = list->GetNext(key.fieldMask, &key, &listed);
    if (rc == REG_NO_MORE_RECORDS) {
        return trace.exit(rc);
    }
    if (rc != 0) {
        return trace.fail(30, schema.nextFailed);
    }
    if (!listed.filled) {
        infoFrom(schema, RecordFields(listed.record), info);
    }
    return trace.exit(0);
}

unsigned int closeInfoList(const InfoSchema& schema, void* handle) noexcept {
    OperationTrace trace{schema.close};
    if (handle == nullptr) {
        return trace.fail(10, REG_LIST_HANDLE_NULL);
    }
    const std::unique_ptr<GlobalReg> list(static_cast<GlobalReg*>(handle));
    if (list->CloseScan() != 0) {
        return trace.fail(20, REG_CLOSE_LIST_FAILED);
    }
    return trace.exit(0);
}

}  // namespace genreg

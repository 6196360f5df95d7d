// Whether a record matches a key, asked of the unpacked record or of its image.

#include <genreg/GlobalReg.h>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/PackedImage.h"

namespace genreg {
namespace {

class RecordFields {
public:
    explicit RecordFields(const GlobalRegRecord& record) noexcept : record_(record) {}

    [[nodiscard]] bool equal(const GlobalRegField& field, const GlobalRegRecord& key) noexcept {
        return field.kind == GLOBALREG_FIELD_TEXT ? textOf(record_, field) == textOf(key, field)
                                                  : valueOf(record_, field) == valueOf(key, field);
    }

private:
    const GlobalRegRecord& record_;
};

// Whether the item's text is the key's. An item that holds its NUL with room to spare needs one look at the bytes.
bool sameText(const PackedItem& item, const GlobalRegField& field, const GlobalRegRecord& key) noexcept {
    if (item.length > 0 && item.length < field.capacity && item.bytes[item.length - 1] == 0) {
        return std::strncmp(reinterpret_cast<const char*>(item.bytes), memberOf(key, field), item.length) == 0;
    }
    return textOf(item, field) == textOf(key, field);
}

// The fields must be asked for in ascending order. An absent one is empty or 0, as unpacking leaves it.
class ImageFields {
public:
    explicit ImageFields(const void* image) noexcept : items_(image) {}

    [[nodiscard]] bool equal(const GlobalRegField& field, const GlobalRegRecord& key) noexcept {
        while (more_ && item_.bit < field.bit) {
            more_ = items_.next(&item_);
        }
        const bool present = more_ && item_.bit == field.bit;
        if (field.kind == GLOBALREG_FIELD_TEXT) {
            return present ? sameText(item_, field, key) : textOf(key, field).empty();
        }
        return (present ? valueOf(item_, field) : 0) == valueOf(key, field);
    }

private:
    PackedItems items_;
    PackedItem item_;
    bool more_ = true;
};

// A key that names a variable also asks for the service and the further text, whatever the mask.
unsigned long comparedBits(unsigned long mask, unsigned int type, const GlobalRegRecord& key) noexcept {
    const bool namesVariable = type == GLOBALREG_VARIABLE && key.body.variable.variable[0] != '\0';
    return namesVariable ? mask | VARIABLE_SERVICE | VARIABLE_NAME | VARIABLE_TEXT : mask;
}

// What spoke against a match, for the trace.
struct Difference {
    unsigned long type;
    unsigned long bit;  // 0: the type itself
};
constexpr unsigned long NO_DIFFERENCE = ~0UL;

template <class Fields>
bool matches(unsigned long mask, unsigned int recordType, Fields fields, const GlobalRegRecord& key,
             Difference* difference) noexcept {
    *difference = {recordType, NO_DIFFERENCE};
    if (key.recordType != 0 && key.recordType != recordType) {
        difference->bit = 0;
        return false;
    }
    const RecordType* type = recordTypeOf(recordType);
    if (mask == 0 || type == nullptr) {
        return true;
    }
    unsigned long bits = comparedBits(mask, recordType, key) & type->known;
    while (bits != 0) {
        const GlobalRegField& field = fieldOf(*type, takeLowest(&bits));
        if (!fields.equal(field, key)) {
            difference->bit = field.bit;
            return false;
        }
    }
    return true;
}

}  // namespace

bool imageMayMatch(unsigned long mask, const void* image, unsigned long, const void* key) noexcept {
    if (key == nullptr) {
        return mask == 0;
    }
    Difference difference;
    return matches(mask, headerOf(image).recordType, ImageFields(image), *static_cast<const GlobalRegRecord*>(key),
                   &difference);
}

}  // namespace genreg

using genreg::Difference;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::RecordFields;

unsigned int GlobalReg::MatchRecord(unsigned long mask, void* fileRecord, void* keyRecord) noexcept {
    FunctionTrace trace{Function::GlobalMatchRecord};
    if (keyRecord == nullptr) {
        return trace.exit(mask == 0 ? 1 : 0);
    }
    const auto& record = *static_cast<const GlobalRegRecord*>(fileRecord);
    Difference difference;
    const bool matched = matches(mask, record.recordType, RecordFields(record),
                                 *static_cast<const GlobalRegRecord*>(keyRecord), &difference);
    trace.input(10, sizeof difference, &difference);
    return trace.exit(matched ? 1 : 0);
}

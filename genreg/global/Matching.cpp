// Whether a record matches a key, asked of the unpacked record or of its image.

#include <genreg/GlobalReg.h>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/Matching.h"

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

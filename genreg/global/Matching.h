// Whether a record matches a key, of whatever its fields are asked.
#pragma once

#include "genreg/global/PackedImage.h"

namespace genreg {

// Whether the item's text is the key's. An item that holds its NUL with room to spare needs one look at the bytes.
[[nodiscard]] inline bool sameText(const PackedItem& item, const GlobalRegField& field,
                                   const GlobalRegRecord& key) noexcept {
    if (item.length > 0 && item.length < field.capacity && item.bytes[item.length - 1] == 0) {
        return std::strncmp(reinterpret_cast<const char*>(item.bytes), memberOf(key, field), item.length) == 0;
    }
    return textOf(item, field) == textOf(key, field);
}

// A key that names a variable also asks for the service and the further text, whatever the mask.
[[nodiscard]] inline unsigned long comparedBits(unsigned long mask, unsigned int type,
                                                const GlobalRegRecord& key) noexcept {
    const bool namesVariable = type == GLOBALREG_VARIABLE && key.body.variable.variable[0] != '\0';
    return namesVariable ? mask | VARIABLE_SERVICE | VARIABLE_NAME | VARIABLE_TEXT : mask;
}

// What spoke against a match, for the trace.
struct Difference {
    unsigned long type;
    unsigned long bit;  // 0: the type itself
};
inline constexpr unsigned long NO_DIFFERENCE = ~0UL;

// Fields: equal(field, key) tells whether the record's field is the key's; it is asked in ascending order.
template <class Fields>
[[nodiscard]] bool matches(unsigned long mask, unsigned int recordType, Fields fields, const GlobalRegRecord& key,
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

}  // namespace genreg

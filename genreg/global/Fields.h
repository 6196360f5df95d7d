// The field tables of the global registry's record types, and how to reach a field's member in a record.
#pragma once

#include <genreg/GlobalRegFields.h>

#include <cstring>
#include <span>
#include <string_view>

namespace genreg {

struct RecordType {
    unsigned int type;                       // GLOBALREG_*
    unsigned long known;                     // bits of the fields
    std::span<const GlobalRegField> fields;  // field n has bit n
    char logLetter;                          // begins its form in the change log
    const char* heading;                     // of its printed form
};

extern const RecordType INSTANCE_TYPE;
extern const RecordType SERVICE_TYPE;
extern const RecordType VARIABLE_TYPE;

// Null for any type but the three.
[[nodiscard]] inline const RecordType* recordTypeOf(unsigned int type) noexcept {
    switch (type) {
        case GLOBALREG_INSTANCE:
            return &INSTANCE_TYPE;
        case GLOBALREG_SERVICE:
            return &SERVICE_TYPE;
        case GLOBALREG_VARIABLE:
            return &VARIABLE_TYPE;
        default:
            return nullptr;
    }
}

[[nodiscard]] inline const char* memberOf(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    return reinterpret_cast<const char*>(&record) + field.offset;
}
[[nodiscard]] inline char* memberOf(GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    return reinterpret_cast<char*>(&record) + field.offset;
}

// The text before its NUL, at most `most` bytes.
[[nodiscard]] inline std::string_view boundedText(const char* bytes, unsigned long most) noexcept {
    const void* end = most == 0 ? nullptr : std::memchr(bytes, 0, most);
    return {bytes, end == nullptr ? most : static_cast<unsigned long>(static_cast<const char*>(end) - bytes)};
}

// A text member that lacks its NUL counts as cut to leave room for it.
[[nodiscard]] inline std::string_view textOf(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    return boundedText(memberOf(record, field), field.capacity - 1);
}

// A number, flag or version, zero-extended: an int of -1 is 0xffffffff.
[[nodiscard]] unsigned long valueOf(const GlobalRegRecord& record, const GlobalRegField& field) noexcept;
void setValue(GlobalRegRecord& record, const GlobalRegField& field, unsigned long value) noexcept;

// Cuts what does not fit and zeroes what it leaves over.
void setText(char* member, unsigned long capacity, const char* text) noexcept;

}  // namespace genreg

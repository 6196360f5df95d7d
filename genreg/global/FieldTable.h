// The fields of the global registry's records, a line each. What packs, measures, matches, validates, prints, logs or
// shows a record walks these tables, so that a new field is a line here and a member in its struct
// (GlobalRegRecord.h), both at the end of what is there. Whatever else has to name the field is held to the table by
// the compiler: its bit and the mask of the known ones beside the struct, the member of the information structure and
// its line (InstanceInfo.cpp, ServiceInfo.cpp). Its codes are lines of CodeTable.inc.
//
// What else a new field means:
// - The struct grows, and with it GlobalRegRecord and the information structure, which are the memory of programs built
//   before: the major version of the library goes up.
// - Earlier releases carry the field's items without knowing them, as bytes of their own bit. So a bit is never given
//   to another field, nor a field another kind or a smaller member: there are files with it.
// - A field that is logged is one more place in each line of the change log, whose readers count them.
// - The information functions replace records whole: a program that does not fill the member takes the field away.
#pragma once

#include <genreg/GlobalRegFields.h>

#include <cstddef>
#include <span>
#include <type_traits>
#include <utility>

namespace genreg {

// What a member of a struct says of the field in it.
struct FieldMember {
    const char* name;
    unsigned int kind;  // GLOBALREG_FIELD_*
    unsigned long offset;
    unsigned long capacity;
};

template <class Member>
consteval FieldMember fieldMember(const char* name, unsigned long offset) {
    unsigned int kind = GLOBALREG_FIELD_FLAG;
    if constexpr (std::is_array_v<Member>) {
        static_assert(std::is_same_v<std::remove_extent_t<Member>, char>, "a text is an array of char");
        kind = GLOBALREG_FIELD_TEXT;
    } else if constexpr (std::is_same_v<Member, unsigned long>) {
        kind = GLOBALREG_FIELD_VERSION;
    } else if constexpr (std::is_same_v<Member, int>) {
        kind = GLOBALREG_FIELD_NUMBER;
    } else {
        static_assert(std::is_same_v<Member, char>, "no field is of that type");
    }
    return {name, kind, offset, sizeof(Member)};
}

#define MEMBER(type, member) fieldMember<decltype(type::member)>(#member, offsetof(type, member))

namespace table {

consteval GlobalRegField field(unsigned long bit, FieldMember member, bool key, bool logged, unsigned int refusedCode,
                               unsigned int missingCode, const char* label) {
    return {.bit = bit,
            .name = member.name,
            .kind = member.kind,
            .logged = logged,
            .key = key,
            .offset = offsetof(GlobalRegRecord, body) + member.offset,
            .capacity = member.capacity,
            .refusedCode = refusedCode,
            .missingCode = missingCode,
            .label = label};
}

using I = GlobalRegInstance;
using S = GlobalRegService;
using V = GlobalRegVariable;

constexpr bool KEY = true;
constexpr bool LOGGED = true;
constexpr unsigned int ANY = 0;       // every content is accepted
constexpr unsigned int OPTIONAL = 0;  // no mask requires it

// clang-format off
inline constexpr GlobalRegField INSTANCE_FIELDS[] = {
    field(INSTANCE_SERVICE,       MEMBER(I, service),      KEY,  LOGGED, REG_INSTANCE_SERVICE_EMPTY,         REG_INSTANCE_SERVICE_MISSING,       "Service     "),
    field(INSTANCE_VERSION_CODE,  MEMBER(I, versionCode),  KEY,  LOGGED, ANY,                                REG_INSTANCE_VERSION_MISSING,       "VersionCode "),
    field(INSTANCE_NAME,          MEMBER(I, instanceName), KEY,  LOGGED, REG_INSTANCE_NAME_EMPTY,            REG_INSTANCE_NAME_MISSING,          "InstanceName"),
    field(INSTANCE_PATH,          MEMBER(I, instancePath), !KEY, LOGGED, REG_INSTANCE_PATH_EMPTY,            REG_INSTANCE_PATH_MISSING,          "InstancePath"),
    field(INSTANCE_USAGE,         MEMBER(I, usage),        !KEY, LOGGED, REG_INSTANCE_USAGE_EMPTY,           REG_INSTANCE_USAGE_MISSING,         "Usage       "),
    field(INSTANCE_START_AT_BOOT, MEMBER(I, startAtBoot),  !KEY, LOGGED, REG_INSTANCE_START_AT_BOOT_INVALID, REG_INSTANCE_START_AT_BOOT_MISSING, "StartAtBoot "),
    field(INSTANCE_MAINTENANCE,   MEMBER(I, maintenance),  !KEY, LOGGED, REG_INSTANCE_MAINTENANCE_INVALID,   REG_INSTANCE_MAINTENANCE_MISSING,   "Maintenance "),
    // Kept: the two extra fields are not printed.
    field(INSTANCE_EXTRA_PATH,    MEMBER(I, extraPath),    !KEY, LOGGED, REG_INSTANCE_EXTRA_PATH_EMPTY,      REG_INSTANCE_EXTRA_PATH_MISSING,    nullptr),
    field(INSTANCE_EXTRA_NAME,    MEMBER(I, extraName),    !KEY, LOGGED, REG_INSTANCE_EXTRA_NAME_EMPTY,      REG_INSTANCE_EXTRA_NAME_MISSING,    nullptr),
    field(INSTANCE_COMMENT,       MEMBER(I, comment),      !KEY, LOGGED, REG_INSTANCE_COMMENT_EMPTY,         REG_INSTANCE_COMMENT_MISSING,       "Comment     "),
};

// Kept: services are not printed; a mask never requires the fixpack number; the codes of a missing flag and of a
// missing second number stand in crossed order.
inline constexpr GlobalRegField SERVICE_FIELDS[] = {
    field(SERVICE_SERVICE,        MEMBER(S, service),        KEY,  LOGGED, REG_SERVICE_SERVICE_EMPTY,  REG_SERVICE_SERVICE_MISSING,  nullptr),
    field(SERVICE_VERSION_CODE,   MEMBER(S, versionCode),    KEY,  LOGGED, ANY,                        REG_SERVICE_VERSION_MISSING,  nullptr),
    field(SERVICE_PATH,           MEMBER(S, servicePath),    !KEY, LOGGED, REG_SERVICE_PATH_EMPTY,     REG_SERVICE_PATH_MISSING,     nullptr),
    field(SERVICE_ALT_PATH,       MEMBER(S, serviceAltPath), !KEY, LOGGED, REG_SERVICE_ALT_PATH_EMPTY, REG_SERVICE_ALT_PATH_MISSING, nullptr),
    field(SERVICE_TEXT,           MEMBER(S, serviceText),    !KEY, LOGGED, REG_SERVICE_TEXT_EMPTY,     REG_SERVICE_TEXT_MISSING,     nullptr),
    field(SERVICE_FIXPACK_NUMBER, MEMBER(S, fixpackNumber),  !KEY, LOGGED, ANY,                        OPTIONAL,                     nullptr),
    field(SERVICE_NUMBER1,        MEMBER(S, serviceNumber1), !KEY, LOGGED, ANY,                        REG_SERVICE_NUMBER1_MISSING,  nullptr),
    field(SERVICE_FLAG,           MEMBER(S, serviceFlag),    !KEY, LOGGED, ANY,                        REG_SERVICE_FLAG_MISSING,     nullptr),
    field(SERVICE_NUMBER2,        MEMBER(S, serviceNumber2), !KEY, LOGGED, ANY,                        REG_SERVICE_NUMBER2_MISSING,  nullptr),
    field(SERVICE_NUMBER3,        MEMBER(S, serviceNumber3), !KEY, LOGGED, ANY,                        REG_SERVICE_NUMBER3_MISSING,  nullptr),
};

// Kept: a mask never requires the further text, which is neither printed nor logged.
inline constexpr GlobalRegField VARIABLE_FIELDS[] = {
    field(VARIABLE_SERVICE, MEMBER(V, service),      KEY,  LOGGED,  REG_VARIABLE_SERVICE_EMPTY, REG_VARIABLE_SERVICE_MISSING, "Service "),
    field(VARIABLE_NAME,    MEMBER(V, variable),     KEY,  LOGGED,  REG_VARIABLE_NAME_EMPTY,    REG_VARIABLE_NAME_MISSING,    "Variable"),
    field(VARIABLE_VALUE,   MEMBER(V, value),        !KEY, LOGGED,  REG_VARIABLE_VALUE_EMPTY,   REG_VARIABLE_VALUE_MISSING,   "Value   "),
    field(VARIABLE_TEXT,    MEMBER(V, variableText), !KEY, !LOGGED, REG_VARIABLE_TEXT_EMPTY,    OPTIONAL,                     nullptr),
    field(VARIABLE_COMMENT, MEMBER(V, comment),      !KEY, LOGGED,  REG_VARIABLE_COMMENT_EMPTY, REG_VARIABLE_COMMENT_MISSING, "Comment "),
};
// clang-format on

}  // namespace table

using table::INSTANCE_FIELDS;
using table::SERVICE_FIELDS;
using table::VARIABLE_FIELDS;

consteval unsigned long knownOf(std::span<const GlobalRegField> fields) {
    return (1UL << fields.size()) - 1;
}

consteval unsigned long keyOf(std::span<const GlobalRegField> fields) {
    unsigned long key = 0;
    for (const GlobalRegField& field : fields) {
        key |= field.key ? field.bit : 0;
    }
    return key;
}

// Whether the struct has so many members, or more: with braces of its own each takes a value, an array the first.
struct AnyValue {
    template <class Value>
    operator Value() const noexcept;  // NOLINT(google-explicit-constructor): as an initializer it converts by itself
};
template <class Body, std::size_t... Member>
consteval bool takes(std::index_sequence<Member...>) {
    return requires {
        Body{{(static_cast<void>(Member), AnyValue{})}...};
    };
}

// Field n has bit n, so that nothing that walks a table can meet a known bit without a member; and the members are as
// many and fill their struct, so that none is left out, not even in what would be padding.
template <class Body, std::size_t COUNT>
consteval bool fills(const GlobalRegField (&fields)[COUNT]) {
    if (!takes<Body>(std::make_index_sequence<COUNT>()) || takes<Body>(std::make_index_sequence<COUNT + 1>())) {
        return false;
    }
    const auto upTo = [](unsigned long at, unsigned long unit) { return (at + unit - 1) / unit * unit; };
    unsigned long end = offsetof(GlobalRegRecord, body);
    for (unsigned long index = 0; index < COUNT; ++index) {
        const GlobalRegField& field = fields[index];
        const bool words = field.kind == GLOBALREG_FIELD_VERSION || field.kind == GLOBALREG_FIELD_NUMBER;
        if (field.bit != 1UL << index || field.offset != upTo(end, words ? field.capacity : 1)) {
            return false;
        }
        end = field.offset + field.capacity;
    }
    return upTo(end, alignof(Body)) == offsetof(GlobalRegRecord, body) + sizeof(Body);
}
static_assert(fills<GlobalRegInstance>(INSTANCE_FIELDS), "a member has no line, or not in its place");
static_assert(knownOf(INSTANCE_FIELDS) == INSTANCE_KNOWN_FIELDS, "the mask of the known fields beside the struct");
static_assert(fills<GlobalRegService>(SERVICE_FIELDS), "a member has no line, or not in its place");
static_assert(knownOf(SERVICE_FIELDS) == SERVICE_KNOWN_FIELDS, "the mask of the known fields beside the struct");
static_assert(fills<GlobalRegVariable>(VARIABLE_FIELDS), "a member has no line, or not in its place");
static_assert(knownOf(VARIABLE_FIELDS) == VARIABLE_KNOWN_FIELDS, "the mask of the known fields beside the struct");

}  // namespace genreg

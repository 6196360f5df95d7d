#include "genreg/global/Fields.h"

#include <cstddef>

namespace genreg {
namespace {

using I = GlobalRegInstance;
using S = GlobalRegService;
using V = GlobalRegVariable;

constexpr unsigned int TEXT = GLOBALREG_FIELD_TEXT;
constexpr unsigned int VERSION = GLOBALREG_FIELD_VERSION;
constexpr unsigned int NUMBER = GLOBALREG_FIELD_NUMBER;
constexpr unsigned int FLAG = GLOBALREG_FIELD_FLAG;

constexpr unsigned long BODY = offsetof(GlobalRegRecord, body);
constexpr unsigned int ANY = 0;       // every content is accepted
constexpr unsigned int OPTIONAL = 0;  // no mask requires it
constexpr bool LOGGED = true;
constexpr bool KEY = true;

// clang-format off
constexpr GlobalRegField INSTANCE_FIELDS[] = {
    {INSTANCE_SERVICE,       "service",      TEXT,    LOGGED, KEY,  BODY + offsetof(I, service),      sizeof I::service,      REG_INSTANCE_SERVICE_EMPTY,         REG_INSTANCE_SERVICE_MISSING,       "Service     "},
    {INSTANCE_VERSION_CODE,  "versionCode",  VERSION, LOGGED, KEY,  BODY + offsetof(I, versionCode),  sizeof I::versionCode,  ANY,                                REG_INSTANCE_VERSION_MISSING,       "VersionCode "},
    {INSTANCE_NAME,          "instanceName", TEXT,    LOGGED, KEY,  BODY + offsetof(I, instanceName), sizeof I::instanceName, REG_INSTANCE_NAME_EMPTY,            REG_INSTANCE_NAME_MISSING,          "InstanceName"},
    {INSTANCE_PATH,          "instancePath", TEXT,    LOGGED, !KEY, BODY + offsetof(I, instancePath), sizeof I::instancePath, REG_INSTANCE_PATH_EMPTY,            REG_INSTANCE_PATH_MISSING,          "InstancePath"},
    {INSTANCE_USAGE,         "usage",        TEXT,    LOGGED, !KEY, BODY + offsetof(I, usage),        sizeof I::usage,        REG_INSTANCE_USAGE_EMPTY,           REG_INSTANCE_USAGE_MISSING,         "Usage       "},
    {INSTANCE_START_AT_BOOT, "startAtBoot",  NUMBER,  LOGGED, !KEY, BODY + offsetof(I, startAtBoot),  sizeof I::startAtBoot,  REG_INSTANCE_START_AT_BOOT_INVALID, REG_INSTANCE_START_AT_BOOT_MISSING, "StartAtBoot "},
    {INSTANCE_MAINTENANCE,   "maintenance",  NUMBER,  LOGGED, !KEY, BODY + offsetof(I, maintenance),  sizeof I::maintenance,  REG_INSTANCE_MAINTENANCE_INVALID,   REG_INSTANCE_MAINTENANCE_MISSING,   "Maintenance "},
    // kept: the two extra fields are not printed.
    {INSTANCE_EXTRA_PATH,    "extraPath",    TEXT,    LOGGED, !KEY, BODY + offsetof(I, extraPath),    sizeof I::extraPath,    REG_INSTANCE_EXTRA_PATH_EMPTY,      REG_INSTANCE_EXTRA_PATH_MISSING,    nullptr},
    {INSTANCE_EXTRA_NAME,    "extraName",    TEXT,    LOGGED, !KEY, BODY + offsetof(I, extraName),    sizeof I::extraName,    REG_INSTANCE_EXTRA_NAME_EMPTY,      REG_INSTANCE_EXTRA_NAME_MISSING,    nullptr},
    {INSTANCE_COMMENT,       "comment",      TEXT,    LOGGED, !KEY, BODY + offsetof(I, comment),      sizeof I::comment,      REG_INSTANCE_COMMENT_EMPTY,         REG_INSTANCE_COMMENT_MISSING,       "Comment     "},
};

// kept: services are not printed; a mask never requires the fixpack number; the codes of a missing flag and of a
// missing second number stand in crossed order.
constexpr GlobalRegField SERVICE_FIELDS[] = {
    {SERVICE_SERVICE,        "service",        TEXT,    LOGGED, KEY,  BODY + offsetof(S, service),        sizeof S::service,        REG_SERVICE_SERVICE_EMPTY,  REG_SERVICE_SERVICE_MISSING,  nullptr},
    {SERVICE_VERSION_CODE,   "versionCode",    VERSION, LOGGED, KEY,  BODY + offsetof(S, versionCode),    sizeof S::versionCode,    ANY,                        REG_SERVICE_VERSION_MISSING,  nullptr},
    {SERVICE_PATH,           "servicePath",    TEXT,    LOGGED, !KEY, BODY + offsetof(S, servicePath),    sizeof S::servicePath,    REG_SERVICE_PATH_EMPTY,     REG_SERVICE_PATH_MISSING,     nullptr},
    {SERVICE_ALT_PATH,       "serviceAltPath", TEXT,    LOGGED, !KEY, BODY + offsetof(S, serviceAltPath), sizeof S::serviceAltPath, REG_SERVICE_ALT_PATH_EMPTY, REG_SERVICE_ALT_PATH_MISSING, nullptr},
    {SERVICE_TEXT,           "serviceText",    TEXT,    LOGGED, !KEY, BODY + offsetof(S, serviceText),    sizeof S::serviceText,    REG_SERVICE_TEXT_EMPTY,     REG_SERVICE_TEXT_MISSING,     nullptr},
    {SERVICE_FIXPACK_NUMBER, "fixpackNumber",  NUMBER,  LOGGED, !KEY, BODY + offsetof(S, fixpackNumber),  sizeof S::fixpackNumber,  ANY,                        OPTIONAL,                     nullptr},
    {SERVICE_NUMBER1,        "serviceNumber1", NUMBER,  LOGGED, !KEY, BODY + offsetof(S, serviceNumber1), sizeof S::serviceNumber1, ANY,                        REG_SERVICE_NUMBER1_MISSING,  nullptr},
    {SERVICE_FLAG,           "serviceFlag",    FLAG,    LOGGED, !KEY, BODY + offsetof(S, serviceFlag),    sizeof S::serviceFlag,    ANY,                        REG_SERVICE_FLAG_MISSING,     nullptr},
    {SERVICE_NUMBER2,        "serviceNumber2", NUMBER,  LOGGED, !KEY, BODY + offsetof(S, serviceNumber2), sizeof S::serviceNumber2, ANY,                        REG_SERVICE_NUMBER2_MISSING,  nullptr},
    {SERVICE_NUMBER3,        "serviceNumber3", NUMBER,  LOGGED, !KEY, BODY + offsetof(S, serviceNumber3), sizeof S::serviceNumber3, ANY,                        REG_SERVICE_NUMBER3_MISSING,  nullptr},
};

// kept: a mask never requires the further text, which is neither printed nor logged.
constexpr GlobalRegField VARIABLE_FIELDS[] = {
    {VARIABLE_SERVICE, "service",      TEXT, LOGGED,  KEY,  BODY + offsetof(V, service),      sizeof V::service,      REG_VARIABLE_SERVICE_EMPTY, REG_VARIABLE_SERVICE_MISSING, "Service "},
    {VARIABLE_NAME,    "variable",     TEXT, LOGGED,  KEY,  BODY + offsetof(V, variable),     sizeof V::variable,     REG_VARIABLE_NAME_EMPTY,    REG_VARIABLE_NAME_MISSING,    "Variable"},
    {VARIABLE_VALUE,   "value",        TEXT, LOGGED,  !KEY, BODY + offsetof(V, value),        sizeof V::value,        REG_VARIABLE_VALUE_EMPTY,   REG_VARIABLE_VALUE_MISSING,   "Value   "},
    {VARIABLE_TEXT,    "variableText", TEXT, !LOGGED, !KEY, BODY + offsetof(V, variableText), sizeof V::variableText, REG_VARIABLE_TEXT_EMPTY,    OPTIONAL,                     nullptr},
    {VARIABLE_COMMENT, "comment",      TEXT, LOGGED,  !KEY, BODY + offsetof(V, comment),      sizeof V::comment,      REG_VARIABLE_COMMENT_EMPTY, REG_VARIABLE_COMMENT_MISSING, "Comment "},
};
// clang-format on

// Each known bit has its field, in its place: nothing that walks a table can meet a known bit without a member.
constexpr bool inPlace(std::span<const GlobalRegField> fields, unsigned long known) {
    for (unsigned long index = 0; index < fields.size(); ++index) {
        if (fields[index].bit != 1UL << index) {
            return false;
        }
    }
    return known == (1UL << fields.size()) - 1;
}
static_assert(inPlace(INSTANCE_FIELDS, INSTANCE_KNOWN_FIELDS));
static_assert(inPlace(SERVICE_FIELDS, SERVICE_KNOWN_FIELDS));
static_assert(inPlace(VARIABLE_FIELDS, VARIABLE_KNOWN_FIELDS));

constexpr RecordType INSTANCE = {GLOBALREG_INSTANCE, INSTANCE_KNOWN_FIELDS, INSTANCE_FIELDS, 'I',
                                 "   InstanceRecord:\n"};
constexpr RecordType SERVICE = {GLOBALREG_SERVICE, SERVICE_KNOWN_FIELDS, SERVICE_FIELDS, 'S',
                                "Services record not yet implemented\n"};
constexpr RecordType VARIABLE = {GLOBALREG_VARIABLE, VARIABLE_KNOWN_FIELDS, VARIABLE_FIELDS, 'V',
                                 "   VariableRecord:\n"};

}  // namespace

const RecordType* recordTypeOf(unsigned int type) noexcept {
    switch (type) {
        case GLOBALREG_INSTANCE:
            return &INSTANCE;
        case GLOBALREG_SERVICE:
            return &SERVICE;
        case GLOBALREG_VARIABLE:
            return &VARIABLE;
        default:
            return nullptr;
    }
}

unsigned long valueOf(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    const char* member = memberOf(record, field);
    switch (field.kind) {
        case VERSION: {
            unsigned long version = 0;
            std::memcpy(&version, member, sizeof version);
            return version;
        }
        case NUMBER: {
            unsigned int number = 0;
            std::memcpy(&number, member, sizeof number);
            return number;
        }
        default:
            return static_cast<unsigned char>(*member);
    }
}

void setValue(GlobalRegRecord& record, const GlobalRegField& field, unsigned long value) noexcept {
    char* member = memberOf(record, field);
    switch (field.kind) {
        case VERSION:
            std::memcpy(member, &value, sizeof value);
            break;
        case NUMBER: {
            const auto number = static_cast<unsigned int>(value);
            std::memcpy(member, &number, sizeof number);
            break;
        }
        default:
            *member = static_cast<char>(value);
    }
}

void setText(char* member, unsigned long capacity, const char* text) noexcept {
    const std::string_view cut = boundedText(text, capacity - 1);
    std::memcpy(member, cut.data(), cut.size());
    std::memset(member + cut.size(), 0, capacity - cut.size());
}

}  // namespace genreg

extern "C" const GlobalRegField* globalRegFields(unsigned int recordType, unsigned long* count) {
    const genreg::RecordType* type = genreg::recordTypeOf(recordType);
    if (count != nullptr) {
        *count = type == nullptr ? 0 : type->fields.size();
    }
    return type == nullptr ? nullptr : type->fields.data();
}

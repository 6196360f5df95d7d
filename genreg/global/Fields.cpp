#include "genreg/global/Fields.h"

#include "genreg/global/FieldTable.h"

namespace genreg {

constinit const RecordType INSTANCE_TYPE = {GLOBALREG_INSTANCE, knownOf(INSTANCE_FIELDS), INSTANCE_FIELDS, 'I',
                                            "   InstanceRecord:\n"};
constinit const RecordType SERVICE_TYPE = {GLOBALREG_SERVICE, knownOf(SERVICE_FIELDS), SERVICE_FIELDS, 'S',
                                           "Services record not yet implemented\n"};
constinit const RecordType VARIABLE_TYPE = {GLOBALREG_VARIABLE, knownOf(VARIABLE_FIELDS), VARIABLE_FIELDS, 'V',
                                            "   VariableRecord:\n"};

unsigned long valueOf(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    const char* member = memberOf(record, field);
    switch (field.kind) {
        case GLOBALREG_FIELD_VERSION: {
            unsigned long version = 0;
            std::memcpy(&version, member, sizeof version);
            return version;
        }
        case GLOBALREG_FIELD_NUMBER: {
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
        case GLOBALREG_FIELD_VERSION:
            std::memcpy(member, &value, sizeof value);
            break;
        case GLOBALREG_FIELD_NUMBER: {
            const auto number = static_cast<unsigned int>(value);
            std::memcpy(member, &number, sizeof number);
            break;
        }
        default:
            *member = static_cast<char>(value);
    }
}

void setText(char* member, unsigned long capacity, const char* text) noexcept {
    (void)std::strncpy(member, text, capacity - 1);
    member[capacity - 1] = '\0';
}

}  // namespace genreg

extern "C" const GlobalRegField* globalRegFields(unsigned int recordType, unsigned long* count) {
    const genreg::RecordType* type = genreg::recordTypeOf(recordType);
    if (count != nullptr) {
        *count = type == nullptr ? 0 : type->fields.size();
    }
    return type == nullptr ? nullptr : type->fields.data();
}

// A record on standard output, for diagnostics.

#include <genreg/GlobalReg.h>

#include <cstdio>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/Fields.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::RecordType;
using genreg::recordTypeOf;
using genreg::textOf;
using genreg::valueOf;

namespace {

void printField(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    std::printf("      %s = ", field.label);
    switch (field.kind) {
        case GLOBALREG_FIELD_TEXT: {
            const std::string_view text = textOf(record, field);
            std::printf("|%.*s|\n", static_cast<int>(text.size()), text.data());
            break;
        }
        case GLOBALREG_FIELD_VERSION:
            std::printf("%lu\n", valueOf(record, field));
            break;
        default:
            std::printf("%i\n", static_cast<int>(valueOf(record, field)));
    }
}

}  // namespace

unsigned int GlobalReg::PrintRecord(void* record) noexcept {
    FunctionTrace trace{Function::GlobalPrintRecord};
    const auto& printed = *static_cast<const GlobalRegRecord*>(record);
    std::printf("   RecordType   = %d\n", static_cast<int>(printed.recordType));
    std::printf("   FieldMask    = %ld\n", static_cast<long>(printed.fieldMask));
    std::printf("   MissingFieldMask = %ld\n", static_cast<long>(printed.missingFieldMask));
    const RecordType* type = recordTypeOf(printed.recordType);
    if (type == nullptr) {
        return trace.exit(0);
    }
    std::fputs(type->heading, stdout);
    if (type->type == GLOBALREG_SERVICE) {
        return trace.exit(0);  // Kept: the heading says so, and no checksum follows
    }
    for (const GlobalRegField& field : type->fields) {
        if (field.label != nullptr) {
            printField(printed, field);
        }
    }
    std::printf("      CheckSum    = %i\n", printed.checksum);
    return trace.exit(0);
}

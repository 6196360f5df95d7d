// Whether a record may be written, or a key looked for.

#include <genreg/GlobalReg.h>

#include "genreg/core/FunctionTrace.h"
#include "genreg/global/PackedImage.h"

using genreg::fieldOf;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::memberOf;
using genreg::RecordType;
using genreg::recordTypeOf;
using genreg::takeLowest;
using genreg::valueOf;

namespace {

constexpr unsigned int HIGHEST_RECORD_TYPE = GLOBALREG_VARIABLE;

// A number with a rule is a yes or no; a negative one is refused as well.
bool isRefused(const GlobalRegRecord& record, const GlobalRegField& field) noexcept {
    return field.kind == GLOBALREG_FIELD_TEXT ? *memberOf(record, field) == '\0' : valueOf(record, field) > 1;
}

unsigned int checkContents(const GlobalRegRecord& record, const RecordType& type) noexcept {
    for (unsigned long bits = record.fieldMask & type.known; bits != 0;) {
        const GlobalRegField& field = fieldOf(type, takeLowest(&bits));
        if (field.refusedCode != 0 && isRefused(record, field)) {
            return field.refusedCode;
        }
    }
    return 0;
}

unsigned int checkPresence(unsigned long mask, const GlobalRegRecord& record, const RecordType& type) noexcept {
    for (unsigned long bits = mask & ~record.fieldMask & type.known; bits != 0;) {
        const GlobalRegField& field = fieldOf(type, takeLowest(&bits));
        if (field.missingCode != 0) {
            return field.missingCode;
        }
    }
    return 0;
}

}  // namespace

unsigned int GlobalReg::ValidateRecord(unsigned long mask, void* record) noexcept {
    FunctionTrace trace{Function::GlobalValidateRecord};
    if (mask == 0) {
        return trace.exit(0);
    }
    auto& checked = *static_cast<GlobalRegRecord*>(record);
    // Kept: type 3 passes, for which no rule exists.
    if (checked.recordType == 0 || checked.recordType > HIGHEST_RECORD_TYPE) {
        return trace.fail(10, REG_RECORD_TYPE_INVALID);
    }
    if (checked.fieldMask == 0) {
        return trace.fail(20, REG_FIELD_MASK_EMPTY);
    }
    // A reader's note about absent fields does not travel into a write. A record without one is not written to: another
    // thread may be reading the same key.
    if (checked.missingFieldMask != 0) {
        checked.missingFieldMask = 0;
    }
    const RecordType* type = recordTypeOf(checked.recordType);
    if (type == nullptr) {
        return trace.exit(0);
    }
    if (const unsigned int rc = checkContents(checked, *type)) {
        return trace.fail(30, rc);
    }
    if (const unsigned int rc = checkPresence(mask, checked, *type)) {
        return trace.fail(40, rc);
    }
    return trace.exit(0);
}

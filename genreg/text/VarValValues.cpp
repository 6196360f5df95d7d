// The variable/value form: looking a variable up and converting its value.
#include <genreg/GenRegVarVal.h>
#include <osse/Text.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::OperationTrace;

namespace {

// strtol and its kin: the whole text, not empty, and within the type's range.
template <typename Value, typename Convert>
bool convertWhole(const char* text, Value* value, Convert convert) noexcept {
    if (*text == '\0') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const Value converted = convert(text, &end);
    if (end == text || *end != '\0' || errno == ERANGE) {
        return false;
    }
    *value = converted;
    return true;
}

bool toLong(const char* text, long* value) noexcept {
    return convertWhole(text, value, [](const char* t, char** end) { return std::strtol(t, end, 10); });
}

bool toUnsignedLong(const char* text, unsigned long* value) noexcept {
    return convertWhole(text, value, [](const char* t, char** end) { return std::strtoul(t, end, 10); });
}

bool toDouble(const char* text, double* value) noexcept {
    return convertWhole(text, value, [](const char* t, char** end) { return std::strtod(t, end); });
}

}  // namespace

bool GenRegVarVal::lookUp(const char* variable, GenRegVarValRecord* record) noexcept {
    GenRegVarValRecord key;
    key.contains = VARVAL_HAS_PAIR;
    key.comment = key.value = nullptr;
    key.variable = const_cast<char*>(variable);  // a key is only read
    return variable != nullptr && Get(VARVAL_MATCH_VARIABLE, &key, record) == 0;
}

template <typename Value, typename Convert>
bool GenRegVarVal::getValue(const char* variable, Value* value, Convert convert) noexcept {
    GenRegVarValRecord record;
    return value != nullptr && lookUp(variable, &record) && convert(record.value, value);
}

bool GenRegVarVal::GetStringValue(const char* variable, const char** value) noexcept {
    OperationTrace trace{Function::GetStringValue};
    const bool found = getValue(variable, value, [this](const char* text, const char** result) {
        std::memcpy(stringValue_, text, std::strlen(text) + 1);
        *result = stringValue_;
        return true;
    });
    return trace.exit(found ? 1 : 0) != 0;
}

bool GenRegVarVal::GetBooleanValue(const char* variable, bool* value) noexcept {
    OperationTrace trace{Function::GetBooleanValue};
    return trace.exit(getValue(variable, value, ossStrToBoolean) ? 1 : 0) != 0;
}

bool GenRegVarVal::GetDoubleValue(const char* variable, double* value) noexcept {
    OperationTrace trace{Function::GetDoubleValue};
    return trace.exit(getValue(variable, value, toDouble) ? 1 : 0) != 0;
}

bool GenRegVarVal::GetSint64Value(const char* variable, long* value) noexcept {
    OperationTrace trace{Function::GetSint64Value};
    return trace.exit(getValue(variable, value, toLong) ? 1 : 0) != 0;
}

bool GenRegVarVal::GetSintValue(const char* variable, long* value) noexcept {
    OperationTrace trace{Function::GetSintValue};
    return trace.exit(getValue(variable, value, toLong) ? 1 : 0) != 0;
}

bool GenRegVarVal::GetUint64Value(const char* variable, unsigned long* value) noexcept {
    OperationTrace trace{Function::GetUint64Value};
    return trace.exit(getValue(variable, value, toUnsignedLong) ? 1 : 0) != 0;
}

bool GenRegVarVal::GetUintValue(const char* variable, unsigned long* value) noexcept {
    OperationTrace trace{Function::GetUintValue};
    return trace.exit(getValue(variable, value, toUnsignedLong) ? 1 : 0) != 0;
}

// The variable/value schema: looking a variable up and converting its value.
#include <genreg/GenRegVarVal.h>
#include <osse/Text.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "genreg/core/FunctionTrace.h"
#include "genreg/core/RecordBuffer.h"

using genreg::Function;

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
    return convertWhole(text, value, [](const char* t, char** end) {
        const double converted = std::strtod(t, end);
        if (errno == ERANGE && converted != 0 && std::isfinite(converted)) {
            errno = 0;  // less precise than others, and no less a double
        }
        return converted;
    });
}

}  // namespace

class genreg::VarValValues {
public:
    template <typename Value, typename Convert>
    static bool get(GenRegVarVal& registry, Function getter, const char* variable, Value* value,
                    Convert convert) noexcept {
        OperationTrace trace{getter};
        RecordBuffer key{"GenRegText"};
        RecordBuffer record{"GenRegText"};
        if (variable == nullptr || value == nullptr) {
            return false;
        }
        const unsigned long size = recordSize(registry);
        if (!key.allocate(size) || !record.allocate(size)) {
            (void)trace.fail(10, REG_NO_RECORD_BUFFER);
            return trace.exit(0) != 0;
        }
        auto* const sought = static_cast<GenRegVarValRecord*>(key.get());
        sought->contains = VARVAL_HAS_PAIR;
        sought->variable = const_cast<char*>(variable);  // a key is only read
        const char* text = nullptr;
        if (registry.Get(VARVAL_MATCH_VARIABLE, sought, record.get()) == 0) {
            text = static_cast<const GenRegVarValRecord*>(record.get())->value;
        }
        return trace.exit(text != nullptr && convert(text, value) ? 1 : 0) != 0;
    }

    static bool keepText(GenRegVarVal& registry, const char* text, const char** value) noexcept {
        const std::size_t length = std::strlen(text);
        if (length >= sizeof registry.stringValue_) {
            return false;
        }
        std::memcpy(registry.stringValue_, text, length + 1);
        *value = registry.stringValue_;
        return true;
    }

private:
    // A derived schema's records may be larger than those of this schema, which they begin with. What is no size at all
    // the look-up refuses.
    static unsigned long recordSize(GenRegVarVal& registry) noexcept {
        unsigned long size = 0;
        if (registry.getMaxRecordSize != nullptr) {
            (void)registry.getMaxRecordSize(&size);
        }
        return std::clamp<unsigned long>(size, sizeof(GenRegVarValRecord), REG_MAX_RECORD_SIZE);
    }
};

bool GenRegVarVal::GetStringValue(const char* variable, const char** value) noexcept {
    const auto keep = [this](const char* text, const char** kept) {
        return genreg::VarValValues::keepText(*this, text, kept);
    };
    return genreg::VarValValues::get(*this, Function::GetStringValue, variable, value, keep);
}

bool GenRegVarVal::GetBooleanValue(const char* variable, bool* value) noexcept {
    return genreg::VarValValues::get(*this, Function::GetBooleanValue, variable, value, ossStrToBoolean);
}

bool GenRegVarVal::GetDoubleValue(const char* variable, double* value) noexcept {
    return genreg::VarValValues::get(*this, Function::GetDoubleValue, variable, value, toDouble);
}

bool GenRegVarVal::GetSint64Value(const char* variable, long* value) noexcept {
    return genreg::VarValValues::get(*this, Function::GetSint64Value, variable, value, toLong);
}

bool GenRegVarVal::GetSintValue(const char* variable, long* value) noexcept {
    return genreg::VarValValues::get(*this, Function::GetSintValue, variable, value, toLong);
}

bool GenRegVarVal::GetUint64Value(const char* variable, unsigned long* value) noexcept {
    return genreg::VarValValues::get(*this, Function::GetUint64Value, variable, value, toUnsignedLong);
}

bool GenRegVarVal::GetUintValue(const char* variable, unsigned long* value) noexcept {
    return genreg::VarValValues::get(*this, Function::GetUintValue, variable, value, toUnsignedLong);
}

#include "genreg/core/FunctionTrace.h"

#include <osse/Log.h>
#include <osse/Time.h>

#include <cstring>
#include <iterator>

namespace genreg {
namespace {

constexpr OSSFunctionName FUNCTION_NAMES[] = {
#define GENREG_FUNCTION(number, enumerator, name) {FUNCTION_ID_BASE + (number), name},
#include "genreg/core/FunctionTable.inc"
#undef GENREG_FUNCTION
};

// Makes the names known when the library is loaded. A support library that knows them already has no such call.
struct NameRegistration {
    NameRegistration() noexcept {
        if (&ecfRegisterFunctionNames != nullptr) {
            ecfRegisterFunctionNames(FUNCTION_NAMES, std::size(FUNCTION_NAMES));
        }
    }
};
const NameRegistration nameRegistration;

}  // namespace

void FunctionTrace::enter() noexcept {
    _gtraceEntry(static_cast<unsigned int>(function_), ossThreadID());
}

void FunctionTrace::leave() noexcept {
    _gtraceExit(static_cast<unsigned int>(function_), ossThreadID(), result_);
}

void FunctionTrace::report(unsigned int probe, unsigned int code, unsigned int platformCode, unsigned int severity,
                           const char* text) noexcept {
    const auto id = static_cast<unsigned int>(function_);
    if (gtraceIsAttached() && gtraceIsEnabled()) {
        _gtraceErrorVar(id, ossThreadID(), probe, sizeof code, &code);
    }
    if (platformCode != 0) {
        ossLogRC(id, code, platformCode, probe, severity, text);
    } else {
        ossLog(id, code, probe, severity, text);
    }
}

unsigned int FunctionTrace::fail(unsigned int probe, unsigned int code, unsigned int platformCode,
                                 const char* text) noexcept {
    noteCause({static_cast<unsigned int>(function_), code, probe, platformCode});
    report(probe, code, platformCode, OSS_SEVERITY_ERROR, text);
    return exit(code);
}

unsigned int FunctionTrace::failMildly(unsigned int probe, unsigned int code) noexcept {
    noteCause({static_cast<unsigned int>(function_), code, probe, 0});
    report(probe, code, 0, OSS_SEVERITY_INFO, nullptr);
    return exit(code);
}

void FunctionTrace::ignore(unsigned int probe, unsigned int code, unsigned int platformCode) noexcept {
    report(probe, code, platformCode, OSS_SEVERITY_INFO, nullptr);
}

void FunctionTrace::noteInput(unsigned int probe, unsigned long size, const void* value) noexcept {
    _gtraceVar(static_cast<unsigned int>(function_), ossThreadID(), probe, size, value);
}

void FunctionTrace::errorText(unsigned int probe, const char* text) noexcept {
    if (gtraceIsAttached() && gtraceIsEnabled()) {
        _gtraceErrorVar(static_cast<unsigned int>(function_), ossThreadID(), probe, std::strlen(text), text);
    }
}

}  // namespace genreg

// Tracing and logging of one function: a line at its top and a word at each failure.
//
//   unsigned int GenRegFile::OpenReg(unsigned long op) noexcept {
//       FunctionTrace trace{Function::OpenReg};
//       ...
//           return trace.fail(10, REG_SCAN_OPEN);
//
// fail() logs function, code and probe, traces it and yields the code. ignore() does the same for a failure that the
// operation survives. With tracing detached the object costs two tests of a flag.
#pragma once

#include <osse/Trace.h>

#include "genreg/core/Cause.h"
#include "genreg/core/Functions.h"

namespace genreg {

// Whether every call is to be seen, those too that a shortcut would save.
[[nodiscard]] inline bool isTraced() noexcept {
    return gtraceIsAttached() && gtraceIsEnabled();
}

class FunctionTrace {
public:
    // A part of a function that is traced already: its failures are the function's, its entry and exit are not.
    struct Part {};

    explicit FunctionTrace(Function function) noexcept : function_(function) {
        if (isTraced()) {
            enter();
        }
    }
    FunctionTrace(Function function, Part /*tag*/) noexcept : function_(function), whole_(false) {}
    ~FunctionTrace() noexcept {
        if (isTraced() && whole_) {
            leave();
        }
    }
    FunctionTrace(const FunctionTrace&) = delete;
    FunctionTrace& operator=(const FunctionTrace&) = delete;

    // A failure point. The platform's code behind it, where there is one, goes along; text too.
    [[nodiscard]] unsigned int fail(unsigned int probe, unsigned int code, unsigned int platformCode = 0,
                                    const char* text = nullptr) noexcept;
    // One that callers expect: logged at the milder severity.
    [[nodiscard]] unsigned int failMildly(unsigned int probe, unsigned int code) noexcept;
    // A failure that does not decide the result.
    void ignore(unsigned int probe, unsigned int code, unsigned int platformCode = 0) noexcept;

    // A result that is no failure of this function: 0, an answer, or a code that a step below has logged already.
    [[nodiscard]] unsigned int exit(unsigned int result) noexcept {
        result_ = result;
        return result;
    }

    // What was worked on, and what went wrong; nothing when tracing is detached.
    void input(unsigned int probe, unsigned long size, const void* value) noexcept {
        if (isTraced()) {
            noteInput(probe, size, value);
        }
    }
    void errorText(unsigned int probe, const char* text) noexcept;

private:
    void enter() noexcept;
    void leave() noexcept;
    void noteInput(unsigned int probe, unsigned long size, const void* value) noexcept;
    void report(unsigned int probe, unsigned int code, unsigned int platformCode, unsigned int severity,
                const char* text) noexcept;

    Function function_;
    bool whole_ = true;
    unsigned int result_ = 0;
};

class OperationTrace : private OutermostCall, public FunctionTrace {
public:
    explicit OperationTrace(Function function) noexcept : FunctionTrace(function) {}
};

}  // namespace genreg

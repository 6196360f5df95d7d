// What the library answered, on its way to an exception of Python (genreg/_errors.py makes it).
#pragma once

#include <genreg/Cause.h>
#include <genreg/Codes.h>
#include <osse/Errors.h>

#include <string>
#include <utility>

// A code of the library, and what stands behind it. Made on the thread that was answered.
struct Outcome {
    unsigned int code = 0;
    GenRegCause cause = {};

    Outcome() = default;
    Outcome(unsigned int answered) : code(answered) {  // an answer is an outcome
        if (code != 0) {
            genregLastCause(&cause);
        }
    }

    // Somebody holds the lock, of the lock file or of the registry file itself: nothing was changed, and it may be
    // tried again.
    [[nodiscard]] bool isHeldUp() const {
        return code != 0 && (cause.code == REG_LOCK_HELD || cause.code == OSS_WOULD_BLOCK ||
                             (cause.code == REG_LOCK_FILE_FAILED && cause.platformCode == OSS_WOULD_BLOCK));
    }

    // There is no registry file.
    [[nodiscard]] bool isMissing() const {
        return code == REG_MISSING || (code != 0 && (cause.code == REG_MISSING || cause.platformCode == REG_MISSING));
    }
};

// The path is filled in where files are known by it.
struct Failed {
    Outcome outcome;
    std::string path = {};
    std::string message = {};  // empty: the sentence of the code

    static Failed refused(std::string why) {
        Failed failed;
        failed.outcome.code = failed.outcome.cause.code = REG_RECORD_REFUSED;
        failed.message = std::move(why);
        return failed;
    }
};

// For operations of several calls: throws what is no success.
inline void check(unsigned int code) {
    if (code != 0) {
        throw Failed{Outcome(code)};
    }
}

#include "base/Answers.h"

#include <fmt/core.h>
#include <genreg/Codes.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>

#include "base/DiskFiles.h"
#include "base/Program.h"
#include "base/Text.h"
#include "system/System.h"

namespace tool {

Failure answer(std::string kind, int exitStatus, unsigned int code, const std::string& path, const std::string& message,
               std::string hint) {
    Failure failure;
    failure.kind = std::move(kind);
    failure.exitStatus = exitStatus;
    failure.code = code;
    failure.path = path;
    failure.message = fmt::format("{}: {}", printable(path), message);
    failure.hint = std::move(hint);
    return failure;
}

Failure invalid(unsigned int code, std::string message, std::string hint) {
    Failure failure;
    failure.kind = "invalid";
    failure.exitStatus = EXIT_INVALID;
    failure.code = code;
    failure.message = std::move(message);
    failure.hint = std::move(hint);
    return failure;
}

void refuseControl(std::string_view what, std::string_view text) {
    const auto* const found = std::find_if(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7f;
    });
    if (found == text.end()) {
        return;
    }
    if (*found == '\n' || *found == '\r') {
        throw invalid(REG_RECORD_REFUSED, fmt::format("the {} holds a line break, which would end the line", what),
                      "write it as one line");
    }
    throw invalid(REG_RECORD_REFUSED,
                  fmt::format("the {} holds the unprintable byte 0x{:02x}", what, static_cast<unsigned char>(*found)),
                  "leave the byte out");
}

void needFile(const std::string& path, const std::string& doing) {
    try {
        (void)judgeFile(path, doing, true);
    } catch (Failure& failure) {
        if (failure.code == REG_MISSING) {
            failure.hint += "; an add creates a missing file";
        }
        throw;
    }
}

Failure hiddenBytes(const std::string& path, const std::string& doing, std::size_t line) {
    return answer("invalid", EXIT_INVALID, 0, path,
                  fmt::format("cannot {}: line {} holds a NUL byte, and what follows it would be lost", doing, line),
                  "take the NUL byte out of the file first");
}

void nameFile(Failure& failure, const std::string& path, const std::string& doing) {
    failure.path = path;
    failure.message = fmt::format("{}: cannot {}: {}", printable(path), doing, failure.message);
}

Failure changedMeanwhile(const std::string& path, const std::string& name, const std::string& look) {
    return answer("changed", EXIT_CONFLICT, 0, path,
                  fmt::format("{} was changed by somebody else meanwhile; nothing was written", printable(name)),
                  fmt::format("look at it ({}), then decide anew", look));
}

Failure otherValue(const std::string& path, const std::string& name, const std::string& found,
                   const std::string& expected, const std::string& look) {
    return answer("changed", EXIT_CONFLICT, 0, path,
                  fmt::format("{} is {}, not {}; nothing was changed", printable(name), found, expected),
                  fmt::format("look at it ({}), then decide anew", look));
}

bool attemptPatiently(const Context& context, const std::string& path, const std::string& what,
                      const std::function<std::optional<bool>()>& attempt) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const double seconds = context.options.waitSeconds;
    for (;;) {
        if (const auto changed = attempt()) {
            return *changed;
        }
        if (std::chrono::duration<double>(Clock::now() - start).count() >= seconds) {
            throw answer("busy", EXIT_LOCKED, 0, path,
                         fmt::format("others keep changing {}; {}; nothing was written", what,
                                     seconds > 0 ? fmt::format("gave up after {:g} s", seconds) : "did not wait"),
                         "--wait 60");
        }
    }
}

void confirm(const std::string& path, const std::string& what) {
    if (!isTerminal(stdin) || !isTerminal(stderr)) {
        throw usageFailure(fmt::format("{}: {}: there is nobody to ask", printable(path), what),
                           "run it at a terminal, which asks");
    }
    toStandardError(fmt::format("{}: {}: {}? [y/N] ", program().name, printable(path), what));
    std::string reply;
    std::getline(std::cin, reply);
    if (reply != "y" && reply != "yes") {
        throw answer("refused", EXIT_NEGATIVE, 0, path, "nothing was changed", "");
    }
}

}  // namespace tool

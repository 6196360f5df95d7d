// A failure as the user hears of it: what, where, why and what next, and the exit status that scripts see.
#pragma once

#include <exception>
#include <string>

namespace tool {

// Exit statuses; "unchanged" is no failure, and no failure is 0.
constexpr int EXIT_DONE = 0;
constexpr int EXIT_NEGATIVE = 1;  // not found, differs
constexpr int EXIT_USAGE = 2;
constexpr int EXIT_UNREADABLE = 3;
constexpr int EXIT_LOCKED = 4;
constexpr int EXIT_CONFLICT = 5;
constexpr int EXIT_INVALID = 6;
constexpr int EXIT_DAMAGED = 7;
constexpr int EXIT_WRITE_FAILED = 8;
constexpr int EXIT_DEFECT = 70;

struct Failure : std::exception {
    std::string kind;  // one word for programs, the same for the same cause
    int exitStatus = EXIT_DEFECT;
    unsigned int code = 0;  // of the library; 0 when none is behind it
    std::string operation;  // the command; filled in where failures are reported
    std::string path;
    std::string message;
    std::string hint;    // what to do next; may be empty
    std::string detail;  // where inside it happened, for -v

    [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }
};

[[nodiscard]] Failure usageFailure(std::string message, std::string hint = {});

// What the library just answered to the calling thread while it was asked to do something ("set PORT"). The innermost
// cause decides kind, exit status and words.
[[nodiscard]] Failure libraryFailure(unsigned int code, std::string path, const std::string& doing);

// An error of the system outside the library.
[[nodiscard]] Failure systemFailure(int systemError, std::string path, const std::string& doing);

}  // namespace tool

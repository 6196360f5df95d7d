// What each code of the library means to an administrator: its kind, the exit status it leads to, and the remedy.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// What became of the file that was to be changed.
enum class FileAfter { UNTOLD, KEPT, REPLACED, UNKNOWN };

struct CodeClass {
    std::string_view kind;
    int exitStatus;
    std::string_view operations;  // which calls answer it
    std::string_view advice;
    bool wrapper;  // stands in for the code of a step inside, which then decides
    FileAfter file;
};

// The class of a code of the library, or of an error of the system.
[[nodiscard]] const CodeClass& classOf(unsigned int code);

// What a message says of the file when the code's sentence does not: "the file was not replaced". Empty: nothing.
[[nodiscard]] std::string_view fileAfter(unsigned int code);

// Whether the code is a system error, and its errno.
[[nodiscard]] bool isSystemError(unsigned int code, int* systemError);

// What to do about an error of the system.
[[nodiscard]] std::string systemAdvice(int systemError);

}  // namespace tool

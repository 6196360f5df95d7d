// What each code of the library means to an administrator: its kind, the exit status it leads to, and the remedy.
#pragma once

#include <string>
#include <string_view>

namespace tool {

struct CodeClass {
    std::string_view kind;
    int exitStatus;
    std::string_view operations;  // which calls answer it
    std::string_view advice;
    bool wrapper;   // stands in for the code of a step inside, which then decides
    bool replaced;  // the change had been committed when it came up
};

// The class of a code of the library, or of an error of the system.
[[nodiscard]] const CodeClass& classOf(unsigned int code);

// Whether the code is a system error, and its errno.
[[nodiscard]] bool isSystemError(unsigned int code, int* systemError);

// What to do about an error of the system.
[[nodiscard]] std::string systemAdvice(int systemError);

}  // namespace tool

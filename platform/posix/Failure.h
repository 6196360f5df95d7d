// The result of a system call as a code.
#pragma once

#include <osse/Errors.h>

#include <cerrno>

namespace posix {

// 0, or the code of errno when the call failed.
[[nodiscard]] inline unsigned int resultOf(long callResult) noexcept {
    return callResult != -1 ? 0 : ossErrorMapSystem(errno);
}

}  // namespace posix

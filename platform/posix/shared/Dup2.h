// For systems that mark a descriptor in a call of its own.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace platform {

// Lets a descriptor stand for what `from` stands for, close-on-exec; `from` stays open.
inline int replaceDescriptor(int from, int descriptor) noexcept {
    return retried([&] { return ::dup2(from, descriptor); }) == -1 ? -1 : ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

}  // namespace platform

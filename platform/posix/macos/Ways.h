// How macOS does what other systems do in another way: the end of platform/System.h.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

#include "../shared/Dup2.h"
#include "../shared/Flock.h"

namespace platform {

// The value of the variable; null where it is not set, or this program runs with rights which are not its user's.
inline const char* ownEnvironment(const char* name) noexcept {
    return ::issetugid() != 0 ? nullptr : ::getenv(name);
}

inline unsigned long threadNumber() noexcept {
    return ::pthread_mach_thread_np(::pthread_self());
}

// Until what was written through the descriptor is on the medium. A plain sync leaves the bytes in the drive's own
// memory; not every file system knows the full one.
inline int syncToMedium(int descriptor) noexcept {
    if (retried([&] { return ::fcntl(descriptor, F_FULLFSYNC); }) != -1) {
        return 0;
    }
    return syncPlainly(descriptor);
}

}  // namespace platform

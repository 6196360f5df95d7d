// How a system does it of which no more is known than what all of them have: the end of platform/System.h. Locks are
// flock's. On Linux those and classic record locks do not see each other.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

#include "../shared/Dup2.h"
#include "../shared/Flock.h"
#include "../shared/Pin.h"

namespace platform {

// The value of the variable; null where it is not set, or this program runs with rights which are not its user's.
inline const char* ownEnvironment(const char* name) noexcept {
    return ::getuid() == ::geteuid() && ::getgid() == ::getegid() ? ::getenv(name) : nullptr;
}

inline unsigned long threadNumber() noexcept {
    return static_cast<unsigned long>(::pthread_self());
}

// Whether no other thread of this process runs; where nobody can tell, no.
inline bool isOnlyThread() noexcept {
    return false;
}

inline timespec modifiedAt(const struct stat& status) noexcept {
    return status.st_mtim;
}
inline timespec changedAt(const struct stat& status) noexcept {
    return status.st_ctim;
}

// There is no way to tell that every system has.
inline bool isOwnFileSystem(int /*descriptor*/) noexcept {
    return false;
}

// Until what was written through the descriptor is on the medium.
inline int syncToMedium(int descriptor) noexcept {
    return syncPlainly(descriptor);
}

}  // namespace platform

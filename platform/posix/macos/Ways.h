// How macOS does what other systems do in another way: the end of platform/System.h.
//
// Locks are flock's. That system's public headers have none of the record locks that belong to an open file, which
// Linux has. flock's belong to the open file, and exclude threads like processes. The kernel keeps them in one list
// with classic record locks, so that each refuses the other, in one process too. Left over: who asks for a classic lock
// that flock's keeps from him is told no holder (l_pid is -1).
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "../shared/Dup2.h"
#include "../shared/Flock.h"
#include "../shared/Pin.h"

namespace platform {

// The value of the variable; null where it is not set, or this program runs with rights which are not its user's.
inline const char* ownEnvironment(const char* name) noexcept {
    return ::issetugid() != 0 ? nullptr : ::getenv(name);
}

inline unsigned long threadNumber() noexcept {
    return ::pthread_mach_thread_np(::pthread_self());
}

// Whether no other thread of this process runs; where nobody can tell, no.
inline bool isOnlyThread() noexcept {
    return false;
}

inline timespec modifiedAt(const struct stat& status) noexcept {
    return status.st_mtimespec;
}
inline timespec changedAt(const struct stat& status) noexcept {
    return status.st_ctimespec;
}

inline bool isOwnFileSystem(int descriptor) noexcept {
    struct statfs status;
    return retried([&] { return ::fstatfs(descriptor, &status); }) != -1 && (status.f_flags & MNT_LOCAL) != 0;
}

// Until what was written through the descriptor is on the medium: a plain sync there leaves it to the drive when and in
// which order it writes what is in its own memory. Only where the file system does not know the full one is the plain
// one as much as there is; a full one that fails has failed.
inline int syncToMedium(int descriptor) noexcept {
    if (retried([&] { return ::fcntl(descriptor, F_FULLFSYNC); }) != -1) {
        return 0;
    }
    const bool unknown = errno == ENOTSUP || errno == EOPNOTSUPP || errno == EINVAL || errno == ENOTTY;
    return unknown ? syncPlainly(descriptor) : -1;
}

}  // namespace platform

// How Linux does what other systems do in another way: the end of platform/System.h.
#pragma once

#include <fcntl.h>
#include <sys/single_threaded.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace platform {

// Lets a descriptor stand for what `from` stands for, close-on-exec; `from` stays open.
inline int replaceDescriptor(int from, int descriptor) noexcept {
    return retried([&] { return ::dup3(from, descriptor, O_CLOEXEC); }) == -1 ? -1 : 0;
}

// The value of the variable; null where it is not set, or this program runs with rights which are not its user's.
inline const char* ownEnvironment(const char* name) noexcept {
    return ::secure_getenv(name);
}

inline unsigned long threadNumber() noexcept {
    return static_cast<unsigned long>(::gettid());
}

// Whether no other thread of this process runs; where nobody can tell, no.
inline bool isOnlyThread() noexcept {
    return __libc_single_threaded != 0;
}

// Until what was written through the descriptor is on the medium.
inline int syncToMedium(int descriptor) noexcept {
    return syncPlainly(descriptor);
}

// --- locks that belong to the open file -------------------------------------------------------------------------

inline struct flock wholeFile(FileLock lock) noexcept {
    struct flock request = {};
    request.l_type = lock == FileLock::None ? F_UNLCK : lock == FileLock::Shared ? F_RDLCK : F_WRLCK;
    request.l_whence = SEEK_SET;
    return request;
}

inline int lockWholeFile(int descriptor, FileLock lock, bool wait) noexcept {
    struct flock request = wholeFile(lock);
    const int result = retried([&] { return ::fcntl(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &request); });
    if (result == -1 && errno == EACCES) {
        errno = EAGAIN;  // either may tell of a conflicting lock
    }
    return result;
}

inline int isLockedElsewhere(int descriptor, bool* locked) noexcept {
    struct flock request = wholeFile(FileLock::Exclusive);
    if (retried([&] { return ::fcntl(descriptor, F_OFD_GETLK, &request); }) == -1) {
        return -1;
    }
    *locked = request.l_type != F_UNLCK;
    return 0;
}

}  // namespace platform

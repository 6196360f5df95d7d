// Locks that belong to the open file, by flock: systems differ in whether classic record locks conflict with them.
#pragma once

#include <sys/file.h>

#include <cerrno>

namespace platform {

inline int lockWholeFile(int descriptor, FileLock lock, bool wait) noexcept {
    const int kind = lock == FileLock::None ? LOCK_UN : lock == FileLock::Shared ? LOCK_SH : LOCK_EX;
    return retried([&] { return ::flock(descriptor, wait ? kind : kind | LOCK_NB); });
}

// Such a lock has no parts: it is that of the whole file, or none.
inline int lockTail(int descriptor, FileLock lock, unsigned long first, bool wait) noexcept {
    if (first == 0) {
        return lockWholeFile(descriptor, lock, wait);
    }
    errno = ENOTSUP;
    return -1;
}
inline int isByteRefused(int /*descriptor*/, FileLock /*lock*/, unsigned long /*byte*/, bool* /*refused*/) noexcept {
    errno = ENOTSUP;
    return -1;
}

// Asks by taking the lock for a moment, since no call only asks. The shared one is tried first: who holds the file
// exclusively, which is when people ask, is found without anything being taken. Where somebody may share it, the
// exclusive one is tried, and is there for that moment only if nobody else had any lock. Left over: an attempt of
// somebody else's that does not wait fails when it falls into that moment; one that waits gets its lock after it.
inline int isLockedElsewhere(int descriptor, bool* locked) noexcept {
    const bool free = lockWholeFile(descriptor, FileLock::Shared, false) == 0 &&
                      lockWholeFile(descriptor, FileLock::Exclusive, false) == 0;
    if (!free && errno != EWOULDBLOCK) {
        return -1;
    }
    *locked = !free;
    // A child forked meanwhile has a copy of the descriptor, and would keep what is only closed.
    return lockWholeFile(descriptor, FileLock::None, false);
}

}  // namespace platform

// What the rooms of the platform share of the system's calls. Header only: each library compiles its own copy, so that
// each can be replaced alone. Like the system's calls, functions answer -1 and set errno.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace platform {

constexpr int FIRST_FREE_DESCRIPTOR = 3;  // those below are the standard streams

// Keeps errno as it was for the caller of the scope.
class ErrnoKeeper {
public:
    ErrnoKeeper() noexcept : saved_(errno) {}
    ~ErrnoKeeper() noexcept { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int saved_;
};

// Makes the call again as long as a signal interrupts it.
template <typename Call>
auto retried(Call call) noexcept {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

// An interrupted close is never repeated: the descriptor is gone, and its number may be another thread's by now.
inline int closeOnce(int descriptor) noexcept {
    return ::close(descriptor) == 0 || errno == EINTR ? 0 : -1;
}

// Closes on a failure path, where the errno that matters is the earlier one.
inline void closeQuietly(int descriptor) noexcept {
    const ErrnoKeeper keeper;
    (void)closeOnce(descriptor);
}

// Opens close-on-exec, at a descriptor that is none of the standard streams'.
inline int openHigh(const char* path, int flags, unsigned long permissions = 0) noexcept {
    const int low =
        retried([&] { return ::open(path, flags | O_CLOEXEC | O_NOCTTY, static_cast<mode_t>(permissions)); });
    if (low == -1 || low >= FIRST_FREE_DESCRIPTOR) {
        return low;
    }
    const int high = ::fcntl(low, F_DUPFD_CLOEXEC, FIRST_FREE_DESCRIPTOR);
    closeQuietly(low);
    return high;
}

// Opens what exists, or creates it fresh, never through a link. The two are kept apart: an open that may create follows
// a link that leads nowhere, and is refused another's file in a sticky folder of everybody's, even to root.
inline int openOrCreate(const char* path, int flags, unsigned long permissions) noexcept {
    constexpr int MOST_TRIES = 3;  // more is no race between the two, but a link that leads nowhere
    for (int tries = 1;; ++tries) {
        const int opened = openHigh(path, flags);
        if (opened != -1 || errno != ENOENT) {
            return opened;
        }
        const int created = openHigh(path, flags | O_CREAT | O_EXCL | O_NOFOLLOW, permissions);
        if (created != -1 || errno != EEXIST || tries == MOST_TRIES) {
            return created;
        }
    }
}

// Lets a descriptor stand for what `from` stands for, close-on-exec; `from` stays open.
inline int replaceDescriptor(int from, int descriptor) noexcept {
#if defined(__APPLE__)
    return ::dup2(from, descriptor) == -1 ? -1 : ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
#else
    return retried([&] { return ::dup3(from, descriptor, O_CLOEXEC); }) == -1 ? -1 : 0;
#endif
}

// The value of the variable, or null when it is unset, empty, or set for a program that runs with rights which are not
// its user's.
inline const char* trustedEnvironment(const char* name) noexcept {
#if defined(__APPLE__)
    const char* value = ::issetugid() != 0 ? nullptr : ::getenv(name);
#else
    const char* value = ::secure_getenv(name);
#endif
    return value != nullptr && *value != '\0' ? value : nullptr;
}

// --- locks that belong to the open file -------------------------------------------------------------------------

enum class FileLock { None, Shared, Exclusive };

#if defined(__APPLE__)

inline int lockWholeFile(int descriptor, FileLock lock, bool wait) noexcept {
    const int kind = lock == FileLock::None ? LOCK_UN : lock == FileLock::Shared ? LOCK_SH : LOCK_EX;
    return retried([&] { return ::flock(descriptor, wait ? kind : kind | LOCK_NB); });
}

// Asks by taking the lock for a moment: there is no call that only asks.
inline int isLockedElsewhere(int descriptor, bool* locked) noexcept {
    if (lockWholeFile(descriptor, FileLock::Exclusive, false) == 0) {
        *locked = false;
        return lockWholeFile(descriptor, FileLock::None, false);
    }
    *locked = true;
    return errno == EWOULDBLOCK ? 0 : -1;
}

#else

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

#endif

}  // namespace platform

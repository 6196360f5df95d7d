// What the rooms of the platform share of the system's calls. Header only: each library compiles its own copy, so that
// each can be replaced alone. Like the system's calls, functions answer -1 and set errno. What each system does in its
// own way is in its Ways.h, which this header ends with.
#pragma once

#include <fcntl.h>
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

// As far as the system's own sync goes.
inline int syncPlainly(int descriptor) noexcept {
    return retried([&] { return ::fsync(descriptor); });
}

enum class FileLock { None, Shared, Exclusive };  // a lock that belongs to the open file

}  // namespace platform

// The system that is built for, found by the include path.
#include <Ways.h>

namespace platform {

// The value of the variable, or null when it is unset, empty, or set for a program that runs with rights which are not
// its user's.
inline const char* trustedEnvironment(const char* name) noexcept {
    const char* value = ownEnvironment(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

}  // namespace platform

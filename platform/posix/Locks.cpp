#include "../System.h"
#include "Failure.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr unsigned long MONITOR_LOCK_PERMISSIONS = 0644;

}  // namespace

// Closing the descriptor costs this process any classic lock that it has on the file; the locks of file handles stay.
unsigned int isLocked(const char* path, bool* locked) noexcept {
    const int descriptor = platform::openHigh(path, O_RDONLY | O_NONBLOCK);
    if (descriptor == -1) {
        if (errno != ENOENT) {
            return ossErrorMapSystem(errno);
        }
        *locked = false;
        return 0;
    }
    const unsigned int code = resultOf(platform::isLockedElsewhere(descriptor, locked));
    platform::closeQuietly(descriptor);
    return code;
}

// Closing any descriptor of the file would cost this process, should it be the monitor, its own classic lock on it. So
// the numbers of the standard streams are taken before the file is opened, and what was opened is never closed.
unsigned int openMonitorLock(const char* path, int* descriptor) noexcept {
    int taken[platform::FIRST_FREE_DESCRIPTOR];
    int count = 0;
    int filler = platform::retried([] { return ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    while (filler != -1 && filler < platform::FIRST_FREE_DESCRIPTOR) {
        taken[count++] = filler;
        filler = ::dup(filler);
    }
    if (filler != -1) {
        platform::closeQuietly(filler);
    }
    *descriptor = platform::retried([&] {
        return ::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, static_cast<mode_t>(MONITOR_LOCK_PERMISSIONS));
    });
    const unsigned int code = resultOf(*descriptor);
    while (count > 0) {
        platform::closeQuietly(taken[--count]);
    }
    return code;
}

unsigned int recordLockHolder(int descriptor, long* holder) noexcept {
    struct flock request = {};
    request.l_type = F_WRLCK;
    request.l_whence = SEEK_SET;
    request.l_pid = -1;
    if (platform::retried([&] { return ::fcntl(descriptor, F_GETLK, &request); }) == -1) {
        return ossErrorMapSystem(errno);
    }
    *holder = request.l_type == F_UNLCK ? 0 : request.l_pid;
    return 0;
}

}  // namespace posix

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

unsigned int openMonitorLock(const char* path, int* descriptor) noexcept {
    *descriptor = platform::openHigh(path, O_RDWR | O_CREAT, MONITOR_LOCK_PERMISSIONS);
    return resultOf(*descriptor);
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

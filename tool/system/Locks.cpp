// Classic record locks: they belong to a process, and name it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "system/System.h"

namespace tool {
namespace {

struct flock wholeFile(short type) {
    struct flock request {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    return request;
}

}  // namespace

ClassicLock classicLockOf(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(path.c_str(), "re"), std::fclose);
    struct flock lock = wholeFile(F_WRLCK);
    if (stream == nullptr || fcntl(fileno(stream.get()), F_GETLK, &lock) != 0) {
        std::error_code error;
        return {std::filesystem::exists(path, error) ? std::nullopt : std::optional(false), 0};
    }
    // A lock that belongs to an open file names no process.
    return {lock.l_type != F_UNLCK, lock.l_type != F_UNLCK && lock.l_pid > 0 ? lock.l_pid : 0};
}

OwnClassicLock::~OwnClassicLock() {
    if (descriptor_ >= 0) {
        (void)close(descriptor_);
    }
}

int OwnClassicLock::open(const char* path, mode_t permissions) {
    descriptor_ = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, permissions);
    return descriptor_ >= 0 ? 0 : errno;
}

int OwnClassicLock::take(long* holder) {
    struct flock request = wholeFile(F_WRLCK);
    if (fcntl(descriptor_, F_SETLK, &request) == 0) {
        return 0;
    }
    const int error = errno == EACCES ? EAGAIN : errno;  // either may tell of a conflicting lock
    request = wholeFile(F_WRLCK);
    const bool asked = fcntl(descriptor_, F_GETLK, &request) == 0;
    *holder = asked && request.l_type != F_UNLCK ? request.l_pid : 0;
    return error;
}

}  // namespace tool

// Files by path.
#include "../System.h"
#include "Failure.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr unsigned long PRIVATE = 0600;

}  // namespace

bool exists(const char* path) noexcept {
    struct stat status;
    return ::lstat(path, &status) == 0 || errno != ENOENT;
}

long readLink(const char* path, char* target, std::size_t size) noexcept {
    if (size == 0) {
        return -1;
    }
    const ssize_t length = ::readlink(path, target, size - 1);
    target[length < 0 ? 0 : length] = '\0';
    return length;
}

unsigned int createFresh(const char* path, bool appending, int* descriptor) noexcept {
    const int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | (appending ? O_APPEND : 0);
    *descriptor = platform::openHigh(path, flags, PRIVATE);
    return resultOf(*descriptor);
}

// A link is linked itself, not what it leads to; plain link() leaves that to the system.
unsigned int linkFile(const char* from, const char* to) noexcept {
    return resultOf(::linkat(AT_FDCWD, from, AT_FDCWD, to, 0));
}

// Not blocking, so that a pipe put in the file's place cannot hold up the caller; files know no difference.
unsigned int openToAppend(const char* path, int* descriptor) noexcept {
    *descriptor = platform::openHigh(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK);
    return resultOf(*descriptor);
}

unsigned int openToRead(const char* path, int* descriptor) noexcept {
    *descriptor = platform::openHigh(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return resultOf(*descriptor);
}

unsigned int openToPatch(const char* path, int* descriptor) noexcept {
    *descriptor = platform::openHigh(path, O_RDWR | O_NOFOLLOW | O_NONBLOCK);
    return resultOf(*descriptor);
}

bool isSameFile(int descriptor, const char* path) noexcept {
    struct stat open;
    struct stat named;
    return ::fstat(descriptor, &open) == 0 && ::stat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

unsigned int checkNamed(int descriptor, const char* path) noexcept {
    struct stat open;
    struct stat named;
    const int unread = ::fstat(descriptor, &open) != 0 ? -1 : ::lstat(path, &named);
    if (unread != 0) {
        return resultOf(unread);
    }
    const bool same = open.st_dev == named.st_dev && open.st_ino == named.st_ino;
    return same ? 0 : ossErrorMapSystem(ELOOP);
}

}  // namespace posix

// Open files.
#include "../System.h"
#include "Failure.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr unsigned long PERMISSION_BITS = 07777;

unsigned int tell(int result, const struct stat& found, FileStatus* status) noexcept {
    if (result != 0) {
        return ossErrorMapSystem(errno);
    }
    *status = FileStatus{.size = static_cast<unsigned long>(found.st_size),
                         .permissions = found.st_mode & PERMISSION_BITS,
                         .device = static_cast<unsigned long>(found.st_dev),
                         .inode = static_cast<unsigned long>(found.st_ino),
                         .owner = found.st_uid,
                         .group = found.st_gid,
                         .links = found.st_nlink,
                         .regular = S_ISREG(found.st_mode)};
    return 0;
}

}  // namespace

unsigned int statusOf(int descriptor, FileStatus* status) noexcept {
    struct stat found;
    const int result = ::fstat(descriptor, &found);
    return tell(result, found, status);
}

unsigned int statusAt(const char* path, FileStatus* status) noexcept {
    struct stat found;
    const int result = ::lstat(path, &found);
    return tell(result, found, status);
}

unsigned int closeDescriptor(int descriptor) noexcept {
    return resultOf(platform::closeOnce(descriptor));
}

unsigned int readAt(int descriptor, void* buffer, std::size_t size, unsigned long offset, std::size_t* got) noexcept {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t part = platform::retried([&] {
            return ::pread(descriptor, static_cast<char*>(buffer) + done, size - done,
                           static_cast<off_t>(offset + done));
        });
        if (part == -1) {
            return ossErrorMapSystem(errno);
        }
        if (part == 0) {
            break;
        }
        done += static_cast<std::size_t>(part);
    }
    *got = done;
    return 0;
}

unsigned int writeAt(int descriptor, const void* bytes, std::size_t size, unsigned long offset) noexcept {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t part = platform::retried([&] {
            return ::pwrite(descriptor, static_cast<const char*>(bytes) + done, size - done,
                            static_cast<off_t>(offset + done));
        });
        if (part <= 0) {
            return ossErrorMapSystem(part == 0 ? ENOSPC : errno);
        }
        done += static_cast<std::size_t>(part);
    }
    return 0;
}

unsigned int writeOnce(int descriptor, const void* bytes, std::size_t size) noexcept {
    const ssize_t written = platform::retried([&] { return ::write(descriptor, bytes, size); });
    if (written != -1 && static_cast<std::size_t>(written) != size) {
        errno = ENOSPC;
        return ossErrorMapSystem(ENOSPC);
    }
    return resultOf(written);
}

bool writeAll(int descriptor, const void* bytes, std::size_t size) noexcept {
    const auto* at = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t part = platform::retried([&] { return ::write(descriptor, at, size); });
        if (part <= 0) {
            errno = part == 0 ? ENOSPC : errno;
            return false;
        }
        at += part;
        size -= static_cast<std::size_t>(part);
    }
    return true;
}

unsigned int truncateTo(int descriptor, unsigned long size) noexcept {
    return resultOf(platform::retried([&] { return ::ftruncate(descriptor, static_cast<off_t>(size)); }));
}

}  // namespace posix

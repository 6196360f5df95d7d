// How Linux does what other systems do in another way: the end of platform/System.h.
#pragma once

#include <fcntl.h>
#include <sys/single_threaded.h>
#include <sys/vfs.h>
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

// --- versions of files ------------------------------------------------------------------------------------------

inline timespec modifiedAt(const struct stat& status) noexcept {
    return status.st_mtim;
}
inline timespec changedAt(const struct stat& status) noexcept {
    return status.st_ctim;
}

// A descriptor that is good for nothing else.
inline int openToPin(const char* path) noexcept {
    return openHigh(path, O_PATH | O_NOFOLLOW);
}

// By what is known of each: one that is not in the list may belong to other machines too.
inline bool isOwnFileSystem(int descriptor) noexcept {
    constexpr unsigned long OWN[] = {0xef53 /* ext2, 3, 4 */, 0x58465342 /* xfs */,  0x9123683e /* btrfs */,
                                     0x01021994 /* tmpfs */,  0xf2f52010 /* f2fs */, 0x794c7630 /* overlay */,
                                     0x858458f6 /* ramfs */,  0x2fc12fc1 /* zfs */,  0xca451a4e /* bcachefs */};
    struct statfs status;
    if (retried([&] { return ::fstatfs(descriptor, &status); }) == -1) {
        return false;
    }
    for (const unsigned long type : OWN) {
        if (static_cast<unsigned long>(status.f_type) == type) {
            return true;
        }
    }
    return false;
}

// --- locks that belong to the open file -------------------------------------------------------------------------

inline struct flock lockFrom(FileLock lock, unsigned long first, unsigned long count) noexcept {
    struct flock request = {};
    request.l_type = lock == FileLock::None ? F_UNLCK : lock == FileLock::Shared ? F_RDLCK : F_WRLCK;
    request.l_whence = SEEK_SET;
    request.l_start = static_cast<off_t>(first);
    request.l_len = static_cast<off_t>(count);
    return request;
}

// The bytes from the first one on; that a lock covers them says nothing of the file having them.
inline int lockTail(int descriptor, FileLock lock, unsigned long first, bool wait) noexcept {
    struct flock request = lockFrom(lock, first, 0);
    const int result = retried([&] { return ::fcntl(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &request); });
    if (result == -1 && errno == EACCES) {
        errno = EAGAIN;  // either may tell of a conflicting lock
    }
    return result;
}

inline int lockWholeFile(int descriptor, FileLock lock, bool wait) noexcept {
    return lockTail(descriptor, lock, 0, wait);
}

// Whether another open file's lock stands in the way of this one.
inline int isRefusedElsewhere(int descriptor, struct flock request, bool* refused) noexcept {
    if (retried([&] { return ::fcntl(descriptor, F_OFD_GETLK, &request); }) == -1) {
        return -1;
    }
    *refused = request.l_type != F_UNLCK;
    return 0;
}

inline int isByteRefused(int descriptor, FileLock lock, unsigned long byte, bool* refused) noexcept {
    return isRefusedElsewhere(descriptor, lockFrom(lock, byte, 1), refused);
}

inline int isLockedElsewhere(int descriptor, bool* locked) noexcept {
    return isRefusedElsewhere(descriptor, lockFrom(FileLock::Exclusive, 0, 0), locked);
}

}  // namespace platform

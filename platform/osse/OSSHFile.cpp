#include <osse/Errors.h>
#include <osse/OSSHFile.h>

#include "../System.h"
#include "HandleTable.h"

namespace {

unsigned int systemFailure() noexcept {
    return ossErrorMapSystem(errno);
}

// -1 for an access that is none. Reading does not wait for a writer when a pipe stands in the file's place; files know
// no difference.
int openFlags(unsigned int access) noexcept {
    switch (access) {
        case OSS_ACCESS_READ:
            return O_RDONLY | O_NONBLOCK;
        case OSS_ACCESS_READ_WRITE:
            return O_RDWR | O_CREAT | O_NOFOLLOW;
        case OSS_ACCESS_CREATE:
            return O_RDWR | O_CREAT | O_APPEND;
        default:
            return -1;
    }
}

// Opens and enters the descriptor. A child forked between the two would keep a copy that nobody closes, and with it a
// lock taken later: then the open is made anew.
int openHeld(const OSSFileOpenRequest& request, int flags) noexcept {
    for (;;) {
        unsigned long forks = 0;
        if (!osse::countForks(&forks)) {
            return -1;
        }
        // Not blocking, so that a pipe put in the file's place cannot hold up the caller; files know no difference.
        const int opening = (flags & ~O_CREAT) | O_NONBLOCK;
        const int descriptor = (flags & O_CREAT) != 0
                                   ? platform::openOrCreate(request.path, opening, request.permissions)
                                   : platform::openHigh(request.path, opening);
        if (descriptor == -1) {
            return -1;
        }
        const osse::Held held = osse::holdDescriptor(descriptor, &forks);
        if (held == osse::Held::Yes) {
            return descriptor;
        }
        platform::closeQuietly(descriptor);
        if (held == osse::Held::Failed) {
            return -1;
        }
    }
}

}  // namespace

unsigned int OSSHFile::open(const OSSFileOpenRequest* request) noexcept {
    descriptor_ = -1;
    if (request == nullptr || request->path == nullptr) {
        return OSS_NULL_POINTER;
    }
    const int flags = openFlags(request->access);
    if (request->version != OSS_REQUEST_VERSION || request->disposition != OSS_OPEN_PLAIN || request->reserved != 0 ||
        flags == -1) {
        return ossErrorMapSystem(EINVAL);
    }
    const int descriptor = openHeld(*request, flags);
    if (descriptor == -1) {
        return systemFailure();
    }
    descriptor_ = descriptor;
    forkGeneration_ = osse::forkGeneration();
    return 0;
}

unsigned int OSSHFile::lock(const OSSFileLockRequest* request) noexcept {
    if (request == nullptr) {
        return OSS_NULL_POINTER;
    }
    const bool exclusive = request->type == OSS_LOCK_EXCLUSIVE;
    const bool wait = request->wait == OSS_WAIT;
    if (request->version != OSS_REQUEST_VERSION || (!exclusive && request->type != OSS_LOCK_SHARED) ||
        (!wait && request->wait != OSS_NO_WAIT)) {
        return ossErrorMapSystem(EINVAL);
    }
    const int descriptor = getFileHandle();
    if (descriptor == -1) {
        return ossErrorMapSystem(EBADF);
    }
    // Entered again for a handle that was unlocked before, and before the lock is there: a fork in between finds it.
    if (!osse::isHeld(descriptor) && osse::holdDescriptor(descriptor, nullptr) != osse::Held::Yes) {
        return systemFailure();
    }
    const auto kind = exclusive ? platform::FileLock::Exclusive : platform::FileLock::Shared;
    return platform::lockWholeFile(descriptor, kind, wait) == 0 ? 0 : systemFailure();
}

unsigned int OSSHFile::unlock() noexcept {
    const int descriptor = getFileHandle();
    if (descriptor == -1) {
        return ossErrorMapSystem(EBADF);
    }
    if (platform::lockWholeFile(descriptor, platform::FileLock::None, false) != 0) {
        return systemFailure();
    }
    osse::releaseDescriptor(descriptor);
    return 0;
}

unsigned int OSSHFile::close() noexcept {
    const int descriptor = getFileHandle();
    descriptor_ = -1;
    if (descriptor == -1) {
        return ossErrorMapSystem(EBADF);
    }
    if (osse::isHeld(descriptor)) {
        // Unlocked first: once the entry is gone, a forked child keeps its copy, which must hold no lock.
        (void)platform::lockWholeFile(descriptor, platform::FileLock::None, false);
        osse::releaseDescriptor(descriptor);
    }
    return platform::closeOnce(descriptor) == 0 ? 0 : systemFailure();
}

int OSSHFile::getFileHandle() const noexcept {
    return forkGeneration_ == osse::forkGeneration() ? descriptor_ : -1;
}

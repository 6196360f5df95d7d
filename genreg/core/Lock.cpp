// The lock: who may update a registry.
#include <osse/Errors.h>

#include <algorithm>

#include "genreg/core/Directory.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/LockNote.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;

void GenRegFile::SetLockWait(long limitMilliseconds, GenRegLockNotice notice, void* context) noexcept {
    const FunctionTrace trace{Function::SetLockWait};
    FileInternals& inside = FileInternals::of(*this);
    inside.lockWaitLimit_ = limitMilliseconds;
    inside.lockNotice_ = notice;
    inside.lockNoticeContext_ = context;
}

// Takes the lock of the handle on the file at the path. A client that set a limit or wants to be told is answered in
// time: the lock is asked for again and again, at growing distances.
unsigned int FileInternals::takeLock(OSSHFile& handle, const char* path, const OSSFileLockRequest& request) noexcept {
    constexpr long LONGEST_PAUSE = 20;
    constexpr long long NOTICE_EVERY = 1000;
    if (request.wait != OSS_WAIT || (lockWaitLimit_ < 0 && lockNotice_ == nullptr)) {
        return handle.lock(&request);
    }
    OSSFileLockRequest attempt = request;
    attempt.wait = OSS_NO_WAIT;
    const long long start = posix::monotonicMilliseconds();
    long long nextNotice = NOTICE_EVERY;
    for (long pause = 1;; pause = std::min(2 * pause, LONGEST_PAUSE)) {
        const unsigned int rc = handle.lock(&attempt);
        const long long waited = posix::monotonicMilliseconds() - start;
        if (rc != OSS_WOULD_BLOCK || (lockWaitLimit_ >= 0 && waited >= lockWaitLimit_)) {
            return rc;
        }
        if (lockNotice_ != nullptr && waited >= nextNotice) {
            lockNotice_(lockNoticeContext_, path, static_cast<unsigned long>(waited));
            nextNotice += NOTICE_EVERY;
        }
        posix::sleepMilliseconds(pause);
    }
}

unsigned int GenRegFile::Lock(unsigned long flags, unsigned long /*reserved*/) noexcept {
    OperationTrace trace{Function::Lock};
    FileInternals& inside = FileInternals::of(*this);
    trace.input(1, sizeof flags, &flags);
    if ((flags & (REG_LOCK_EXCLUSIVE | REG_LOCK_SHARED)) == 0) {
        return trace.fail(10, REG_INVALID_ARGUMENT);
    }
    if ((flags & (REG_LOCK_WAIT | REG_LOCK_NOWAIT)) == 0) {
        return trace.fail(20, REG_INVALID_ARGUMENT);
    }
    if ((state & REG_STATE_CONFIGURED) == 0) {
        return trace.fail(30, REG_NOT_CONFIGURED);
    }
    if ((state & REG_STATE_LOCKED) != 0) {
        return trace.fail(40, REG_ALREADY_LOCKED);
    }
    // Were a link taken for the file, the lock would keep nobody out and the commit would replace the link.
    if (const unsigned int rc = inside.moveToRealFile()) {
        return trace.fail(50, REG_OPEN_LOCK_FAILED, rc);
    }
    if ((flags & REG_LOCK_CREATE_DIR) != 0) {
        if (const unsigned int rc = genreg::ensureDirectoryOf(trace, 60, regPath)) {
            return rc;
        }
    }
    const bool exclusive = (flags & REG_LOCK_EXCLUSIVE) != 0;
    const unsigned long permissions = lockPermissions != 0 ? lockPermissions : genreg::DEFAULT_PERMISSIONS;
    if (lockFile.getFileHandle() >= 0) {
        (void)lockFile.close();  // left open by a lock that failed
    }
    // A read-only open never creates, and what another open creates is not like the registry. Whether the file is
    // there, the open will tell.
    (void)posix::createLockFile(lockPath, regPath, permissions);
    lockOpenRequest = {
        OSS_REQUEST_VERSION, lockPath, OSS_OPEN_PLAIN, exclusive ? OSS_ACCESS_READ_WRITE : OSS_ACCESS_READ, 0,
        permissions};
    if (const unsigned int rc = lockFile.open(&lockOpenRequest)) {
        return trace.fail(80, REG_OPEN_LOCK_FAILED, rc);
    }
    // What a link leads to keeps nobody out, and is nobody's to lock; an open for writing refuses it by itself.
    if (const unsigned int rc = exclusive ? 0 : posix::checkNamed(lockFile.getFileHandle(), lockPath)) {
        (void)lockFile.close();
        return trace.fail(85, REG_OPEN_LOCK_FAILED, rc);
    }
    const bool waits = (flags & REG_LOCK_NOWAIT) == 0;
    const OSSFileLockRequest request = {OSS_REQUEST_VERSION, exclusive ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED,
                                        waits ? OSS_WAIT : OSS_NO_WAIT};
    const unsigned int rc = inside.takeLock(lockFile, lockPath, request);
    if (rc == OSS_WOULD_BLOCK) {
        return trace.fail(90, REG_LOCK_HELD, rc);
    }
    if (rc != 0) {
        return trace.fail(100, rc, rc);
    }
    state |= REG_STATE_LOCKED;
    if (exclusive) {
        genreg::writeLockNote(lockFile.getFileHandle());
    }
    return 0;
}

unsigned int GenRegFile::UnLock() noexcept {
    OperationTrace trace{Function::UnLock};
    if (const unsigned int rc = lockFile.unlock()) {
        return trace.fail(10, REG_RELEASE_LOCK_FAILED, rc);
    }
    state &= ~REG_STATE_LOCKED;
    if (const unsigned int rc = lockFile.close()) {
        return trace.fail(20, REG_CLOSE_LOCK_FAILED, rc);
    }
    return 0;
}

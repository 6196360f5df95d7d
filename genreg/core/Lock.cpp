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

// How a lock is lent. Whoever locks from byte 0 on excludes everybody. A lender at depth d keeps byte d of what he has
// locked and gives back all that follows, which those lock in their turn who work under him, and nobody else: the lock
// of everybody else, and that of those who work under another, takes in byte d. What such a borrower holds keeps them
// out also when the lender's byte is free again.

// Takes the lock of the handle on the file at the path, from that byte on. A client that set a limit or wants to be
// told is answered in time: the lock is asked for again and again, at growing distances.
unsigned int FileInternals::takeLock(OSSHFile& handle, const char* path, const OSSFileLockRequest& request,
                                     unsigned long first) noexcept {
    constexpr long LONGEST_PAUSE = 20;
    constexpr long long NOTICE_EVERY = 1000;
    const auto ask = [&](const OSSFileLockRequest& asked) {
        return first == 0 ? handle.lock(&asked)
                          : posix::lockTail(handle.getFileHandle(), asked.type == OSS_LOCK_EXCLUSIVE, first,
                                            asked.wait == OSS_WAIT);
    };
    if (request.wait != OSS_WAIT || (lockWaitLimit_ < 0 && lockNotice_ == nullptr)) {
        return ask(request);
    }
    OSSFileLockRequest attempt = request;
    attempt.wait = OSS_NO_WAIT;
    const long long start = posix::monotonicMilliseconds();
    long long nextNotice = NOTICE_EVERY;
    for (long pause = 1;; pause = std::min(2 * pause, LONGEST_PAUSE)) {
        const unsigned int rc = ask(attempt);
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

// Whether the loan is of this object's lock file, which is open.
bool FileInternals::borrowsHere() const noexcept {
    posix::FileStatus lent = {};
    posix::FileStatus own = {};
    return loan_.descriptor >= 0 && posix::statusOf(loan_.descriptor, &lent) == 0 &&
           posix::statusOf(file_.lockFile.getFileHandle(), &own) == 0 && lent.device == own.device &&
           lent.inode == own.inode;
}

unsigned int FileInternals::takeLockFile(bool exclusive, bool waits) noexcept {
    const unsigned int kind = exclusive ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED;
    OSSFileLockRequest request = {OSS_REQUEST_VERSION, kind, waits ? OSS_WAIT : OSS_NO_WAIT};
    OSSHFile& handle = file_.lockFile;
    const bool borrows = borrowsHere();
    if (borrows && loan_.kind == REG_LOCK_EXCLUSIVE) {
        lockedFrom_ = loan_.depth + 1UL;
        const unsigned int rc = takeLock(handle, file_.lockPath, request, lockedFrom_);
        if (rc == OSS_WOULD_BLOCK ||
            (rc == 0 && posix::holdsByte(loan_.descriptor, handle.getFileHandle(), loan_.depth))) {
            return rc;
        }
        (void)posix::unlockTail(handle.getFileHandle(), 0);
    }
    lockedFrom_ = 0;
    request.wait = borrows && exclusive && loan_.kind == REG_LOCK_SHARED ? OSS_NO_WAIT : request.wait;
    return takeLock(handle, file_.lockPath, request);
}

unsigned int GenRegFile::LendLock(const char* borrower, GenRegLockLoan* loan) noexcept {
    OperationTrace trace{Function::LendLock};
    const FileInternals& inside = FileInternals::of(*this);
    if (loan == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    const int descriptor = lockFile.getFileHandle();
    if ((state & REG_STATE_LOCKED) == 0 || descriptor < 0) {
        return trace.fail(20, REG_INVALID_ARGUMENT);
    }
    const bool exclusive = lockOpenRequest.access == OSS_ACCESS_READ_WRITE;
    const auto depth = static_cast<unsigned int>(inside.lockedFrom_);
    if (exclusive && depth == 0 && borrower != nullptr) {
        genreg::writeLockNote(descriptor, borrower);
    }
    if (exclusive) {
        if (const unsigned int rc = posix::unlockTail(descriptor, depth + 1UL)) {
            return trace.fail(30, rc, rc);
        }
    }
    *loan = {descriptor, depth, exclusive ? REG_LOCK_EXCLUSIVE : REG_LOCK_SHARED};
    return 0;
}

unsigned int GenRegFile::BorrowLock(const GenRegLockLoan* loan) noexcept {
    FunctionTrace trace{Function::BorrowLock};
    FileInternals::of(*this).loan_ = loan != nullptr ? *loan : GenRegLockLoan{-1, 0, 0};
    return trace.exit(0);
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
    const unsigned int rc = inside.takeLockFile(exclusive, waits);
    if (rc == OSS_WOULD_BLOCK) {
        return trace.fail(90, REG_LOCK_HELD, rc);
    }
    if (rc != 0) {
        return trace.fail(100, rc, rc);
    }
    state |= REG_STATE_LOCKED;
    if (exclusive && inside.lockedFrom_ == 0) {
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

// The lock: who may update a registry.
#include <genreg/LockStatus.h>
#include <osse/Errors.h>
#include <osse/Files.h>
#include <osse/Text.h>
#include <osse/Time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "genreg/core/Directory.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;

namespace {

// The note has one length, so that a shorter one never leaves the tail of a longer one behind.
constexpr std::size_t NOTE_SIZE = 128;

constexpr char NOTE_START[] = "pid=";

// Whether the file, which has no other name, is empty or holds a note.
bool takesNote(int descriptor) noexcept {
    char content[NOTE_SIZE + 1];
    std::size_t got = 0;
    posix::FileStatus status = {};
    return posix::statusOf(descriptor, &status) == 0 && status.regular && status.links == 1 &&
           posix::readAt(descriptor, content, sizeof content, 0, &got) == 0 &&
           (got == 0 || (got == NOTE_SIZE && std::memcmp(content, NOTE_START, sizeof NOTE_START - 1) == 0));
}

// For people who wonder who holds the lock; a failure is nobody's concern. Only a file of the lock's own is written,
// not one that another program uses.
void writeNote(int descriptor) noexcept {
    if (!takesNote(descriptor)) {
        return;
    }
    char note[NOTE_SIZE + 1];
    OSSTime now = {};
    (void)ossTimeGetUTC(&now);
    std::memset(note, ' ', NOTE_SIZE);
    const long process = posix::processId();
    const unsigned long length = ossSnprintf(note, NOTE_SIZE, "pid=%ld since=%ld program=%-63.63s start=%llu", process,
                                             now.seconds, posix::programName(), posix::processStart(process));
    note[length] = ' ';
    note[NOTE_SIZE - 1] = '\n';
    (void)posix::writeAt(descriptor, note, NOTE_SIZE, 0);
}

struct Note {
    GenRegLockNote shown;
    unsigned long long start;  // of the process; 0: not told
};

Note readNote(const char* path) noexcept {
    Note note = {};
    int descriptor = -1;
    if (posix::openToRead(path, &descriptor) != 0) {
        return note;
    }
    char text[NOTE_SIZE + 1] = {};
    std::size_t got = 0;
    if (posix::readAt(descriptor, text, NOTE_SIZE, 0, &got) == 0 && got == NOTE_SIZE) {
        Note read = {};
        GenRegLockNote& shown = read.shown;
        if (std::sscanf(text, "pid=%ld since=%ld program=%63[^\n] start=%llu", &shown.pid, &shown.since, shown.program,
                        &read.start) >= 3) {
            for (std::size_t end = std::strlen(shown.program); end > 0 && shown.program[end - 1] == ' '; --end) {
                shown.program[end - 1] = '\0';
            }
            note = read;
        }
    }
    (void)posix::closeDescriptor(descriptor);
    return note;
}

// Whether the process that left the note still runs: a number is given to others in time.
bool stillRuns(const Note& note) noexcept {
    const unsigned long long start = posix::processStart(note.shown.pid);
    return posix::isAlive(note.shown.pid) && (start == 0 || note.start == 0 || start == note.start);
}

// The last to write a note need not be who holds the lock now: whoever may read the lock file can hold it without one.
GenRegLockNote holderOf(const char* path, const Note& note) noexcept {
    const long suspect = stillRuns(note) ? note.shown.pid : 0;
    const long holder = posix::findLockHolder(path, suspect);
    if (holder != 0 && holder == suspect) {
        return note.shown;
    }
    GenRegLockNote seen = {};
    seen.pid = holder;
    if (holder != 0) {
        posix::programOf(holder, seen.program, sizeof seen.program);
    }
    return seen;
}

}  // namespace

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
    if (const unsigned int rc = posix::checkNamed(lockFile.getFileHandle(), lockPath)) {
        (void)lockFile.close();  // what a link leads to keeps nobody out, and is nobody's to lock
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
        writeNote(lockFile.getFileHandle());
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

extern "C" unsigned int genregLockStatus(const char* lockPath, GenRegLockNote* note) {
    OperationTrace trace{Function::GenregLockStatus};
    if (lockPath == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    bool locked = false;
    if (const unsigned int rc = posix::isLocked(lockPath, &locked)) {
        return trace.fail(20, rc, rc);
    }
    if (note != nullptr) {
        const Note left = readNote(lockPath);
        *note = locked ? holderOf(lockPath, left) : left.shown;
    }
    return trace.exit(locked ? static_cast<unsigned int>(REG_LOCK_HELD) : 0U);
}

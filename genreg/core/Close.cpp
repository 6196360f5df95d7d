// The closing half of a transaction, and the commit.
#include <osse/Errors.h>
#include <osse/Files.h>

#include <cerrno>
#include <cstdlib>

#include "genreg/core/ChecksumHeader.h"
#include "genreg/core/Directory.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::OperationTrace;

namespace {

constexpr unsigned int FILE_MISSING = OSS_SYSTEM_ERROR_BASE + ENOENT;

// Hands the system what the stream still holds. A buffered stream may close without complaint after a write was lost:
// only its error flag tells, but not why.
unsigned int writeOut(std::FILE* stream) noexcept {
    if (std::ferror(stream) != 0) {
        return ossErrorMapSystem(EIO);
    }
    return posix::flushStream(stream) ? 0 : ossErrorMapSystem(errno);
}

// A write at offset 0 on an appending descriptor appends: the header is written through another one, under the lock
// that the caller holds.
unsigned int stampInPlace(const char* path, unsigned long size) noexcept {
    int patch = -1;
    if (const unsigned int rc = posix::openToPatch(path, &patch)) {
        return rc;
    }
    unsigned long bodySize = 0;
    unsigned int checksum = 0;
    unsigned int platformCode = 0;
    const unsigned int rc = genreg::stampChecksumHeader(patch, size, false, &bodySize, &checksum, &platformCode);
    (void)posix::closeDescriptor(patch);
    return platformCode != 0 ? platformCode : rc;
}

}  // namespace

// Ends an append in place: what was appended is stamped and made durable, or the file is cut back to where it was.
unsigned int FileInternals::finishAppend(bool keep) noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    const int descriptor = posix::descriptorOf(file_.regFp);
    posix::FileStatus status = {};
    unsigned int rc = writeOut(file_.regFp);
    if (rc == 0) {
        rc = posix::statusOf(descriptor, &status);
    }
    if (rc == 0 && status.size == regSize_ && !regCreated_) {
        return 0;
    }
    const bool stamps = rc == 0 && keep && regBody_ != 0;
    if (rc == 0 && keep) {
        if (stamps) {
            rc = stampInPlace(file_.regPath, status.size);
        }
        if (rc == 0) {
            rc = posix::syncFile(descriptor);
        }
        if (rc == 0 && regCreated_) {
            if (const unsigned int unsynced = genreg::syncDirectoryOf(file_.regPath)) {
                trace.ignore(20, unsynced, unsynced);
            }
        }
    }
    if (rc == 0 && keep) {
        return 0;
    }
    (void)posix::truncateTo(descriptor, regSize_);
    if (stamps) {
        (void)stampInPlace(file_.regPath, regSize_);  // it may tell of what was just cut off
    }
    return rc == 0 ? 0 : trace.fail(30, REG_CLOSE_FILE_FAILED, rc);
}

// Closes the stream and with it the lock; false when that failed, errno telling why. In a child forked meanwhile the
// descriptor is closed already, and its number may be another file's: the stream is given up there.
bool FileInternals::closeRegistryStream() noexcept {
    std::FILE* const stream = file_.regFp;
    file_.regFp = nullptr;
    const bool onHandle = regStreamOnHandle_;
    regStreamOnHandle_ = false;
    char* const buffer = scanBuffer_;
    scanBuffer_ = nullptr;
    if (onHandle && regHandle_.getFileHandle() < 0) {
        return true;
    }
    // The handle forgets the descriptor before the stream closes it. One that a client put here is not the handle's,
    // whose number may be a descriptor of somebody else's by now.
    if (onHandle) {
        (void)regHandle_.unlock();
    }
    const bool closed = posix::closeStream(stream);
    const int error = errno;
    std::free(buffer);
    errno = error;
    return closed;
}

// The platform's code, when closing failed.
unsigned int FileInternals::closeRegistryFile() noexcept {
    if (file_.regFp == nullptr) {
        return 0;
    }
    regAppends_ = false;
    return closeRegistryStream() ? 0 : ossErrorMapSystem(errno);
}

// What the update has gathered for the copy goes out either way; what a client wrote to the stream, where it counts.
unsigned int FileInternals::writeCopyOut(bool whole) noexcept {
    if (files_ != nullptr && !files_->output.flush()) {
        return ossErrorMapSystem(errno);
    }
    return whole ? writeOut(file_.tmpFp) : 0;
}

// Closes the copy; one that was written is on the medium afterwards.
unsigned int FileInternals::closeTemporaryCopy(bool written) noexcept {
    if (file_.tmpFp == nullptr) {
        return 0;
    }
    unsigned int rc = writeCopyOut(written);
    if (written) {
        rc = rc == 0 ? posix::syncFile(posix::descriptorOf(file_.tmpFp)) : rc;
    }
    std::FILE* const stream = file_.tmpFp;
    file_.tmpFp = nullptr;
    if (!posix::closeStream(stream) && rc == 0) {
        rc = ossErrorMapSystem(errno);
    }
    return rc == 0 ? 0 : copyNotClosed(rc);
}

unsigned int FileInternals::copyNotClosed(unsigned int platformCode) noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    return trace.fail(70, REG_CLOSE_TMP_FAILED, platformCode);
}

unsigned int FileInternals::stampTemporaryCopy(unsigned int* checksum) noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    if (const unsigned int rc = writeCopyOut(true)) {
        return trace.fail(45, REG_CLOSE_TMP_FAILED, rc);
    }
    const int descriptor = posix::descriptorOf(file_.tmpFp);
    posix::FileStatus status = {};
    if (const unsigned int rc = posix::statusOf(descriptor, &status)) {
        return trace.fail(50, REG_CHECKSUM_READ_FAILED, rc);
    }
    unsigned long bodySize = 0;
    unsigned int platformCode = 0;
    const unsigned int rc = genreg::stampChecksumHeader(descriptor, status.size, file_.checksumHeaderPending != 0,
                                                        &bodySize, checksum, &platformCode);
    if (rc == 0 || rc == REG_COPY_WRITE_FAILED) {
        // Kept: programs that watch the standard output of an update know this line, which tells of the reading alone.
        (void)std::printf("Copy file into buffer done %d\n", static_cast<int>(bodySize));
    }
    return rc == 0 ? 0 : trace.fail(60, rc, platformCode);
}

// The change stands, whatever comes of it.
void FileInternals::syncNames() noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    if (const unsigned int rc = genreg::syncDirectoryOf(file_.regPath)) {
        trace.ignore(110, rc, rc);
    }
}

unsigned int FileInternals::commit(unsigned int checksum) noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    const bool deferred = defersNames();
    unsigned int linked = posix::linkFile(file_.regPath, file_.bkpPath);
    if (linked != 0) {  // a backup stands there that a writer left, most likely
        if (const unsigned int rc = ossFileDelete(file_.bkpPath); rc != 0 && rc != FILE_MISSING) {
            trace.ignore(80, REG_BACKUP_FAILED, rc);
        }
        linked = posix::linkFile(file_.regPath, file_.bkpPath);
    }
    if (linked != 0) {
        return trace.fail(90, REG_BACKUP_FAILED, linked);
    }
    if (const unsigned int rc = ossFileRename(file_.tmpPath, file_.regPath)) {
        return trace.fail(100, REG_RENAME_FAILED, rc);
    }
    if (deferred) {
        files_->unsettled = true;
    } else {
        syncNames();
    }
    unsigned int result = ossFileDelete(file_.bkpPath);
    if (result == FILE_MISSING) {
        result = 0;
    }
    // Kept: a body whose checksum is 0 leaves the header pending.
    if (checksum != 0) {
        file_.checksumHeaderPending = 0;
    }
    if (result != 0) {
        trace.ignore(120, REG_DELETE_BACKUP_FAILED, result);
        return trace.exit(result);
    }
    return 0;
}

// What a forked child has of its parent's is not the child's to close.
unsigned int FileInternals::refuseParentsFile() noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    return trace.fail(15, REG_CLOSE_FILE_FAILED, ossErrorMapSystem(EBADF));
}

unsigned int FileInternals::registryNotClosed(unsigned int platformCode) noexcept {
    FunctionTrace trace{Function::CloseReg, FunctionTrace::Part()};
    return trace.fail(40, REG_CLOSE_FILE_FAILED, platformCode);
}

unsigned int FileInternals::closeLooked(const posix::ReadFile& file, bool unlocks) noexcept {
    const bool parents = file.generation != posix::forkGeneration();
    const unsigned int rc = unlocks ? posix::closeUnlocked(file) : posix::closeLocked(file);
    if (parents) {
        return refuseParentsFile();
    }
    return rc == 0 ? 0 : registryNotClosed(rc);
}

unsigned int GenRegFile::CloseReg(unsigned long op) noexcept {
    OperationTrace trace{Function::CloseReg};
    FileInternals& inside = FileInternals::of(*this);
    if ((state & REG_STATE_SCAN_OPEN) != 0) {
        return trace.fail(10, REG_SCAN_OPEN);
    }
    trace.input(1, sizeof op, &op);
    if (inside.holdsParentsFiles() || (op == REG_OP_FINISH && inside.copyIsParents())) {
        (void)inside.closeRegistryFile();
        (void)inside.closeTemporaryCopy(false);
        return trace.exit(FileInternals::refuseParentsFile());
    }
    const bool writes = op == REG_OP_CHANGE || op == REG_OP_ADD || op == REG_OP_DELETE;
    if (regFp != nullptr && inside.regAppends_ && tmpFp == nullptr) {
        if (const unsigned int rc = inside.finishAppend(op != REG_OP_READ)) {
            (void)inside.closeRegistryFile();
            return trace.exit(rc);
        }
    }
    if (const unsigned int rc = inside.closeRegistryFile()) {
        (void)inside.closeTemporaryCopy(false);
        return trace.exit(FileInternals::registryNotClosed(rc));
    }
    unsigned int checksum = 0;
    const bool copied = tmpFp != nullptr;
    if (copied) {
        if (writes && inside.usesChecksumHeader()) {
            if (const unsigned int rc = inside.stampTemporaryCopy(&checksum)) {
                (void)inside.closeTemporaryCopy(false);
                return trace.exit(rc);
            }
        }
        if (const unsigned int rc = inside.closeTemporaryCopy(writes)) {
            return trace.exit(rc);
        }
    }
    const bool commits = (features & REG_FEATURE_DEFERRED_COMMIT) != 0
                             ? op == REG_OP_FINISH
                             : op == REG_OP_CHANGE || op == REG_OP_DELETE ||
                                   (op == REG_OP_ADD && (features & REG_FEATURE_ALLOW_DUPLICATES) == 0);
    // Without a copy of this transaction the one on disk is another writer's leaving, unless it was closed before to be
    // committed now.
    return commits && (copied || op == REG_OP_FINISH) ? trace.exit(inside.commit(checksum)) : 0;
}

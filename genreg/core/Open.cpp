// The opening half of a transaction.
#include <osse/Errors.h>
#include <osse/Files.h>

#include <algorithm>
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

struct StreamMode {
    char text[3];
};

StreamMode streamMode(char letter, bool binary) noexcept {
    return {{letter, binary ? 'b' : 't', '\0'}};
}

}  // namespace

// The platform's code, when opening failed.
unsigned int FileInternals::openRegistryHandle(unsigned int access) noexcept {
    const OSSFileOpenRequest request = {OSS_REQUEST_VERSION,
                                        file_.regPath,
                                        OSS_OPEN_PLAIN,
                                        access,
                                        0,
                                        file_.regPermissions != 0 ? file_.regPermissions : genreg::DEFAULT_PERMISSIONS};
    return regHandle_.open(&request);
}

// The platform's code, when locking failed; the handle is closed then.
unsigned int FileInternals::lockRegistryFile(unsigned int kind) noexcept {
    const OSSFileLockRequest request = {OSS_REQUEST_VERSION, kind, OSS_WAIT};
    const unsigned int rc = takeLock(regHandle_, file_.regPath, request);
    if (rc != 0) {
        (void)regHandle_.close();
    }
    return rc;
}

// The stream on the locked handle. The platform's code, when there is none; the handle is closed then.
unsigned int FileInternals::openRegistryStream(char mode) noexcept {
    posix::FileStatus status = {};
    unsigned int rc = posix::statusOf(regHandle_.getFileHandle(), &status);
    if (rc == 0 && !status.regular) {
        rc = ossErrorMapSystem(EISDIR);  // a directory opens for reading, but is no registry
    }
    if (rc == 0) {
        file_.regFp = posix::openStream(regHandle_.getFileHandle(),
                                        streamMode(mode, file_.fileKind == GenRegFile::REG_KIND_BINARY).text);
        rc = file_.regFp == nullptr ? ossErrorMapSystem(errno) : 0;
    }
    if (rc != 0) {
        (void)regHandle_.unlock();
        (void)regHandle_.close();
        return rc;
    }
    regStreamOnHandle_ = true;
    regSize_ = status.size;
    regBody_ = 0;
    return 0;
}

// Opens and locks the registry file: for appending when an add finds it absent or may append in place, else for
// reading.
unsigned int FileInternals::openRegistryFile(unsigned long op) noexcept {
    FunctionTrace trace{Function::OpenReg, FunctionTrace::Part()};
    const bool inPlace = op == REG_OP_ADD && addsInPlace();
    regCreated_ = false;
    regAppends_ = false;
    unsigned int rc = 0;
    if (inPlace) {
        regCreated_ = !posix::exists(file_.regPath);
    } else {
        rc = openRegistryHandle(OSS_ACCESS_READ);
        if (rc == FILE_MISSING && op != REG_OP_ADD) {
            return trace.failMildly(50, REG_MISSING);
        }
        regCreated_ = rc == FILE_MISSING;
    }
    if (inPlace || regCreated_) {
        regAppends_ = true;
        rc = openRegistryHandle(OSS_ACCESS_CREATE);
    }
    if (rc != 0) {
        return trace.fail(60, REG_OPEN_FILE_FAILED, rc);
    }
    rc = lockRegistryFile(regAppends_ ? OSS_LOCK_EXCLUSIVE : OSS_LOCK_SHARED);
    if (rc != 0) {
        return trace.fail(70, REG_LOCK_FILE_FAILED, rc);
    }
    rc = openRegistryStream(regAppends_ ? 'a' : 'r');
    return rc == 0 ? 0 : trace.fail(80, REG_OPEN_FILE_FAILED, rc);
}

bool FileInternals::addsBlindly() const noexcept {
    constexpr unsigned long JUDGED = REG_FEATURE_ALLOW_DUPLICATES | REG_FEATURE_DEFERRED_COMMIT;
    return (file_.features & JUDGED) == REG_FEATURE_ALLOW_DUPLICATES;
}

// The feature means nothing to text.
bool FileInternals::usesChecksumHeader() const noexcept {
    return file_.fileKind == GenRegFile::REG_KIND_BINARY && (file_.features & REG_FEATURE_CHECKSUM_HEADER) != 0;
}

// Where the records of a file with the checksum feature begin.
unsigned int FileInternals::judgeHeader(int descriptor, unsigned long size, unsigned long* body,
                                        unsigned int* platformCode) noexcept {
    *body = 0;
    genreg::HeaderFit fit = genreg::HeaderFit::None;
    const bool bigEndian = (file_.features & REG_FEATURE_BIG_ENDIAN) != 0;
    if (const unsigned int rc = genreg::judgeChecksumHeader(descriptor, size, bigEndian, &fit, platformCode)) {
        return rc;
    }
    if (fit == genreg::HeaderFit::Misfits) {
        return REG_CHECKSUM_DIFFERS;
    }
    *body = fit == genreg::HeaderFit::Fits ? genreg::CHECKSUM_HEADER_SIZE : 0;
    return 0;
}

// The copy that is about to be verified and committed. The bits of the registry may have changed since it was written.
unsigned int FileInternals::readTemporaryCopy() noexcept {
    FunctionTrace trace{Function::OpenReg, FunctionTrace::Part()};
    const bool binary = file_.fileKind == GenRegFile::REG_KIND_BINARY;
    tmpBody_ = 0;
    int descriptor = -1;
    // Never truncated.
    if (const unsigned int rc = posix::openToRead(file_.tmpPath, &descriptor)) {
        return trace.fail(130, REG_OPEN_TMP_FAILED, rc);
    }
    file_.tmpFp = posix::openStream(descriptor, streamMode('r', binary).text);
    if (file_.tmpFp == nullptr) {
        const unsigned int rc = ossErrorMapSystem(errno);
        (void)posix::closeDescriptor(descriptor);
        return trace.fail(140, REG_OPEN_TMP_FAILED, rc);
    }
    posix::FileStatus registry = {};
    posix::FileStatus copy = {};
    unsigned int rc = posix::statusOf(posix::descriptorOf(file_.regFp), &registry);
    rc = rc == 0 ? posix::statusOf(descriptor, &copy) : rc;
    if (rc != 0) {
        return trace.fail(150, REG_FILE_INFO_FAILED, rc);
    }
    if (registry.permissions != copy.permissions) {
        rc = posix::carryAttributes(posix::descriptorOf(file_.regFp), descriptor);
        if (rc != 0) {
            return trace.fail(160, REG_SET_PERMISSIONS_FAILED, rc);
        }
    }
    if (!usesChecksumHeader()) {
        return 0;
    }
    unsigned int platformCode = 0;
    rc = judgeHeader(descriptor, copy.size, &tmpBody_, &platformCode);
    if (rc != 0) {
        return trace.fail(170, rc, platformCode);
    }
    const bool behindHeader = tmpBody_ == 0 || std::fseek(file_.tmpFp, static_cast<long>(tmpBody_), SEEK_SET) == 0;
    return behindHeader ? 0 : trace.fail(180, REG_OPEN_TMP_FAILED, ossErrorMapSystem(errno));
}

// Makes the copy where there is none. What an interrupted writer left there is set aside first; a copy that cannot be
// goes, and one that cannot be removed either stops the fresh one.
unsigned int FileInternals::createFreshCopy(bool appending, int* descriptor) noexcept {
    FunctionTrace trace{Function::OpenReg, FunctionTrace::Part()};
    if (const unsigned int rc = ossFileDelete(file_.corPath); rc != 0 && rc != FILE_MISSING) {
        return trace.fail(190, REG_DELETE_CORRUPT_FAILED, rc);
    }
    copyMaker_ = thisProcess();
    if (posix::createFresh(file_.tmpPath, appending, descriptor) == 0) {
        return 0;
    }
    if (const unsigned int rc = ossFileRename(file_.tmpPath, file_.corPath); rc != 0 && rc != FILE_MISSING) {
        trace.ignore(200, REG_SET_ASIDE_FAILED, rc);
        (void)ossFileDelete(file_.tmpPath);
    }
    const unsigned int rc = posix::createFresh(file_.tmpPath, appending, descriptor);
    return rc == 0 ? 0 : trace.fail(210, REG_OPEN_TMP_FAILED, rc);
}

unsigned int FileInternals::attributesNotCarried(unsigned int platformCode) noexcept {
    FunctionTrace trace{Function::OpenReg, FunctionTrace::Part()};
    return trace.fail(230, REG_SET_PERMISSIONS_FAILED, platformCode);
}

unsigned int FileInternals::createTemporaryCopy() noexcept {
    FunctionTrace trace{Function::OpenReg, FunctionTrace::Part()};
    const bool binary = file_.fileKind == GenRegFile::REG_KIND_BINARY;
    const bool stamped = usesChecksumHeader();
    tmpBody_ = 0;
    int descriptor = -1;
    if (const unsigned int rc = createFreshCopy(!stamped, &descriptor)) {
        return rc;
    }
    file_.tmpFp = posix::openStream(descriptor, stamped ? "w+b" : streamMode('a', binary).text);
    if (file_.tmpFp == nullptr) {
        const unsigned int rc = ossErrorMapSystem(errno);
        (void)posix::closeDescriptor(descriptor);
        (void)ossFileDelete(file_.tmpPath);
        return trace.fail(220, REG_OPEN_TMP_FAILED, rc);
    }
    if (const unsigned int rc = posix::carryAttributes(posix::descriptorOf(file_.regFp), descriptor)) {
        return attributesNotCarried(rc);
    }
    if (stamped && file_.checksumHeaderPending == 0) {
        const char reserved[genreg::CHECKSUM_HEADER_SIZE] = {};
        if (!posix::writeUnlocked(file_.tmpFp, reserved, sizeof reserved) || !posix::flushStream(file_.tmpFp)) {
            return trace.fail(240, REG_OPEN_TMP_FAILED, ossErrorMapSystem(errno));
        }
    }
    return 0;
}

// A link takes the way that follows it; so does whatever does not open.
bool FileInternals::openToLook(posix::ReadFile* file, posix::FileStatus* status) const noexcept {
    const bool plain = (file_.state & REG_STATE_SCAN_OPEN) == 0 && file_.regFp == nullptr && file_.tmpFp == nullptr &&
                       !usesChecksumHeader() && lockWaitLimit_ < 0 && lockNotice_ == nullptr && !genreg::isTraced();
    return plain && posix::openLocked(file_.regPath, file, status);
}

unsigned int GenRegFile::OpenReg(unsigned long op) noexcept {
    OperationTrace trace{Function::OpenReg};
    FileInternals& inside = FileInternals::of(*this);
    if ((state & REG_STATE_SCAN_OPEN) != 0) {
        return trace.fail(10, REG_SCAN_OPEN);
    }
    trace.input(1, sizeof op, &op);
    if (op != REG_OP_READ &&
        (inside.holdsParentsLock() || inside.holdsParentsFiles() || (op == REG_OP_FINISH && inside.copyIsParents()))) {
        return trace.fail(15, REG_OPEN_FILE_FAILED, ossErrorMapSystem(EBADF));
    }
    if (regFp != nullptr || tmpFp != nullptr) {
        const genreg::CauseMark cause;
        (void)CloseReg(REG_OP_READ);  // of a transaction that was never closed
        cause.restore();
    }
    if (const unsigned int rc = inside.moveToRealFile()) {
        return trace.fail(20, REG_OPEN_FILE_FAILED, rc);
    }
    if (op == REG_OP_ADD) {
        if (const unsigned int rc = genreg::ensureDirectoryOf(trace, 30, regPath)) {
            return rc;
        }
    }
    if (const unsigned int rc = inside.openRegistryFile(op)) {
        return trace.exit(rc);
    }
    const bool stamped = inside.usesChecksumHeader();
    const int registry = posix::descriptorOf(regFp);
    unsigned int platformCode = 0;
    if (stamped && inside.regCreated_) {
        checksumHeaderPending = 1;  // a file made this moment has no header, whatever its predecessor had
    } else if (stamped && checksumHeaderPending == 0) {
        if (const unsigned int rc = genreg::verifyChecksumHeader(registry, inside.regSize_, &platformCode)) {
            return trace.fail(90, rc, platformCode);
        }
        inside.regBody_ = genreg::CHECKSUM_HEADER_SIZE;
    } else if (stamped) {
        if (const unsigned int rc = inside.judgeHeader(registry, inside.regSize_, &inside.regBody_, &platformCode)) {
            return trace.fail(100, rc, platformCode);
        }
    }
    if (inside.regBody_ != 0 && !inside.regAppends_ &&
        std::fseek(regFp, static_cast<long>(inside.regBody_), SEEK_SET) != 0) {
        return trace.fail(110, REG_READ_FAILED, ossErrorMapSystem(errno));
    }
    if (op == REG_OP_READ || (inside.regAppends_ && inside.addsInPlace())) {
        return 0;
    }
    if (op == REG_OP_FINISH) {
        inside.copyMaker_ = inside.thisProcess();
        return trace.exit(inside.readTemporaryCopy());
    }
    return trace.exit(inside.createTemporaryCopy());
}

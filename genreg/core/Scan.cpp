// The scan: a registry file held open and read record by record across calls.
#include <osse/Errors.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "genreg/core/ChecksumHeader.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::Input;
using genreg::OperationTrace;

void FileInternals::dropScanInput() noexcept {
    delete scanInput_;
    scanInput_ = nullptr;
}

// Lets the stream, which follows the scan, read as much at a time as the read-ahead. It is as good without.
void FileInternals::widenScanStream() noexcept {
    constexpr std::size_t LARGEST = 64UL * 1024;
    const std::size_t size = std::min<std::size_t>(regSize_ + 1, LARGEST);
    scanBuffer_ = static_cast<char*>(std::malloc(size));
    if (scanBuffer_ != nullptr) {
        (void)std::setvbuf(file_.regFp, scanBuffer_, _IOFBF, size);
    }
}

unsigned int GenRegFile::OpenScan() noexcept {
    OperationTrace trace{Function::OpenScan};
    FileInternals& inside = FileInternals::of(*this);
    if ((state & REG_STATE_CONFIGURED) == 0) {
        return trace.fail(10, REG_NOT_CONFIGURED);
    }
    inside.dropScanInput();
    (void)inside.closeRegistryFile();  // of a scan that was never closed
    state &= ~(REG_STATE_SCAN_OPEN | REG_STATE_SCAN_AT_END);
    if (const unsigned int rc = inside.openRegistryHandle(OSS_ACCESS_READ)) {
        return trace.fail(20, REG_OPEN_FILE_FAILED, rc);
    }
    if (const unsigned int rc = inside.lockRegistryFile(OSS_LOCK_SHARED)) {
        return trace.fail(30, REG_LOCK_FILE_FAILED, rc);
    }
    if (const unsigned int rc = inside.openRegistryStream('r')) {
        return trace.fail(40, REG_OPEN_FILE_FAILED, rc);
    }
    if (!inside.leavesStream_) {
        inside.widenScanStream();
    }
    if (inside.usesChecksumHeader()) {
        unsigned int platformCode = 0;
        unsigned int rc =
            inside.judgeHeader(posix::descriptorOf(regFp), inside.regSize_, &inside.regBody_, &platformCode);
        if (rc != 0) {
            (void)inside.closeRegistryFile();
            return trace.fail(50, rc, platformCode);
        }
        if (inside.regBody_ != 0 && std::fseek(regFp, static_cast<long>(inside.regBody_), SEEK_SET) != 0) {
            rc = trace.fail(60, REG_OPEN_FILE_FAILED, ossErrorMapSystem(errno));
            (void)inside.closeRegistryFile();
            return trace.exit(rc);
        }
    }
    state |= REG_STATE_SCAN_OPEN;
    return 0;
}

unsigned int GenRegFile::CloseScan() noexcept {
    OperationTrace trace{Function::CloseScan};
    FileInternals& inside = FileInternals::of(*this);
    inside.dropScanInput();
    const unsigned int rc = inside.closeRegistryFile();
    state &= ~(REG_STATE_SCAN_OPEN | REG_STATE_SCAN_AT_END);
    return rc == 0 ? 0 : trace.fail(10, REG_CLOSE_FILE_FAILED, rc);
}

unsigned int GenRegFile::Rewind() noexcept {
    OperationTrace trace{Function::Rewind};
    FileInternals& inside = FileInternals::of(*this);
    posix::FileStatus status = {};
    if (regFp == nullptr || std::fseek(regFp, static_cast<long>(inside.regBody_), SEEK_SET) != 0 ||
        posix::statusOf(posix::descriptorOf(regFp), &status) != 0) {
        return trace.fail(10, REG_REWIND_FAILED);
    }
    // Somebody who knows of no lock may have made the file longer.
    inside.regSize_ = status.size;
    inside.scanStream_ = static_cast<long>(inside.regBody_);
    if (inside.scanInput_ != nullptr) {
        inside.scanInput_->restart(posix::descriptorOf(regFp), inside.regBody_, inside.regSize_);
    }
    state &= ~REG_STATE_SCAN_AT_END;
    return 0;
}

unsigned int GenRegFile::getRegFilePosition(long long* position) noexcept {
    OperationTrace trace{Function::GetRegFilePosition};
    FileInternals& inside = FileInternals::of(*this);
    if ((state & REG_STATE_SCAN_OPEN) == 0) {
        return trace.fail(10, REG_SCAN_NOT_OPEN);
    }
    if (position == nullptr) {
        return trace.fail(20, REG_NULL_POINTER);
    }
    const long long at = std::ftell(regFp);
    if (at < 0) {
        return trace.fail(30, REG_GET_POSITION_FAILED, ossErrorMapSystem(errno));
    }
    const bool scans = inside.scanInput_ != nullptr && at == inside.scanStream_;
    *position = scans ? static_cast<long long>(inside.scanInput_->offset()) : at;
    return 0;
}

unsigned int GenRegFile::setRegFilePosition(long long* position) noexcept {
    OperationTrace trace{Function::SetRegFilePosition};
    FileInternals& inside = FileInternals::of(*this);
    if ((state & REG_STATE_SCAN_OPEN) == 0) {
        return trace.fail(10, REG_SCAN_NOT_OPEN);
    }
    if (position == nullptr) {
        return trace.fail(20, REG_NULL_POINTER);
    }
    if (*position < 0 || std::fseek(regFp, static_cast<long>(*position), SEEK_SET) != 0) {
        return trace.fail(30, REG_SET_POSITION_FAILED, ossErrorMapSystem(errno));
    }
    inside.scanStream_ = static_cast<long>(*position);
    if (inside.scanInput_ != nullptr) {
        inside.scanInput_->seek(static_cast<unsigned long>(*position));
    }
    return 0;
}

Input* FileInternals::scanInput() noexcept {
    if (leavesStream_ && scanInput_ != nullptr) {
        return scanInput_;
    }
    const long position = posix::placeOf(file_.regFp);
    if (scanInput_ == nullptr) {
        const int descriptor = posix::descriptorOf(file_.regFp);
        posix::FileStatus status = {};
        status.size = regSize_;
        if (!regStreamOnHandle_) {
            (void)posix::statusOf(descriptor, &status);  // a stream that a client put there
        }
        const unsigned long begin = position < 0 ? regBody_ : static_cast<unsigned long>(position);
        scanInput_ = new (std::nothrow) Input(descriptor, begin, status.size);
        scanStream_ = position;
    } else if (position >= 0 && position != scanStream_) {
        scanInput_->seek(static_cast<unsigned long>(position));  // a client has read from the stream
        scanStream_ = position;
    }
    return scanInput_;
}

// A stream that could not be moved is no sign of a client's reading: the scan goes on where it is.
void FileInternals::placeStream() noexcept {
    if (leavesStream_) {
        return;
    }
    const unsigned long offset = scanInput_->offset();
    const bool placed = posix::placeStream(file_.regFp, offset);
    scanStream_ = placed ? static_cast<long>(offset) : posix::placeOf(file_.regFp);
}

void FileInternals::handOverStream() noexcept {
    if (scanInput_ != nullptr) {
        (void)scanInput();
        placeStream();
        dropScanInput();
    }
}

void FileInternals::readRegistry(Input& input) const noexcept {
    const int descriptor = keepsFiles() ? files_->registry.descriptor : posix::descriptorOf(file_.regFp);
    input.restart(descriptor, regBody_, regSize_);
}

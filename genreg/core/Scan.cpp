// The scan: a registry file held open and read record by record across calls.
#include <genreg/GenRegFile.h>
#include <osse/Errors.h>

#include <cerrno>

#include "genreg/core/ChecksumHeader.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/Input.h"
#include "platform/posix/Posix.h"

using genreg::Function;
using genreg::OperationTrace;

void GenRegFile::dropScanInput() noexcept {
    delete scanInput_;
    scanInput_ = nullptr;
}

unsigned int GenRegFile::OpenScan() noexcept {
    OperationTrace trace{Function::OpenScan};
    if ((state & REG_STATE_CONFIGURED) == 0) {
        return trace.fail(10, REG_NOT_CONFIGURED);
    }
    dropScanInput();
    (void)closeRegistryFile();  // of a scan that was never closed
    state &= ~(REG_STATE_SCAN_OPEN | REG_STATE_SCAN_AT_END);
    if (const unsigned int rc = openRegistryHandle(OSS_ACCESS_READ)) {
        return trace.fail(20, REG_OPEN_FILE_FAILED, rc);
    }
    if (const unsigned int rc = lockRegistryFile(OSS_LOCK_SHARED)) {
        return trace.fail(30, REG_LOCK_FILE_FAILED, rc);
    }
    if (const unsigned int rc = openRegistryStream('r')) {
        return trace.fail(40, REG_OPEN_FILE_FAILED, rc);
    }
    if (usesChecksumHeader()) {
        unsigned int platformCode = 0;
        unsigned int rc = judgeHeader(posix::descriptorOf(regFp), regSize_, &regBody_, &platformCode);
        if (rc != 0) {
            (void)closeRegistryFile();
            return trace.fail(50, rc, platformCode);
        }
        if (regBody_ != 0 && std::fseek(regFp, static_cast<long>(regBody_), SEEK_SET) != 0) {
            rc = trace.fail(60, REG_OPEN_FILE_FAILED, ossErrorMapSystem(errno));
            (void)closeRegistryFile();
            return trace.exit(rc);
        }
    }
    state |= REG_STATE_SCAN_OPEN;
    return 0;
}

unsigned int GenRegFile::CloseScan() noexcept {
    OperationTrace trace{Function::CloseScan};
    dropScanInput();
    const unsigned int rc = closeRegistryFile();
    state &= ~(REG_STATE_SCAN_OPEN | REG_STATE_SCAN_AT_END);
    return rc == 0 ? 0 : trace.fail(10, REG_CLOSE_FILE_FAILED, rc);
}

unsigned int GenRegFile::Rewind() noexcept {
    OperationTrace trace{Function::Rewind};
    posix::FileStatus status = {};
    if (regFp == nullptr || std::fseek(regFp, static_cast<long>(regBody_), SEEK_SET) != 0 ||
        posix::statusOf(posix::descriptorOf(regFp), &status) != 0) {
        return trace.fail(10, REG_REWIND_FAILED);
    }
    // Somebody who knows of no lock may have made the file longer.
    regSize_ = status.size;
    scanStream_ = static_cast<long>(regBody_);
    if (scanInput_ != nullptr) {
        scanInput_->restart(posix::descriptorOf(regFp), regBody_, regSize_);
    }
    state &= ~REG_STATE_SCAN_AT_END;
    return 0;
}

unsigned int GenRegFile::getRegFilePosition(long long* position) noexcept {
    OperationTrace trace{Function::GetRegFilePosition};
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
    const bool scans = scanInput_ != nullptr && at == scanStream_;
    *position = scans ? static_cast<long long>(scanInput_->offset()) : at;
    return 0;
}

unsigned int GenRegFile::setRegFilePosition(long long* position) noexcept {
    OperationTrace trace{Function::SetRegFilePosition};
    if ((state & REG_STATE_SCAN_OPEN) == 0) {
        return trace.fail(10, REG_SCAN_NOT_OPEN);
    }
    if (position == nullptr) {
        return trace.fail(20, REG_NULL_POINTER);
    }
    if (*position < 0 || std::fseek(regFp, static_cast<long>(*position), SEEK_SET) != 0) {
        return trace.fail(30, REG_SET_POSITION_FAILED, ossErrorMapSystem(errno));
    }
    scanStream_ = static_cast<long>(*position);
    if (scanInput_ != nullptr) {
        scanInput_->seek(static_cast<unsigned long>(*position));
    }
    return 0;
}

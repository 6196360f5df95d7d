#include "genreg/core/Transaction.h"

#include <osse/Errors.h>
#include <osse/Files.h>

#include <cerrno>
#include <new>

#include "platform/posix/Posix.h"

using genreg::FirstError;
using genreg::FunctionTrace;
using genreg::RecordBuffer;

unsigned int GenRegTransaction::validate(GenRegFile& file, FunctionTrace& trace, unsigned long mask,
                                         void* record) noexcept {
    if (file.validateRecord == nullptr) {
        return trace.fail(10, REG_NO_VALIDATE_RECORD);
    }
    if (const unsigned int rc = file.validateRecord(mask, record)) {
        return trace.fail(20, REG_RECORD_REFUSED, rc);
    }
    return 0;
}

unsigned int GenRegTransaction::recordSize(GenRegFile& file, FunctionTrace& trace, unsigned long* size) noexcept {
    if (file.getMaxRecordSize == nullptr) {
        return trace.fail(30, REG_NO_GET_MAX_RECORD_SIZE);
    }
    *size = 0;
    (void)file.getMaxRecordSize(size);
    if (*size < REG_MIN_RECORD_SIZE) {
        return trace.fail(40, REG_RECORD_TOO_SMALL);
    }
    if (*size > REG_MAX_RECORD_SIZE) {
        return trace.fail(50, REG_RECORD_SIZE_REFUSED);
    }
    return 0;
}

unsigned int GenRegTransaction::prepare(GenRegFile& file, FunctionTrace& trace, unsigned long mask, void* record,
                                        RecordBuffer& buffer, unsigned long* size) noexcept {
    if (const unsigned int rc = validate(file, trace, mask, record)) {
        return rc;
    }
    if (const unsigned int rc = recordSize(file, trace, size)) {
        return rc;
    }
    if (!buffer.allocate(*size)) {
        return trace.fail(60, REG_NO_RECORD_BUFFER);
    }
    return 0;
}

unsigned int GenRegTransaction::update(GenRegFile& file, FunctionTrace& trace, const genreg::UpdatePlan& plan,
                                       genreg::UpdateSteps& steps, RecordBuffer& buffer) noexcept {
    const bool add = plan.operation == REG_OP_ADD;
    const bool deferred = (file.features & REG_FEATURE_DEFERRED_COMMIT) != 0;
    const unsigned long lock = REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT | (add ? REG_LOCK_CREATE_DIR : 0);
    if (const unsigned int rc = file.Lock(lock, 10)) {
        return trace.fail(70, REG_LOCK_FAILED, rc);
    }
    FirstError result;
    unsigned long closeMode = plan.operation;
    if (const unsigned int rc = file.OpenReg(plan.operation)) {
        closeMode = REG_OP_READ;
        result.note(trace.fail(80, REG_OPEN_FAILED, rc));
    }
    const bool copied = file.tmpFp != nullptr;
    if (result.none()) {
        result.note(steps.copy(&closeMode));
    }
    if (const unsigned int rc = file.CloseReg(closeMode)) {
        result.note(trace.fail(200, REG_CLOSE_FAILED, rc));
    }
    if (deferred && closeMode != REG_OP_READ && result.none()) {
        if (const unsigned int rc = steps.prepareVerify()) {
            result.note(rc);
        } else if (const unsigned int failed = steps.verify()) {
            result.note(trace.fail(210, REG_VERIFY_FAILED, failed));
        }
    }
    const bool abandoned = closeMode == REG_OP_READ || result.code() == REG_UNCHANGED;
    if (deferred && plan.discards && abandoned && copied && !file.copyIsParents()) {
        if (const unsigned int rc = ossFileDelete(file.tmpPath)) {
            result.note(trace.fail(220, REG_DISCARD_FAILED, rc));
        }
    }
    if (const unsigned int rc = file.UnLock()) {
        result.note(trace.fail(230, REG_UNLOCK_FAILED, rc));
    }
    if (const unsigned int rc = steps.release()) {
        result.note(trace.fail(235, REG_FREE_RECORD_FAILED, rc));
    }
    if (const unsigned int rc = buffer.release()) {
        result.note(trace.fail(240, REG_FREE_RECORD_FAILED, rc));
    }
    if (result.none()) {
        result.note(announce(file, trace, plan));
    }
    return trace.exit(result.code());
}

unsigned int GenRegTransaction::announce(GenRegFile& file, FunctionTrace& trace,
                                         const genreg::UpdatePlan& plan) noexcept {
    const genreg::CauseMark cause;
    if (plan.logs && (file.features & REG_FEATURE_CHANGE_LOG) != 0 && file.logChange != nullptr) {
        if (const unsigned int rc = file.logChange(&file, plan.operation, plan.first, plan.second)) {
            trace.ignore(250, rc);
            cause.restore();
            return 0;
        }
    }
    if ((file.features & REG_FEATURE_NOTIFY) != 0) {
        if (file.notifyChange == nullptr) {
            return trace.fail(260, REG_NO_NOTIFY);
        }
        if (const unsigned int rc = file.notifyChange()) {
            trace.ignore(270, rc);
        }
    }
    cause.restore();
    return 0;
}

unsigned int GenRegTransaction::verify(GenRegFile& file, FunctionTrace& trace, const char* tag,
                                       genreg::VerifySteps& steps) noexcept {
    unsigned long size = 0;
    if (const unsigned int rc = recordSize(file, trace, &size)) {
        return rc;
    }
    RecordBuffer oldRecord{tag};
    RecordBuffer newRecord{tag};
    if (!oldRecord.allocate(size)) {
        return trace.fail(60, REG_NO_OLD_RECORD_BUFFER);
    }
    if (!newRecord.allocate(size)) {
        return trace.fail(70, REG_NO_NEW_RECORD_BUFFER);
    }
    FirstError result;
    unsigned long closeMode = REG_OP_READ;
    if (const unsigned int rc = file.OpenReg(REG_OP_FINISH)) {
        result.note(trace.fail(80, REG_OPEN_FAILED, rc));
    } else {
        posix::FileStatus copy = {};
        const int descriptor = posix::descriptorOf(file.tmpFp);
        if (const unsigned int unread = posix::statusOf(descriptor, &copy)) {
            result.note(trace.fail(90, REG_VERIFY_READ_FAILED, unread));
        } else {
            GenRegInput before{-1, 0, 0};
            readRegistry(file, before);
            GenRegInput after{descriptor, file.tmpBody_, copy.size};
            result.note(steps.walk(before, after, oldRecord, newRecord, &closeMode));
        }
    }
    if (const unsigned int rc = file.CloseReg(closeMode)) {
        result.note(trace.fail(300, REG_CLOSE_FAILED, rc));
    }
    if (const unsigned int rc = newRecord.release()) {
        result.note(trace.fail(310, REG_FREE_NEW_RECORD_FAILED, rc));
    }
    if (const unsigned int rc = oldRecord.release()) {
        result.note(trace.fail(320, REG_FREE_OLD_RECORD_FAILED, rc));
    }
    return trace.exit(result.code());
}

bool GenRegTransaction::addsInPlace(const GenRegFile& file) noexcept {
    return (file.features & (REG_FEATURE_ALLOW_DUPLICATES | REG_FEATURE_DEFERRED_COMMIT)) ==
           REG_FEATURE_ALLOW_DUPLICATES;
}

unsigned int GenRegTransaction::checkScan(const GenRegFile& file, FunctionTrace& trace) noexcept {
    if ((file.state & REG_STATE_SCAN_OPEN) == 0) {
        return trace.fail(5, REG_SCAN_NOT_OPEN);
    }
    return file.holdsParentsFiles() ? trace.fail(7, REG_READ_FAILED, ossErrorMapSystem(EBADF)) : 0;
}

GenRegInput* GenRegTransaction::scanInput(GenRegFile& file) noexcept {
    if (file.scanInput_ == nullptr) {
        const int descriptor = posix::descriptorOf(file.regFp);
        const long position = std::ftell(file.regFp);
        posix::FileStatus status = {};
        status.size = file.regSize_;
        if (!file.regStreamOnHandle_) {
            (void)posix::statusOf(descriptor, &status);  // a stream that a client put there
        }
        file.scanInput_ = new (std::nothrow)
            GenRegInput(descriptor, position < 0 ? file.regBody_ : static_cast<unsigned long>(position), status.size);
        file.scanStream_ = position;
        return file.scanInput_;
    }
    const long position = std::ftell(file.regFp);
    if (position >= 0 && position != file.scanStream_) {
        file.scanInput_->seek(static_cast<unsigned long>(position));  // a client has read from the stream
        file.scanStream_ = position;
    }
    return file.scanInput_;
}

// A stream that could not be moved is no sign of a client's reading: the scan goes on where it is.
void GenRegTransaction::placeStream(GenRegFile& file) noexcept {
    const unsigned long offset = file.scanInput_->offset();
    const bool placed = posix::placeStream(file.regFp, offset);
    file.scanStream_ = placed ? static_cast<long>(offset) : std::ftell(file.regFp);
}

void GenRegTransaction::handOverStream(GenRegFile& file) noexcept {
    if (file.scanInput_ != nullptr) {
        (void)scanInput(file);
        placeStream(file);
        file.dropScanInput();
    }
}

void GenRegTransaction::readRegistry(const GenRegFile& file, GenRegInput& input) noexcept {
    input.restart(posix::descriptorOf(file.regFp), file.regBody_, file.regSize_);
}

unsigned int GenRegLookup::open(bool passMissing) noexcept {
    constexpr unsigned long IN_SCAN = REG_FEATURE_GET_IN_SCAN;
    if ((file_.state & REG_STATE_SCAN_OPEN) != 0 && (file_.features & IN_SCAN) != 0) {
        scanWasAtEnd_ = (file_.state & REG_STATE_SCAN_AT_END) != 0;
        scan_ = GenRegTransaction::scanInput(file_);
        if (scan_ == nullptr) {
            return trace_.fail(70, REG_NO_RECORD_BUFFER);
        }
        inScan_ = open_ = true;
        unsigned int rc = file_.getRegFilePosition(&scanPosition_);
        if (rc == 0) {
            rc = file_.Rewind();
        }
        return rc == 0 ? 0 : trace_.fail(75, REG_OPEN_FAILED, rc);
    }
    if (const unsigned int rc = file_.OpenReg(REG_OP_READ)) {
        (void)file_.CloseReg(REG_OP_READ);
        return rc == REG_MISSING && passMissing ? trace_.failMildly(80, rc) : trace_.fail(85, REG_OPEN_FAILED, rc);
    }
    GenRegTransaction::readRegistry(file_, own_);
    open_ = true;
    return 0;
}

unsigned int GenRegLookup::close() noexcept {
    if (!open_) {
        return 0;
    }
    open_ = false;
    if (!inScan_) {
        const unsigned int rc = file_.CloseReg(REG_OP_READ);
        return rc == 0 ? 0 : trace_.fail(200, REG_CLOSE_FAILED, rc);
    }
    const unsigned int rc = file_.setRegFilePosition(&scanPosition_);
    if (scanWasAtEnd_) {
        file_.state |= REG_STATE_SCAN_AT_END;
    }
    return rc == 0 ? 0 : trace_.fail(205, REG_CLOSE_FAILED, rc);
}

#include "genreg/core/Transaction.h"

#include <osse/Files.h>

namespace genreg {

unsigned int Transaction::validate(unsigned long mask, void* record) noexcept {
    if (file_.validateRecord == nullptr) {
        return trace_.fail(10, REG_NO_VALIDATE_RECORD);
    }
    if (const unsigned int rc = file_.validateRecord(mask, record)) {
        return trace_.fail(20, REG_RECORD_REFUSED, rc);
    }
    return 0;
}

unsigned int Transaction::recordSize(unsigned long* size) noexcept {
    if (file_.getMaxRecordSize == nullptr) {
        return trace_.fail(30, REG_NO_GET_MAX_RECORD_SIZE);
    }
    *size = 0;
    (void)file_.getMaxRecordSize(size);
    if (*size < REG_MIN_RECORD_SIZE) {
        return trace_.fail(40, REG_RECORD_TOO_SMALL);
    }
    if (*size > REG_MAX_RECORD_SIZE) {
        return trace_.fail(50, REG_RECORD_SIZE_REFUSED);
    }
    return 0;
}

unsigned int Transaction::prepare(unsigned long mask, void* record, RecordBuffer& buffer,
                                  unsigned long* size) noexcept {
    if (const unsigned int rc = validate(mask, record)) {
        return rc;
    }
    if (const unsigned int rc = recordSize(size)) {
        return rc;
    }
    return hold(buffer, *size);
}

unsigned int Transaction::hold(RecordBuffer& buffer, unsigned long size) noexcept {
    return buffer.ensure(size) ? 0 : trace_.fail(60, REG_NO_RECORD_BUFFER);
}

unsigned int Transaction::update(const UpdateCall& call, const UpdatePlan& plan, UpdateSteps& steps,
                                 RecordBuffer& buffer) noexcept {
    if (inside_.batch() != nullptr) {
        return updateInBatch(call, steps, buffer);
    }
    const bool add = call.operation == REG_OP_ADD;
    const bool deferred = (file_.features & REG_FEATURE_DEFERRED_COMMIT) != 0;
    const unsigned long lock = REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT | (add ? REG_LOCK_CREATE_DIR : 0);
    if (const unsigned int rc = plan.isCommit ? 0 : file_.Lock(lock, 10)) {
        return trace_.fail(70, REG_LOCK_FAILED, rc);
    }
    FirstError result;
    UpdateFiles files;
    unsigned long closeMode = call.operation;
    if (const unsigned int rc = inside_.openToCopy(call.operation, files)) {
        closeMode = REG_OP_READ;
        result.note(notOpened(rc));
    }
    const bool copied = inside_.hasCopy();
    if (result.none()) {
        const unsigned int rc = steps.copy();
        closeMode = steps.completes(rc) ? closeMode : REG_OP_READ;
        result.note(rc);
        if (rc != 0) {
            inside_.doubtNames();
        }
    }
    const bool verifies = deferred && closeMode != REG_OP_READ && result.none();
    const bool abandoned = closeMode == REG_OP_READ || result.code() == REG_UNCHANGED;
    const bool discards = deferred && plan.discards && abandoned && copied;
    const CopyFate fate = verifies ? CopyFate::Compared : discards ? CopyFate::Removed : CopyFate::Left;
    if (const unsigned int rc = inside_.closeCopied(closeMode, fate)) {
        result.note(notClosed(rc));
    }
    if (verifies && result.none()) {
        result.note(verifyCopy(steps));
    }
    if (discards && !inside_.copyIsParents()) {
        if (const unsigned int rc = ossFileDelete(file_.tmpPath)) {
            result.note(trace_.fail(220, REG_DISCARD_FAILED, rc));
        }
    }
    if (const unsigned int rc = file_.UnLock()) {
        result.note(trace_.fail(230, REG_UNLOCK_FAILED, rc));
    }
    inside_.settle();
    result.note(releaseAll(steps, buffer));
    if (result.none() && !plan.isCommit) {
        result.note(announce(call, plan.logs));
    }
    return trace_.exit(result.code());
}

unsigned int Transaction::notOpened(unsigned int rc) noexcept {
    return trace_.fail(80, REG_OPEN_FAILED, rc);
}

unsigned int Transaction::notClosed(unsigned int rc) noexcept {
    return trace_.fail(200, REG_CLOSE_FAILED, rc);
}

unsigned int Transaction::verifyCopy(UpdateSteps& steps) noexcept {
    if (const unsigned int rc = steps.prepareVerify()) {
        return rc;
    }
    const unsigned int rc = steps.verify();
    return rc == 0 ? 0 : trace_.fail(210, REG_VERIFY_FAILED, rc);
}

unsigned int Transaction::releaseAll(UpdateSteps& steps, RecordBuffer& buffer) noexcept {
    FirstError result;
    if (const unsigned int rc = steps.release()) {
        result.note(trace_.fail(235, REG_FREE_RECORD_FAILED, rc));
    }
    if (const unsigned int rc = buffer.release()) {
        result.note(trace_.fail(240, REG_FREE_RECORD_FAILED, rc));
    }
    return result.code();
}

bool Transaction::logsChanges() const noexcept {
    return (file_.features & REG_FEATURE_CHANGE_LOG) != 0 && file_.logChange != nullptr;
}

// REG_NO_NOTIFY. What the function itself answers is logged.
unsigned int Transaction::notify() noexcept {
    if ((file_.features & REG_FEATURE_NOTIFY) == 0) {
        return 0;
    }
    if (file_.notifyChange == nullptr) {
        return trace_.fail(260, REG_NO_NOTIFY);
    }
    if (const unsigned int rc = file_.notifyChange()) {
        trace_.ignore(270, rc);
    }
    return 0;
}

unsigned int Transaction::announce(const UpdateCall& call, bool logs) noexcept {
    const CauseMark cause;
    const bool add = call.operation == REG_OP_ADD;
    void* const first = add ? call.record : call.key;
    void* const second = add ? nullptr : call.record;
    if (logs && logsChanges()) {
        if (const unsigned int rc = file_.logChange(&file_, call.operation, first, second)) {
            trace_.ignore(250, rc);
            cause.restore();
            return 0;
        }
    }
    if (const unsigned int rc = notify()) {
        return rc;
    }
    cause.restore();
    return 0;
}

unsigned int Transaction::verify(VerifySteps& steps) noexcept {
    unsigned long size = 0;
    if (const unsigned int rc = recordSize(&size)) {
        return rc;
    }
    RecordBuffer oldRecord{tag_};
    RecordBuffer newRecord{tag_};
    if (!oldRecord.allocate(size)) {
        return trace_.fail(60, REG_NO_OLD_RECORD_BUFFER);
    }
    if (!newRecord.allocate(size)) {
        return trace_.fail(70, REG_NO_NEW_RECORD_BUFFER);
    }
    FirstError result;
    unsigned long closeMode = REG_OP_READ;
    Input own{-1, 0, 0};
    Input& before = inside_.inputOr(own);
    Input after{-1, 0, 0};
    unsigned int unread = 0;
    if (const unsigned int rc = inside_.openToCompare(before, after, &unread)) {
        result.note(trace_.fail(80, REG_OPEN_FAILED, rc));
    } else if (unread != 0) {
        result.note(trace_.fail(90, REG_VERIFY_READ_FAILED, unread));
    } else {
        result.note(steps.walk(before, after, oldRecord, newRecord, &closeMode));
    }
    if (const unsigned int rc = inside_.closeCompared(closeMode)) {
        result.note(trace_.fail(300, REG_CLOSE_FAILED, rc));
    }
    if (const unsigned int rc = newRecord.release()) {
        result.note(trace_.fail(310, REG_FREE_NEW_RECORD_FAILED, rc));
    }
    if (const unsigned int rc = oldRecord.release()) {
        result.note(trace_.fail(320, REG_FREE_OLD_RECORD_FAILED, rc));
    }
    return trace_.exit(result.code());
}

}  // namespace genreg

// The frames of a batch: its begin, its updates, its commit.
#include <osse/Errors.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "genreg/core/Batch.h"

using genreg::Batch;
using genreg::CauseMark;
using genreg::Contents;
using genreg::FileInternals;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::RecordBuffer;
using genreg::Transaction;

namespace {

constexpr const char* TAG = "Batch";
constexpr unsigned long LOCK = REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT | REG_LOCK_CREATE_DIR;

// Holds what is on the medium against what was read and what was made.
class BatchVerify final : public genreg::VerifySteps {
public:
    BatchVerify(FunctionTrace& trace, const Batch& batch) noexcept : trace_(trace), batch_(batch) {}

    unsigned int walk(Input& before, Input& after, RecordBuffer& /*oldRecord*/, RecordBuffer& /*newRecord*/,
                      unsigned long* closeMode) noexcept override {
        if (!holds(before, batch_.old(), batch_.oldSize())) {
            return before.error() != 0 ? trace_.fail(150, REG_READ_FAILED, before.error())
                                       : trace_.fail(140, REG_VERIFY_DIFFERS_EARLY);
        }
        if (!holds(after, batch_.contents().bytes(), batch_.contents().size())) {
            return after.error() != 0 ? trace_.fail(160, REG_VERIFY_READ_FAILED, after.error())
                                      : trace_.fail(110, REG_VERIFY_WRONG_RECORD);
        }
        *closeMode = REG_OP_FINISH;
        return 0;
    }

private:
    static bool holds(Input& input, const char* bytes, unsigned long size) noexcept {
        constexpr unsigned long PIECE = 64UL * 1024;
        unsigned long at = 0;
        while (at < size) {
            const std::size_t wanted = std::min(PIECE, size - at);
            if (input.fill(wanted) < wanted || std::memcmp(input.data(), bytes + at, wanted) != 0) {
                return false;
            }
            input.consume(wanted);
            at += wanted;
        }
        return input.fill(1) == 0 && input.error() == 0;
    }

    FunctionTrace& trace_;
    const Batch& batch_;
};

// Writes the contents of a batch as one update of the file.
class BatchCommit final : public genreg::UpdateSteps {
public:
    BatchCommit(GenRegFile& file, FunctionTrace& trace, const Batch& batch) noexcept
        : file_(file), trace_(trace), batch_(batch) {}

    unsigned int copy() noexcept override {
        genreg::Output& output = FileInternals::of(file_).output();
        const Contents& contents = batch_.contents();
        const bool written = contents.size() == 0 || output.write(contents.bytes(), contents.size());
        return written ? 0 : trace_.fail(145, REG_COPY_WRITE_FAILED, ossErrorMapSystem(errno));
    }
    unsigned int verify() noexcept override {
        FunctionTrace trace{Function::VerifyBatch};
        BatchVerify steps{trace, batch_};
        return Transaction{file_, trace, TAG}.verify(steps);
    }

private:
    GenRegFile& file_;
    FunctionTrace& trace_;
    const Batch& batch_;
};

}  // namespace

namespace genreg {

// Makes the update of what may concern it, in memory. What follows the copy is what follows it with files.
unsigned int Transaction::updateInBatch(const UpdateCall& call, UpdateSteps& steps, RecordBuffer& buffer) noexcept {
    Batch& batch = *inside_.batch();
    const bool deferred = (file_.features & REG_FEATURE_DEFERRED_COMMIT) != 0;
    UpdateFiles files;
    if (const unsigned int rc = openInBatch(call, steps, files)) {
        return notOpened(rc);
    }
    inside_.useInBatch(&files);
    FirstError result;
    const unsigned int copied = steps.copy();
    result.note(copied);
    files.verified = !deferred && steps.completes(copied);
    if (deferred && copied == 0) {
        result.note(verifyCopy(steps));
    }
    if (const unsigned int rc = files.verified ? batch.take(files) : 0) {
        result.note(notClosed(rc));
    }
    inside_.useInBatch(nullptr);
    if (batch.again()) {
        return AGAIN;
    }
    result.note(releaseAll(steps, buffer));
    unsigned long size = 0;
    if (result.none() && logsChanges() && recordSize(&size) == 0 &&
        !batch.remember(call, file_.changeLoggingFuncId, size)) {
        trace_.ignore(255, REG_NO_MEMORY);
    }
    return trace_.exit(result.code());
}

// What OpenReg says of a file.
unsigned int Transaction::openInBatch(const UpdateCall& call, UpdateSteps& steps, UpdateFiles& files) noexcept {
    Batch& batch = *inside_.batch();
    if ((file_.state & REG_STATE_SCAN_OPEN) != 0) {
        return REG_SCAN_OPEN;
    }
    if (inside_.holdsParentsLock()) {
        return REG_OPEN_FILE_FAILED;
    }
    if (batch.missing() && call.operation != REG_OP_ADD) {
        return REG_MISSING;
    }
    const bool blindly = call.operation == REG_OP_ADD && inside_.addsBlindly();
    return batch.open(steps, call, file_.features, blindly, files);
}

unsigned int Transaction::announce(const Batch& batch) noexcept {
    const CauseMark cause;
    const unsigned int caller = file_.changeLoggingFuncId;
    batch.recall([&](unsigned int changer, unsigned long operation, void* first, void* second) {
        file_.changeLoggingFuncId = changer;
        if (const unsigned int rc = logsChanges() ? file_.logChange(&file_, operation, first, second) : 0) {
            trace_.ignore(250, rc);
        }
    });
    file_.changeLoggingFuncId = caller;
    const unsigned int rc = notify();
    if (rc == 0) {
        cause.restore();
    }
    return rc;
}

}  // namespace genreg

unsigned int GenRegFile::BeginBatch() noexcept {
    OperationTrace trace{Function::BeginBatch};
    FileInternals& inside = FileInternals::of(*this);
    if (inside.batch_ != nullptr) {
        return trace.fail(10, REG_BATCH_OPEN);
    }
    if ((state & REG_STATE_SCAN_OPEN) != 0) {
        return trace.fail(20, REG_SCAN_OPEN);
    }
    if (const unsigned int rc = Lock(LOCK, 10)) {
        return trace.fail(70, REG_LOCK_FAILED, rc);
    }
    char* bytes = nullptr;
    unsigned long size = 0;
    bool missing = false;
    unsigned int rc = Transaction{*this, trace, TAG}.readWhole(&bytes, &size, &missing);
    if (rc == 0) {
        inside.batch_ = new (std::nothrow) Batch(missing);
        if (inside.batch_ == nullptr) {
            std::free(bytes);
        }
        if (inside.batch_ == nullptr || !inside.batch_->begin(bytes, size)) {
            rc = trace.fail(90, REG_NO_MEMORY);
        }
    }
    if (rc == 0) {
        return 0;
    }
    const CauseMark cause;
    (void)AbandonBatch();
    if ((state & REG_STATE_LOCKED) != 0) {
        (void)UnLock();
    }
    cause.restore();
    return trace.exit(rc);
}

// The cause of what made somebody abandon it stays.
unsigned int GenRegFile::AbandonBatch() noexcept {
    FileInternals& inside = FileInternals::of(*this);
    const bool open = inside.batch_ != nullptr;
    const genreg::OutermostCall call{open ? genreg::Cause::Kept : genreg::Cause::Forgotten};
    FunctionTrace trace{Function::AbandonBatch};
    if (!open) {
        return trace.fail(10, REG_NO_BATCH);
    }
    delete inside.batch_;
    inside.batch_ = nullptr;
    const unsigned int rc = (state & REG_STATE_LOCKED) != 0 ? UnLock() : 0;
    return rc == 0 ? 0 : trace.fail(230, REG_UNLOCK_FAILED, rc);
}

unsigned int GenRegFile::CommitBatch() noexcept {
    OperationTrace trace{Function::CommitBatch};
    FileInternals& inside = FileInternals::of(*this);
    if (inside.batch_ == nullptr) {
        return trace.fail(10, REG_NO_BATCH);
    }
    const bool held = (state & REG_STATE_LOCKED) != 0 && !inside.holdsParentsLock();
    const bool whole = inside.batch_->pack();
    if (!held || !whole || inside.batch_->changesNothing()) {
        const unsigned int rc = !held    ? trace.fail(75, REG_LOCK_FAILED, ossErrorMapSystem(EBADF))
                                : !whole ? trace.fail(90, REG_NO_MEMORY)
                                         : trace.failMildly(155, REG_UNCHANGED);
        const CauseMark cause;
        const unsigned int abandoned = AbandonBatch();
        cause.restore();
        return rc != REG_UNCHANGED || abandoned == 0 ? rc : abandoned;
    }
    const std::unique_ptr<Batch> batch(inside.batch_);
    inside.batch_ = nullptr;
    const unsigned long wanted = features;
    features |= REG_FEATURE_DEFERRED_COMMIT;
    BatchCommit steps{*this, trace, *batch};
    RecordBuffer none{TAG};
    Transaction transaction{*this, trace, TAG};
    const unsigned long operation = batch->makesFile() ? REG_OP_ADD : REG_OP_CHANGE;
    const unsigned int rc = transaction.update({operation, 0, nullptr, nullptr},
                                               {.discards = true, .logs = false, .isCommit = true}, steps, none);
    features = wanted;
    return rc == 0 ? trace.exit(transaction.announce(*batch)) : rc;
}

// Checking an update: do the old and the new file differ by just what was asked for?
#include "genreg/bin/Frames.h"
#include "genreg/core/Transaction.h"

using genreg::EVERY_FIELD;
using genreg::Frame;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;
using genreg::RecordBuffer;

namespace {

class BinVerify final : public genreg::VerifySteps {
public:
    BinVerify(GenRegBin& engine, FunctionTrace& trace, unsigned long operation, unsigned long mask, void* record,
              void* key) noexcept
        : trace_(trace), frames_(engine, trace), operation_(operation), mask_(mask), record_(record), key_(key) {}

    unsigned int walk(GenRegInput& before, GenRegInput& after, RecordBuffer& oldRecord, RecordBuffer& newRecord,
                      unsigned long* closeMode) noexcept override {
        before_ = &before;
        after_ = &after;
        oldRecord_ = &oldRecord;
        newRecord_ = &newRecord;
        if (const unsigned int rc = frames_.checkMatch()) {
            return rc;
        }
        unsigned int rc = walkTogether();
        if (rc == 0) {
            rc = checkEnd();
        }
        if (rc != 0) {
            // An early difference came first.
            return differedEarly_ ? static_cast<unsigned int>(REG_VERIFY_DIFFERS_EARLY) : rc;
        }
        if (count_ == 0) {
            return trace_.fail(260, REG_VERIFY_NO_DIFFERENCE);
        }
        // Kept: an early difference and a count too high are reported, and the file is replaced all the same.
        *closeMode = REG_OP_FINISH;
        if (differedEarly_) {
            return REG_VERIFY_DIFFERS_EARLY;
        }
        if (count_ > 1 && !frames_.has(REG_FEATURE_ALLOW_DUPLICATES)) {
            return trace_.fail(250, REG_VERIFY_SEVERAL_CHANGED);
        }
        return 0;
    }

private:
    // One file's place in the walk: the frame read last, or why there is none.
    struct Side {
        Frame frame = {};
        unsigned int rc = 0;
        [[nodiscard]] bool has() const noexcept { return rc == 0; }
        [[nodiscard]] bool atEnd() const noexcept { return rc == REG_NO_MORE_RECORDS; }
    };

    void readOld() noexcept { old_.rc = frames_.next(*before_, &old_.frame); }
    void readNew() noexcept { new_.rc = frames_.next(*after_, &new_.frame); }

    // REG_UNPACK_FAILED, REG_NO_UNPACK_RECORD.
    [[nodiscard]] unsigned int unpack(const Side& side, RecordBuffer& record) noexcept {
        unsigned int rc = frames_.check(side.frame);
        rc = rc != 0 ? rc : frames_.unpack(side.frame, record);
        const bool unreadNew = rc == REG_READ_FAILED && &side == &new_;
        return unreadNew ? trace_.fail(165, REG_VERIFY_READ_FAILED, rc) : rc;
    }

    // Whether the two frames hold equal records; both are unpacked when they do not for certain.
    [[nodiscard]] unsigned int compare(bool* equal) noexcept {
        if (frames_.surelyEqual(old_.frame, new_.frame) && frames_.check(old_.frame) == 0) {
            *equal = true;
            return 0;
        }
        if (const unsigned int rc = unpack(old_, *oldRecord_)) {
            return rc;
        }
        if (const unsigned int rc = unpack(new_, *newRecord_)) {
            return rc;
        }
        *equal = frames_.match(EVERY_FIELD, oldRecord_->get(), newRecord_->get()) != 0;
        return 0;
    }

    [[nodiscard]] unsigned int walkTogether() noexcept {
        readOld();
        readNew();
        while (old_.has() && new_.has()) {
            bool equal = false;
            if (const unsigned int rc = compare(&equal)) {
                return rc;
            }
            if (!equal) {
                if (const unsigned int rc = judgeDifference()) {
                    return rc;
                }
            }
            readOld();
            readNew();
        }
        if (!old_.has() && !old_.atEnd()) {
            return trace_.fail(150, REG_READ_FAILED, old_.rc);
        }
        if (!new_.has() && !new_.atEnd()) {
            return trace_.fail(160, REG_VERIFY_READ_FAILED, new_.rc);
        }
        return 0;
    }

    [[nodiscard]] unsigned int judgeDifference() noexcept {
        switch (operation_) {
            case REG_OP_CHANGE:
                if (frames_.match(mask_, oldRecord_->get(), key_) != 1) {
                    return trace_.fail(100, REG_VERIFY_KEY_DIFFERS);
                }
                if (frames_.match(EVERY_FIELD, newRecord_->get(), record_) == 0) {
                    return trace_.fail(110, REG_VERIFY_WRONG_RECORD);
                }
                ++count_;
                return 0;
            case REG_OP_DELETE:
                return dropOldRecords();
            default:
                if (!differedEarly_) {
                    differedEarly_ = true;
                    (void)trace_.fail(140, REG_VERIFY_DIFFERS_EARLY);
                }
                return 0;
        }
    }

    // Old records that the delete removed, up to the one that the new file goes on with.
    [[nodiscard]] unsigned int dropOldRecords() noexcept {
        for (bool level = false; !level;) {
            if (frames_.match(mask_, oldRecord_->get(), key_) != 1) {
                return trace_.fail(120, REG_VERIFY_LOST_RECORD);
            }
            ++count_;
            readOld();
            if (!old_.has()) {
                return old_.atEnd() ? trace_.fail(130, REG_VERIFY_OLD_ENDED)
                                    : trace_.fail(125, REG_READ_FAILED, old_.rc);
            }
            if (const unsigned int rc = compare(&level)) {
                return rc;
            }
        }
        return 0;
    }

    [[nodiscard]] unsigned int checkEnd() noexcept {
        switch (operation_) {
            case REG_OP_CHANGE:
                return old_.has() && new_.atEnd() ? trace_.fail(170, REG_VERIFY_LENGTH_DIFFERS) : 0;
            case REG_OP_ADD:
                return checkAdded();
            case REG_OP_DELETE:
                return checkDropped();
            default:
                return 0;
        }
    }

    [[nodiscard]] unsigned int checkAdded() noexcept {
        if (!old_.atEnd() || !new_.has()) {
            return trace_.fail(180, REG_VERIFY_NOTHING_ADDED);
        }
        if (const unsigned int rc = unpack(new_, *newRecord_)) {
            return rc;
        }
        if (frames_.match(EVERY_FIELD, newRecord_->get(), record_) == 0) {
            return trace_.fail(190, REG_VERIFY_OTHER_ADDED);
        }
        ++count_;
        readNew();
        if (new_.has()) {
            return trace_.fail(200, REG_VERIFY_SEVERAL_ADDED);
        }
        return new_.atEnd() ? 0 : trace_.fail(205, REG_VERIFY_READ_FAILED, new_.rc);
    }

    [[nodiscard]] unsigned int checkDropped() noexcept {
        for (; old_.has(); readOld()) {
            if (const unsigned int rc = unpack(old_, *oldRecord_)) {
                return rc;
            }
            if (frames_.match(mask_, oldRecord_->get(), key_) != 1) {
                return trace_.fail(210, REG_VERIFY_WRONG_RECORD);
            }
            ++count_;
        }
        if (!old_.atEnd()) {
            return trace_.fail(215, REG_READ_FAILED, old_.rc);
        }
        if (new_.has()) {
            return count_ == 0 ? trace_.fail(220, REG_VERIFY_OLD_ENDED) : trace_.fail(230, REG_VERIFY_WRONG_RECORD);
        }
        return 0;
    }

    FunctionTrace& trace_;
    GenRegBinFrames frames_;
    unsigned long operation_;
    unsigned long mask_;
    void* record_;
    void* key_;
    GenRegInput* before_ = nullptr;
    GenRegInput* after_ = nullptr;
    RecordBuffer* oldRecord_ = nullptr;
    RecordBuffer* newRecord_ = nullptr;
    Side old_;
    Side new_;
    unsigned long count_ = 0;
    bool differedEarly_ = false;
};

}  // namespace

unsigned int GenRegBin::Verify(unsigned long operationCode, unsigned long matchType, void* record, void* key) noexcept {
    OperationTrace trace{Function::BinVerify};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    BinVerify steps{*this, trace, operationCode, matchType, record, key};
    return GenRegTransaction::verify(*this, trace, "GenRegBin", steps);
}

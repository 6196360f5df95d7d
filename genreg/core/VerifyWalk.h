// The walk of a verification: do the old and the new file differ by just what was asked for?
//
// An engine derives from it, naming itself and its Item (a frame, a line), and adds
//   begin()                    what has to be there before the first record is read; 0 or why it is not
//   read(Input&, Item*)        0, REG_NO_MORE_RECORDS, else why there is no item
//   skipEqual(Input&, Input&)  goes past items at hand, the same ones in both, that compare() would find equal
//   load(Side)                 the record of the side's item into its buffer
//   compare(bool* equal)       whether both sides hold equal records; both are loaded when they do not for certain
//   match(mask, record, key)   what MatchRecord says
//   has(feature)               of the object
//   matchesKey(), lengthDiffers(), STOPS_AT_EARLY_DIFFERENCE  where the engines judge apart
//   unreadAdded(), unreadDropped()                            as the engine tells a file that could not be read on
#pragma once

#include "genreg/core/Transaction.h"

namespace genreg {

template <typename Engine, typename Item>
class VerifyWalk : public VerifySteps {
public:
    unsigned int walk(Input& before, Input& after, RecordBuffer& oldRecord, RecordBuffer& newRecord,
                      unsigned long* closeMode) noexcept override {
        old_.open(before, oldRecord);
        new_.open(after, newRecord);
        if (const unsigned int rc = engine().begin()) {
            return rc;
        }
        unsigned int rc = walkTogether();
        rc = rc != 0 ? rc : readErrors();
        rc = rc != 0 ? rc : checkEnd();
        if (rc != 0) {
            return differedEarly_ ? static_cast<unsigned int>(REG_VERIFY_DIFFERS_EARLY) : rc;  // which came first
        }
        if (count_ == 0) {
            return trace_.fail(260, REG_VERIFY_NO_DIFFERENCE);
        }
        // Kept: an early difference and more changes than one are reported, and the file is replaced all the same.
        *closeMode = REG_OP_FINISH;
        if (differedEarly_) {
            return REG_VERIFY_DIFFERS_EARLY;
        }
        const bool several = count_ > 1 && !engine().has(REG_FEATURE_ALLOW_DUPLICATES);
        return several ? trace_.fail(250, REG_VERIFY_SEVERAL_CHANGED) : 0;
    }

protected:
    // One file's place in the walk: the item read last, or why there is none.
    struct Side {
        Input* input = nullptr;
        RecordBuffer* buffer = nullptr;
        Item item = {};
        unsigned int rc = 0;
        void open(Input& from, RecordBuffer& into) noexcept {
            input = &from;
            buffer = &into;
        }
        [[nodiscard]] void* record() const noexcept { return buffer->get(); }
        [[nodiscard]] bool has() const noexcept { return rc == 0; }
        [[nodiscard]] bool atEnd() const noexcept { return rc == REG_NO_MORE_RECORDS; }
    };

    VerifyWalk(FunctionTrace& trace, const UpdateCall& call) noexcept : trace_(trace), call_(call) {}
    ~VerifyWalk() = default;

    // Why a file could not be read to its end.
    [[nodiscard]] unsigned int readErrors() noexcept {
        if (!old_.has() && !old_.atEnd()) {
            return trace_.fail(150, REG_READ_FAILED, old_.rc);
        }
        if (!new_.has() && !new_.atEnd()) {
            return trace_.fail(160, REG_VERIFY_READ_FAILED, new_.rc);
        }
        return 0;
    }

    FunctionTrace& trace_;
    UpdateCall call_;
    Side old_;
    Side new_;

private:
    [[nodiscard]] Engine& engine() noexcept { return static_cast<Engine&>(*this); }
    void next(Side& side) noexcept { side.rc = engine().read(*side.input, &side.item); }
    [[nodiscard]] bool holdsNewRecord() noexcept {
        return engine().match(EVERY_FIELD, new_.record(), call_.record) != 0;
    }

    void nextPair() noexcept {
        engine().skipEqual(*old_.input, *new_.input);
        next(old_);
        next(new_);
    }

    [[nodiscard]] unsigned int walkTogether() noexcept {
        nextPair();
        while (old_.has() && new_.has()) {
            bool equal = false;
            unsigned int rc = engine().compare(&equal);
            rc = rc != 0 || equal ? rc : judgeDifference();
            if (rc != 0) {
                return rc;
            }
            nextPair();
        }
        return 0;
    }

    [[nodiscard]] unsigned int judgeDifference() noexcept {
        switch (call_.operation) {
            case REG_OP_CHANGE:
                if (!engine().matchesKey()) {
                    return trace_.fail(100, REG_VERIFY_KEY_DIFFERS);
                }
                if (!holdsNewRecord()) {
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
                return Engine::STOPS_AT_EARLY_DIFFERENCE ? REG_VERIFY_DIFFERS_EARLY : 0U;
        }
    }

    // Old records that the delete removed, up to the one that the new file goes on with.
    [[nodiscard]] unsigned int dropOldRecords() noexcept {
        for (bool level = false; !level;) {
            if (!engine().matchesKey()) {
                return trace_.fail(120, REG_VERIFY_LOST_RECORD);
            }
            ++count_;
            next(old_);
            if (!old_.has()) {
                return old_.atEnd() ? trace_.fail(130, REG_VERIFY_OLD_ENDED)
                                    : trace_.fail(125, REG_READ_FAILED, old_.rc);
            }
            if (const unsigned int rc = engine().compare(&level)) {
                return rc;
            }
        }
        return 0;
    }

    [[nodiscard]] unsigned int checkEnd() noexcept {
        switch (call_.operation) {
            case REG_OP_CHANGE:
                return engine().lengthDiffers() ? trace_.fail(170, REG_VERIFY_LENGTH_DIFFERS) : 0;
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
        if (const unsigned int rc = engine().load(new_)) {
            return rc;
        }
        if (!holdsNewRecord()) {
            return trace_.fail(190, REG_VERIFY_OTHER_ADDED);
        }
        ++count_;
        next(new_);
        if (new_.has()) {
            return trace_.fail(200, REG_VERIFY_SEVERAL_ADDED);
        }
        return new_.atEnd() ? 0 : engine().unreadAdded();
    }

    [[nodiscard]] unsigned int checkDropped() noexcept {
        for (; old_.has(); next(old_)) {
            if (const unsigned int rc = engine().load(old_)) {
                return rc;
            }
            if (!engine().matchesKey()) {
                return trace_.fail(210, REG_VERIFY_WRONG_RECORD);
            }
            ++count_;
        }
        if (!old_.atEnd()) {
            return engine().unreadDropped();
        }
        if (new_.has()) {
            return count_ == 0 ? trace_.fail(220, REG_VERIFY_OLD_ENDED) : trace_.fail(230, REG_VERIFY_WRONG_RECORD);
        }
        return 0;
    }

    unsigned long count_ = 0;
    bool differedEarly_ = false;
};

}  // namespace genreg

// Checking an update: do the old and the new file differ by just what was asked for?
#include <cstring>

#include "genreg/core/Transaction.h"
#include "genreg/text/Lines.h"

using genreg::EVERY_FIELD;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;
using genreg::RecordBuffer;
using genreg::TextLine;

namespace {

bool sameBytes(const TextLine& a, const TextLine& b) noexcept {
    return a.length == b.length && std::memcmp(a.raw, b.raw, a.length) == 0;
}

// The newline that an add or change gave a last line is no difference, nor one that ended its continuation.
bool sameButForNewline(const TextLine& before, const TextLine& after) noexcept {
    const bool open = !before.endsInNewline() || before.endsInBackslash();
    return open && after.endsInNewline() && after.length == before.length + 1 &&
           std::memcmp(before.raw, after.raw, before.length) == 0;
}

class TextVerify final : public genreg::VerifySteps {
public:
    TextVerify(GenRegText& engine, FunctionTrace& trace, unsigned long operation, unsigned long mask, void* record,
               void* key) noexcept
        : trace_(trace), lines_(engine, trace), operation_(operation), mask_(mask), record_(record), key_(key) {}

    unsigned int walk(GenRegInput& before, GenRegInput& after, RecordBuffer& oldRecord, RecordBuffer& newRecord,
                      unsigned long* closeMode) noexcept override {
        before_ = &before;
        after_ = &after;
        oldRecord_ = oldRecord.get();
        newRecord_ = newRecord.get();
        haveOld_ = lines_.next(before, &old_);
        haveNew_ = lines_.next(after, &new_);
        while (haveOld_ && haveNew_) {
            if (!samePair()) {
                if (const unsigned int rc = judgeDifference()) {
                    return rc;
                }
            }
            haveOld_ = lines_.next(before, &old_);
            haveNew_ = lines_.next(after, &new_);
        }
        if (const unsigned int rc = readErrors()) {
            return rc;
        }
        if (const unsigned int rc = checkTail()) {
            return rc;
        }
        if (count_ == 0) {
            return trace_.fail(260, REG_VERIFY_NO_DIFFERENCE);
        }
        *closeMode = REG_OP_FINISH;
        // Kept: more changes than one are reported, and committed all the same.
        const bool several = count_ > 1 && !lines_.has(REG_FEATURE_ALLOW_DUPLICATES);
        return several ? trace_.fail(250, REG_VERIFY_SEVERAL_CHANGED) : 0;
    }

private:
    // Parses both lines unless their bytes settle it.
    [[nodiscard]] bool samePair() noexcept {
        if (sameBytes(old_, new_) || sameButForNewline(old_, new_)) {
            return true;
        }
        (void)lines_.parse(oldRecord_, old_);
        (void)lines_.parse(newRecord_, new_);
        return !old_.tooLong() && !new_.tooLong() && lines_.match(EVERY_FIELD, oldRecord_, newRecord_) != 0;
    }

    [[nodiscard]] unsigned int judgeDifference() noexcept {
        switch (operation_) {
            case REG_OP_CHANGE:
                if (lines_.match(mask_, oldRecord_, key_) == 0) {
                    return trace_.fail(100, REG_VERIFY_KEY_DIFFERS);
                }
                if (lines_.match(EVERY_FIELD, newRecord_, record_) == 0) {
                    return trace_.fail(110, REG_VERIFY_WRONG_RECORD);
                }
                ++count_;
                return 0;
            case REG_OP_DELETE:
                return dropOldLines();
            default:
                return trace_.fail(140, REG_VERIFY_DIFFERS_EARLY);
        }
    }

    // Old lines that the delete removed, up to the one that the new file goes on with.
    [[nodiscard]] unsigned int dropOldLines() noexcept {
        do {
            if (lines_.match(mask_, oldRecord_, key_) == 0) {
                return trace_.fail(120, REG_VERIFY_LOST_RECORD);
            }
            ++count_;
            haveOld_ = lines_.next(*before_, &old_);
            if (!haveOld_) {
                return before_->error() != 0 ? trace_.fail(125, REG_READ_FAILED, before_->error())
                                             : trace_.fail(130, REG_VERIFY_OLD_ENDED);
            }
        } while (!samePair());
        return 0;
    }

    [[nodiscard]] unsigned int readErrors() noexcept {
        if (before_->error() != 0) {
            return trace_.fail(150, REG_READ_FAILED, before_->error());
        }
        if (after_->error() != 0) {
            return trace_.fail(160, REG_VERIFY_READ_FAILED, after_->error());
        }
        return 0;
    }

    [[nodiscard]] unsigned int checkTail() noexcept {
        switch (operation_) {
            case REG_OP_CHANGE:
                return haveOld_ || haveNew_ ? trace_.fail(170, REG_VERIFY_LENGTH_DIFFERS) : 0;
            case REG_OP_ADD:
                return checkAdded();
            case REG_OP_DELETE:
                return checkDropped();
            default:
                return 0;
        }
    }

    [[nodiscard]] unsigned int checkAdded() noexcept {
        if (haveOld_ || !haveNew_) {
            return trace_.fail(180, REG_VERIFY_NOTHING_ADDED);
        }
        (void)lines_.parse(newRecord_, new_);
        if (lines_.match(EVERY_FIELD, newRecord_, record_) == 0) {
            return trace_.fail(190, REG_VERIFY_OTHER_ADDED);
        }
        ++count_;
        if (lines_.next(*after_, &new_)) {
            return trace_.fail(200, REG_VERIFY_SEVERAL_ADDED);
        }
        return readErrors();
    }

    [[nodiscard]] unsigned int checkDropped() noexcept {
        while (haveOld_) {
            (void)lines_.parse(oldRecord_, old_);
            if (lines_.match(mask_, oldRecord_, key_) == 0) {
                return trace_.fail(210, REG_VERIFY_WRONG_RECORD);
            }
            ++count_;
            haveOld_ = lines_.next(*before_, &old_);
        }
        if (haveNew_) {
            return count_ == 0 ? trace_.fail(220, REG_VERIFY_OLD_ENDED) : trace_.fail(230, REG_VERIFY_WRONG_RECORD);
        }
        return readErrors();
    }

    FunctionTrace& trace_;
    GenRegTextLines lines_;
    unsigned long operation_;
    unsigned long mask_;
    void* record_;
    void* key_;
    GenRegInput* before_ = nullptr;
    GenRegInput* after_ = nullptr;
    void* oldRecord_ = nullptr;
    void* newRecord_ = nullptr;
    TextLine old_ = {};
    TextLine new_ = {};
    bool haveOld_ = false;
    bool haveNew_ = false;
    unsigned long count_ = 0;
};

}  // namespace

unsigned int GenRegText::Verify(unsigned long operation, unsigned long mask, void* record, void* key) noexcept {
    OperationTrace trace{Function::TextVerify};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    TextVerify steps{*this, trace, operation, mask, record, key};
    return GenRegTransaction::verify(*this, trace, "GenRegText", steps);
}

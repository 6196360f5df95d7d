// Checking an update of records.
#include "genreg/bin/Frames.h"
#include "genreg/core/VerifyWalk.h"

using genreg::BIN_TAG;
using genreg::BinFrames;
using genreg::EVERY_FIELD;
using genreg::Frame;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::Transaction;

namespace {

class BinVerify final : public genreg::VerifyWalk<BinVerify, Frame> {
    friend VerifyWalk;

public:
    BinVerify(GenRegBin& engine, FunctionTrace& trace, const genreg::UpdateCall& call) noexcept
        : VerifyWalk(trace, call), frames_(engine, trace) {}

private:
    // Kept: an add whose copy differs before its end is looked at to the end, and committed.
    static constexpr bool STOPS_AT_EARLY_DIFFERENCE = false;

    unsigned int begin() noexcept { return frames_.checkMatch(); }
    unsigned int read(Input& input, Frame* frame) noexcept { return frames_.next(input, frame); }

    void skipEqual(Input& before, Input& after) const noexcept {
        const std::size_t length = frames_.equalAtHand(before, after);
        before.consume(length);
        after.consume(length);
    }

    // REG_UNPACK_FAILED, REG_NO_UNPACK_RECORD.
    unsigned int load(const Side& side) noexcept {
        unsigned int rc = frames_.check(side.item);
        rc = rc != 0 ? rc : frames_.unpack(side.item, *side.buffer);
        const bool unreadNew = rc == REG_READ_FAILED && &side == &new_;
        return unreadNew ? trace_.fail(165, REG_VERIFY_READ_FAILED, rc) : rc;
    }

    unsigned int compare(bool* equal) noexcept {
        if (frames_.surelyEqual(old_.item, new_.item) && frames_.check(old_.item) == 0) {
            *equal = true;
            return 0;
        }
        unsigned int rc = load(old_);
        rc = rc != 0 ? rc : load(new_);
        *equal = rc == 0 && match(EVERY_FIELD, old_.record(), new_.record()) != 0;
        return rc;
    }

    [[nodiscard]] bool has(unsigned long feature) const noexcept { return frames_.has(feature); }
    [[nodiscard]] unsigned int match(unsigned long mask, void* record, void* key) const noexcept {
        return frames_.match(mask, record, key);
    }
    [[nodiscard]] bool matchesKey() const noexcept { return match(call_.mask, old_.record(), call_.key) == 1; }
    // Kept: a change that made the file longer is none.
    [[nodiscard]] bool lengthDiffers() const noexcept { return old_.has() && new_.atEnd(); }

    unsigned int unreadAdded() noexcept { return trace_.fail(205, REG_VERIFY_READ_FAILED, new_.rc); }
    unsigned int unreadDropped() noexcept { return trace_.fail(215, REG_READ_FAILED, old_.rc); }

    BinFrames frames_;
};

}  // namespace

unsigned int GenRegBin::Verify(unsigned long operationCode, unsigned long matchType, void* record, void* key) noexcept {
    OperationTrace trace{Function::BinVerify};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    BinVerify steps{*this, trace, {operationCode, matchType, record, key}};
    return Transaction{*this, trace, BIN_TAG}.verify(steps);
}

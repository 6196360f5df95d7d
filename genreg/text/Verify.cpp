// Checking an update of lines.
#include <cstring>

#include "genreg/core/VerifyWalk.h"
#include "genreg/text/Lines.h"

using genreg::EVERY_FIELD;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::TEXT_TAG;
using genreg::TextLine;
using genreg::TextLines;
using genreg::Transaction;

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

class TextVerify final : public genreg::VerifyWalk<TextVerify, TextLine> {
    friend VerifyWalk;

public:
    TextVerify(GenRegText& engine, FunctionTrace& trace, const genreg::UpdateCall& call) noexcept
        : VerifyWalk(trace, call), lines_(engine, trace) {}

private:
    static constexpr bool STOPS_AT_EARLY_DIFFERENCE = true;

    static unsigned int begin() noexcept { return 0; }
    unsigned int read(Input& input, TextLine* line) noexcept {
        if (lines_.next(input, line)) {
            return 0;
        }
        return input.error() != 0 ? input.error() : REG_NO_MORE_RECORDS;
    }

    void skipEqual(Input& before, Input& after) const noexcept {
        const std::size_t length = lines_.equalAtHand(before, after);
        before.consume(length);
        after.consume(length);
    }

    // A line that is refused is compared as it was left.
    unsigned int load(const Side& side) noexcept {
        (void)lines_.parse(side.record(), side.item);
        return 0;
    }

    unsigned int compare(bool* equal) noexcept {
        if (sameBytes(old_.item, new_.item) || sameButForNewline(old_.item, new_.item)) {
            *equal = true;
            return 0;
        }
        (void)load(old_);
        (void)load(new_);
        *equal = !old_.item.tooLong() && !new_.item.tooLong() && match(EVERY_FIELD, old_.record(), new_.record()) != 0;
        return 0;
    }

    [[nodiscard]] bool has(unsigned long feature) const noexcept { return lines_.has(feature); }
    [[nodiscard]] unsigned int match(unsigned long mask, void* record, void* key) const noexcept {
        return lines_.match(mask, record, key);
    }
    // Kept: any answer but 0, where the binary engine wants 1.
    [[nodiscard]] bool matchesKey() const noexcept { return match(call_.mask, old_.record(), call_.key) != 0; }
    [[nodiscard]] bool lengthDiffers() const noexcept { return old_.has() || new_.has(); }

    unsigned int unreadAdded() noexcept { return readErrors(); }
    unsigned int unreadDropped() noexcept { return readErrors(); }

    TextLines lines_;
};

}  // namespace

unsigned int GenRegText::Verify(unsigned long operation, unsigned long mask, void* record, void* key) noexcept {
    OperationTrace trace{Function::TextVerify};
    if (const unsigned int rc = CheckFuncPtrs()) {
        return trace.fail(5, REG_CALLBACK_MISSING, rc);
    }
    TextVerify steps{*this, trace, {operation, mask, record, key}};
    return Transaction{*this, trace, TEXT_TAG}.verify(steps);
}

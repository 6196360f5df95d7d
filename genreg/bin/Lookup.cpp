// Finding records.
#include "genreg/bin/Frames.h"
#include "genreg/core/Transaction.h"

using genreg::BIN_TAG;
using genreg::BinFrames;
using genreg::Frame;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::Place;
using genreg::RecordBuffer;
using genreg::Search;
using genreg::Transaction;

namespace {

class BinSearch final : public genreg::LookupSteps {
public:
    // lists: most records match.
    BinSearch(GenRegBin& engine, FunctionTrace& trace, bool lists) noexcept
        : trace_(trace), frames_(engine, trace), lists_(lists) {}

    unsigned int find(Input& input, const Search& search, RecordBuffer& work, unsigned long size) noexcept override {
        for (;;) {
            Frame frame = {};
            if (!search.any) {
                frames_.passOver(input, search.mask, search.key);
            }
            if (const unsigned int rc = frames_.next(input, &frame)) {
                return rc == REG_NO_MORE_RECORDS ? rc : trace_.fail(110, REG_READ_FAILED, rc);
            }
            if (const unsigned int rc = frames_.check(frame)) {
                return rc;
            }
            const bool skipped = !search.any && !frames_.mayMatch(search.mask, frame, search.key);
            if (!skipped) {
                if (const unsigned int rc = frames_.unpack(frame, work)) {
                    return rc;
                }
            }
            if (const unsigned int rc = frames_.checkMatch()) {
                return rc;
            }
            if (!skipped && (search.any || frames_.match(search.mask, work.get(), search.key) == 1)) {
                return handOut(trace_, search, work.get(), size);
            }
        }
    }

    bool take(Input& input, const Search& search, unsigned long /*size*/) noexcept override {
        const bool keyed = search.any || search.key != nullptr;
        return keyed && frames_.take(input, search.mask, search.key, search.result, lists_);
    }
    bool takeKnown(Input& input, const Search& search, RecordBuffer& /*work*/,
                   unsigned long /*size*/) noexcept override {
        return frames_.take(input, search.mask, search.key, search.result, true);
    }

    unsigned int notFreed(unsigned int platformCode) noexcept override;

    bool identityOf(unsigned long mask, const void* key, unsigned int* identity) noexcept override {
        return frames_.identify(mask, key, identity);
    }
    Place nextPlace(Input& input, unsigned int* identity) noexcept override {
        return frames_.nextPlace(input, identity, false);
    }

private:
    FunctionTrace& trace_;
    BinFrames frames_;
    bool lists_;
};

unsigned int BinSearch::notFreed(unsigned int platformCode) noexcept {
    return trace_.fail(160, REG_FREE_RECORD_FAILED, platformCode);
}

// Without mask and key nothing is compared.
Search searchFor(unsigned long mask, void* key, void* result) noexcept {
    return {mask, key, result, mask == 0 && key == nullptr};
}

}  // namespace

unsigned int GenRegBin::Get(unsigned long matchType, void* key, void* result) noexcept {
    OperationTrace trace{Function::BinGet};
    BinSearch steps{*this, trace, false};
    return Transaction{*this, trace, BIN_TAG}.get(searchFor(matchType, key, result), steps, true);
}

unsigned int GenRegBin::GetNext(unsigned long matchType, void* key, void* result) noexcept {
    OperationTrace trace{Function::BinGetNext};
    BinSearch steps{*this, trace, true};
    return Transaction{*this, trace, BIN_TAG}.getNext(searchFor(matchType, key, result), steps);
}

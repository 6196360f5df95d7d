// Finding lines.
#include <cstring>

#include "genreg/core/Transaction.h"
#include "genreg/text/Lines.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::Input;
using genreg::OperationTrace;
using genreg::Place;
using genreg::RecordBuffer;
using genreg::Search;
using genreg::TEXT_TAG;
using genreg::TextLine;
using genreg::TextLines;
using genreg::Transaction;

namespace {

class TextSearch final : public genreg::LookupSteps {
public:
    TextSearch(GenRegText& engine, FunctionTrace& trace) noexcept : trace_(trace), lines_(engine, trace) {}

    unsigned int find(Input& input, const Search& search, RecordBuffer& work, unsigned long size) noexcept override {
        TextLine line = {};
        while (nextWorthALook(input, search, &line)) {
            if (const unsigned int rc = lines_.checkSearchSlots(!search.any)) {
                return rc;
            }
            if (search.any && line.tooLong()) {
                std::memset(search.result, 0, size);
                return 0;
            }
            if (!search.any && !lines_.mayMatch(search.mask, line, search.key)) {
                continue;
            }
            (void)lines_.parse(work.get(), line);
            if (!search.any && lines_.match(search.mask, work.get(), search.key) != 1) {
                continue;
            }
            const unsigned int rc = handOut(trace_, search, work.get(), size);
            if (rc == 0) {
                (void)lines_.parse(search.result, line);  // in place, since a record points into itself
            }
            return rc;
        }
        return input.error() == 0 ? REG_NO_MORE_RECORDS : trace_.fail(115, REG_READ_FAILED, input.error());
    }

    // In a list each line is parsed where the caller has its record, and once.
    bool take(Input& input, const Search& search, unsigned long size) noexcept override {
        TextLine line = {};
        if (!search.any || size < genreg::LEAST_COPY || !lines_.isSpokenFor() || !lines_.next(input, &line)) {
            return false;
        }
        std::memset(search.result, 0, size);
        // What is refused is told twice, as where it is parsed twice.
        if (!line.tooLong() && !lines_.parse(search.result, line)) {
            (void)lines_.parse(search.result, line);
        }
        return true;
    }

    // The key may lie in the caller's record: that is written last.
    bool takeKnown(Input& input, const Search& search, RecordBuffer& work, unsigned long size) noexcept override {
        TextLine line = {};
        if (size < genreg::LEAST_COPY || !work.ensure(size) || !lines_.next(input, &line) ||
            !lines_.parse(work.get(), line) || lines_.match(search.mask, work.get(), search.key) != 1) {
            return false;
        }
        std::memset(search.result, 0, size);
        return lines_.parse(search.result, line);
    }

    unsigned int notFreed(unsigned int platformCode) noexcept override;

    bool identityOf(unsigned long mask, const void* key, unsigned int* identity) noexcept override {
        return lines_.identify(mask, key, identity);
    }
    Place nextPlace(Input& input, unsigned int* identity) noexcept override {
        return lines_.nextPlace(input, identity);
    }

private:
    [[nodiscard]] bool nextWorthALook(Input& input, const Search& search, TextLine* line) const noexcept {
        if (!search.any) {
            lines_.passOver(input, search.mask, search.key);
        }
        return lines_.next(input, line);
    }

    FunctionTrace& trace_;
    TextLines lines_;
};

// Kept: what was found is answered all the same.
unsigned int TextSearch::notFreed(unsigned int platformCode) noexcept {
    trace_.ignore(160, REG_FREE_RECORD_FAILED, platformCode);
    return 0;
}

}  // namespace

unsigned int GenRegText::Get(unsigned long mask, void* key, void* record) noexcept {
    OperationTrace trace{Function::TextGet};
    TextSearch steps{*this, trace};
    return Transaction{*this, trace, TEXT_TAG}.get({mask, key, record, false}, steps, false);
}

// Kept: without a mask it lists lines, whatever the key.
unsigned int GenRegText::GetNext(unsigned long mask, void* key, void* record) noexcept {
    OperationTrace trace{Function::TextGetNext};
    TextSearch steps{*this, trace};
    return Transaction{*this, trace, TEXT_TAG}.getNext({mask, key, record, mask == 0}, steps);
}

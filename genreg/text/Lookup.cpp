// Finding lines.
#include <cstring>

#include "genreg/core/Transaction.h"
#include "genreg/text/Lines.h"

using genreg::FirstError;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;
using genreg::RecordBuffer;
using genreg::TextLine;

namespace {

constexpr const char* TAG = "GenRegText";

// Kept: a record below this size is never handed out.
constexpr unsigned long LEAST_COPY = 8;

struct Search {
    unsigned long mask;
    void* key;
    bool anyLine;        // take the next line whatever it holds
    void* work;          // a record buffer
    unsigned long size;  // of it and of the caller's record
    void* record;        // the caller's
};

// The first line that the search takes, into the caller's record. REG_END_OF_INPUT when there is none.
unsigned int find(GenRegTextLines& lines, GenRegInput& input, FunctionTrace& trace, const Search& search) noexcept {
    TextLine line = {};
    while (lines.next(input, &line)) {
        if (const unsigned int rc = lines.checkSearchSlots(!search.anyLine)) {
            return rc;
        }
        if (search.anyLine ? line.tooLong() : !lines.mayMatch(search.mask, line, search.key)) {
            if (!search.anyLine) {
                continue;
            }
            std::memset(search.record, 0, search.size);
            return 0;
        }
        (void)lines.parse(search.work, line);
        if (!search.anyLine && lines.match(search.mask, search.work, search.key) != 1) {
            continue;
        }
        if (search.size < LEAST_COPY) {
            return trace.fail(120, REG_RECORD_SIZE_REFUSED);
        }
        // Parsed once more in place, since a record points into itself.
        std::memcpy(search.record, search.work, search.size);
        (void)lines.parse(search.record, line);
        return 0;
    }
    if (input.error() != 0) {
        return trace.fail(115, REG_READ_FAILED, input.error());
    }
    return REG_END_OF_INPUT;
}

}  // namespace

unsigned int GenRegText::Get(unsigned long mask, void* key, void* record) noexcept {
    OperationTrace trace{Function::TextGet};
    RecordBuffer work{TAG};
    unsigned long size = 0;
    if (const unsigned int rc = GenRegTransaction::prepare(*this, trace, mask, key, work, &size)) {
        return rc;
    }
    GenRegLookup lookup{*this, trace};
    if (const unsigned int rc = lookup.open(false)) {
        return rc;
    }
    FirstError result;
    GenRegTextLines lines{*this, trace};
    unsigned int found = find(lines, lookup.input(), trace, {mask, key, false, work.get(), size, record});
    if (found == REG_END_OF_INPUT) {
        std::memset(record, 0, size);
        found = trace.failMildly(150, REG_NOT_FOUND);
    }
    result.note(found);
    result.note(lookup.close());
    if (const unsigned int rc = work.release()) {
        trace.ignore(160, REG_FREE_RECORD_FAILED, rc);
    }
    return trace.exit(result.code());
}

unsigned int GenRegText::GetNext(unsigned long mask, void* key, void* record) noexcept {
    OperationTrace trace{Function::TextGetNext};
    if (const unsigned int rc = GenRegTransaction::checkScan(*this, trace)) {
        return rc;
    }
    if (validateRecord == nullptr || mask != 0) {
        if (const unsigned int rc = GenRegTransaction::validate(*this, trace, mask, key)) {
            return rc;
        }
    }
    if ((state & REG_STATE_SCAN_AT_END) != 0) {
        return trace.exit(REG_NO_MORE_RECORDS);
    }
    unsigned long size = 0;
    if (const unsigned int rc = GenRegTransaction::recordSize(*this, trace, &size)) {
        return rc;
    }
    RecordBuffer work{TAG};
    GenRegInput* const input = GenRegTransaction::scanInput(*this);
    if (input == nullptr || !work.allocate(size)) {
        return trace.fail(60, REG_NO_RECORD_BUFFER);
    }
    FirstError result;
    GenRegTextLines lines{*this, trace};
    unsigned int found = find(lines, *input, trace, {mask, key, mask == 0, work.get(), size, record});
    GenRegTransaction::placeStream(*this);
    if (found == REG_END_OF_INPUT) {
        lines.markEndOfScan();
        std::memset(record, 0, size);
        found = REG_NO_MORE_RECORDS;
    }
    result.note(found);
    if (const unsigned int rc = work.release()) {
        result.note(trace.fail(160, REG_FREE_RECORD_FAILED, rc));
    }
    return trace.exit(result.code());
}

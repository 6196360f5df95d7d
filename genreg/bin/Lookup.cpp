// Finding records.
#include <cstring>

#include "genreg/bin/Frames.h"
#include "genreg/core/Transaction.h"

using genreg::FirstError;
using genreg::Frame;
using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;
using genreg::RecordBuffer;

namespace {

constexpr const char* TAG = "GenRegBin";

// Kept: a record below this size is never handed out.
constexpr unsigned long LEAST_COPY = 8;

struct Search {
    unsigned long mask;
    void* key;
    RecordBuffer& work;
    unsigned long size;  // of the caller's record
    void* result;        // the caller's
};

// The next record that matches, into the caller's. REG_NO_MORE_RECORDS when there is none.
unsigned int find(GenRegBinFrames& frames, GenRegInput& input, FunctionTrace& trace, const Search& search) noexcept {
    for (;;) {
        Frame frame = {};
        if (const unsigned int rc = frames.next(input, &frame)) {
            return rc == REG_NO_MORE_RECORDS ? rc : trace.fail(110, REG_READ_FAILED, rc);
        }
        if (const unsigned int rc = frames.check(frame)) {
            return rc;
        }
        const bool any = search.mask == 0 && search.key == nullptr;
        const bool skipped = !any && !frames.mayMatch(search.mask, frame, search.key);
        if (!skipped) {
            if (const unsigned int rc = frames.unpack(frame, search.work)) {
                return rc;
            }
        }
        if (const unsigned int rc = frames.checkMatch()) {
            return rc;
        }
        if (skipped || (!any && frames.match(search.mask, search.work.get(), search.key) != 1)) {
            continue;
        }
        if (search.size < LEAST_COPY) {
            return trace.fail(120, REG_RECORD_SIZE_REFUSED);
        }
        std::memcpy(search.result, search.work.get(), search.size);
        return 0;
    }
}

bool failedToUnpack(unsigned int rc) noexcept {
    return rc == REG_NO_UNPACK_RECORD || rc == REG_UNPACK_FAILED;
}

}  // namespace

unsigned int GenRegBin::Get(unsigned long matchType, void* key, void* result) noexcept {
    OperationTrace trace{Function::BinGet};
    RecordBuffer work{TAG};
    unsigned long size = 0;
    if (const unsigned int rc = GenRegTransaction::prepare(*this, trace, matchType, key, work, &size)) {
        return rc;
    }
    GenRegLookup lookup{*this, trace};
    if (const unsigned int rc = lookup.open(true)) {
        return rc;
    }
    GenRegBinFrames frames{*this, trace};
    unsigned int found = find(frames, lookup.input(), trace, {matchType, key, work, size, result});
    if (found == REG_NO_MORE_RECORDS) {
        found = trace.failMildly(150, REG_NOT_FOUND);
    }
    if (found == REG_NOT_FOUND || failedToUnpack(found)) {
        std::memset(result, 0, size);
    }
    FirstError outcome;
    outcome.note(found);
    outcome.note(lookup.close());
    if (const unsigned int rc = work.release()) {
        outcome.note(trace.fail(160, REG_FREE_RECORD_FAILED, rc));
    }
    return trace.exit(outcome.code());
}

unsigned int GenRegBin::GetNext(unsigned long matchType, void* key, void* result) noexcept {
    OperationTrace trace{Function::BinGetNext};
    if (const unsigned int rc = GenRegTransaction::checkScan(*this, trace)) {
        return rc;
    }
    if (validateRecord == nullptr || matchType != 0 || key != nullptr) {
        if (const unsigned int rc = GenRegTransaction::validate(*this, trace, matchType, key)) {
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
    GenRegBinFrames frames{*this, trace};
    const unsigned int found = find(frames, *input, trace, {matchType, key, work, size, result});
    GenRegTransaction::placeStream(*this);
    if (found == REG_NO_MORE_RECORDS) {
        frames.markEndOfScan();
    }
    if (found == REG_NO_MORE_RECORDS || failedToUnpack(found)) {
        std::memset(result, 0, size);
    }
    FirstError outcome;
    outcome.note(found);
    if (const unsigned int rc = work.release()) {
        outcome.note(trace.fail(160, REG_FREE_RECORD_FAILED, rc));
    }
    return trace.exit(outcome.code());
}

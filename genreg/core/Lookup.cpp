// The frames of a lookup.
#include <osse/Errors.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "genreg/core/Batch.h"
#include "genreg/core/KeptContents.h"
#include "genreg/core/Transaction.h"

namespace genreg {

// Where a Get reads. Closes, or puts the scan back, at its end.
class Transaction::Reading {
public:
    explicit Reading(Transaction& transaction) noexcept
        : transaction_(transaction),
          file_(transaction.file_),
          inside_(transaction.inside_),
          trace_(transaction.trace_) {}
    ~Reading() noexcept { (void)close(); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    // REG_OPEN_FAILED; REG_MISSING passes through when passMissing is true.
    [[nodiscard]] unsigned int open(bool passMissing) noexcept;
    [[nodiscard]] Input& input() noexcept { return inScan_ ? *scan_ : own_; }
    // Of the registry file, which is open.
    [[nodiscard]] int descriptor() const noexcept {
        return looked_.descriptor != -1 ? looked_.descriptor : posix::descriptorOf(file_.regFp);
    }
    // REG_CLOSE_FAILED.
    [[nodiscard]] unsigned int close(bool unlocks = false) noexcept;

private:
    Transaction& transaction_;
    GenRegFile& file_;
    FileInternals& inside_;
    FunctionTrace& trace_;
    bool open_ = false;
    bool inScan_ = false;
    posix::ReadFile looked_;  // open without a stream
    bool scanWasAtEnd_ = false;
    long long scanPosition_ = 0;
    Input* scan_ = nullptr;
    Input own_{-1, 0, 0};
};

unsigned int Transaction::Reading::open(bool passMissing) noexcept {
    constexpr unsigned long IN_SCAN = REG_FEATURE_GET_IN_SCAN;
    if ((file_.state & REG_STATE_SCAN_OPEN) != 0 && (file_.features & IN_SCAN) != 0) {
        scanWasAtEnd_ = (file_.state & REG_STATE_SCAN_AT_END) != 0;
        scan_ = inside_.scanInput();
        if (scan_ == nullptr) {
            return trace_.fail(70, REG_NO_RECORD_BUFFER);
        }
        inScan_ = open_ = true;
        unsigned int rc = file_.getRegFilePosition(&scanPosition_);
        if (rc == 0) {
            rc = file_.Rewind();
        }
        return rc == 0 ? 0 : trace_.fail(75, REG_OPEN_FAILED, rc);
    }
    if (inside_.openToLook(&looked_)) {
        own_.restart(looked_.descriptor, 0, looked_.size);
        open_ = true;
        return 0;
    }
    if (const unsigned int rc = file_.OpenReg(REG_OP_READ)) {
        (void)file_.CloseReg(REG_OP_READ);
        return transaction_.unopened(rc, passMissing);
    }
    inside_.readRegistry(own_);
    open_ = true;
    return 0;
}

unsigned int Transaction::Reading::close(bool unlocks) noexcept {
    if (!open_) {
        return 0;
    }
    open_ = false;
    if (!inScan_) {
        const bool looked = looked_.descriptor != -1;
        const unsigned int rc = looked ? FileInternals::closeLooked(looked_, unlocks) : file_.CloseReg(REG_OP_READ);
        return rc == 0 ? 0 : trace_.fail(200, REG_CLOSE_FAILED, rc);
    }
    const unsigned int rc = file_.setRegFilePosition(&scanPosition_);
    if (scanWasAtEnd_) {
        file_.state |= REG_STATE_SCAN_AT_END;
    }
    return rc == 0 ? 0 : trace_.fail(205, REG_CLOSE_FAILED, rc);
}

namespace {

// The caller's record is cleared where the lookup ends without one; what could not be read leaves it alone.
bool clearsResult(unsigned int rc) noexcept {
    return rc == REG_NO_MORE_RECORDS || rc == REG_NO_UNPACK_RECORD || rc == REG_UNPACK_FAILED;
}

}  // namespace

unsigned int handOut(FunctionTrace& trace, const Search& search, const void* record, unsigned long size) noexcept {
    if (size < LEAST_COPY) {
        return trace.fail(120, REG_RECORD_SIZE_REFUSED);
    }
    std::memcpy(search.result, record, size);
    return 0;
}

// Found by the very steps that read a file.
template <class Memory>
unsigned int Transaction::findIn(Memory& memory, const Search& search, LookupSteps& steps, RecordBuffer& known,
                                 RecordBuffer& work, unsigned long size) noexcept {
    unsigned int identity = 0;
    const bool indexed =
        !search.any && steps.identityOf(search.mask, search.key, &identity) && memory.index(steps, file_.features);
    if (!indexed && !memory.pack()) {
        return trace_.fail(65, REG_NO_RECORD_BUFFER);
    }
    const Contents& contents = memory.contents();
    auto candidates = indexed ? Contents::Candidates(contents, identity) : Contents::Candidates(contents);
    for (Contents::Part part = {}; candidates.next(&part);) {
        Input input{part.bytes, part.length};
        if (part.known) {
            if (steps.takeKnown(input, search, known, size)) {
                return 0;
            }
            if (input.offset() == input.size()) {
                continue;
            }
        }
        if (const unsigned int rc = hold(work, size)) {
            return rc;
        }
        if (const unsigned int rc = steps.takeOrFind(input, search, work, size); rc != REG_NO_MORE_RECORDS) {
            return rc;
        }
    }
    return REG_NO_MORE_RECORDS;
}

unsigned int Transaction::get(const Search& search, LookupSteps& steps, bool passMissing) noexcept {
    RecordBuffer work{tag_};
    unsigned long size = 0;
    if (const unsigned int rc = validate(search.mask, search.key)) {
        return rc;
    }
    if (const unsigned int rc = recordSize(&size)) {
        return rc;
    }
    Reading reading{*this};
    Batch* const batch = inside_.batch();
    KeptContents* const kept = inside_.keptContents();
    unsigned int found = 0;
    if (batch != nullptr) {
        if (const unsigned int rc = batch->missing() ? unopened(REG_MISSING, passMissing) : 0) {
            return rc;
        }
        RecordBuffer known{tag_};
        found = findIn(*batch, search, steps, known, work, size);
    } else if (kept != nullptr && kept->isCurrent(file_.regPath)) {
        found = findIn(*kept, search, steps, kept->work(), work, size);
    } else {
        if (const unsigned int rc = hold(work, size)) {
            return rc;
        }
        if (const unsigned int rc = reading.open(passMissing)) {
            return rc;
        }
        if (kept != nullptr) {
            kept->take(reading.descriptor(), file_.regPath);
        }
        found = steps.takeOrFind(reading.input(), search, work, size);
    }
    if (clearsResult(found)) {
        std::memset(search.result, 0, size);
    }
    FirstError result;
    result.note(found == REG_NO_MORE_RECORDS ? trace_.failMildly(150, REG_NOT_FOUND) : found);
    result.note(reading.close());
    if (const unsigned int rc = work.release()) {
        result.note(steps.notFreed(rc));
    }
    return trace_.exit(result.code());
}

// What a look-up answers that has no file.
unsigned int Transaction::unopened(unsigned int rc, bool passMissing) noexcept {
    return rc == REG_MISSING && passMissing ? trace_.failMildly(80, rc) : trace_.fail(85, REG_OPEN_FAILED, rc);
}

unsigned int Transaction::readWhole(char** bytes, unsigned long* size, bool* missing) noexcept {
    Reading reading{*this};
    *missing = false;
    if (const unsigned int rc = reading.open(true)) {
        *missing = rc == REG_MISSING;
        return *missing ? 0 : rc;
    }
    Input& input = reading.input();
    const unsigned long expected = input.size() - input.offset();
    unsigned long read = 0;
    *bytes = expected <= Contents::LARGEST ? static_cast<char*>(std::malloc(expected + 1)) : nullptr;
    if (*bytes == nullptr) {
        return trace_.fail(95, REG_NO_MEMORY);
    }
    while (read < expected && input.fill(1) != 0) {
        const std::size_t ready = input.ready();
        std::memcpy(*bytes + read, input.data(), ready);
        input.consume(ready);
        read += ready;
    }
    *size = read;
    // What the batch is answered rests on what was read.
    inside_.settleNames(reading.descriptor());
    FirstError result;
    result.note(input.error() == 0 ? 0 : trace_.fail(115, REG_READ_FAILED, input.error()));
    result.note(reading.close(true));
    if (!result.none()) {
        std::free(*bytes);
        *bytes = nullptr;
    }
    return result.code();
}

// REG_SCAN_NOT_OPEN; REG_READ_FAILED in a forked child, whose scan is its parent's.
unsigned int Transaction::checkScan() noexcept {
    if ((file_.state & REG_STATE_SCAN_OPEN) == 0) {
        return trace_.fail(5, REG_SCAN_NOT_OPEN);
    }
    return inside_.holdsParentsFiles() ? trace_.fail(7, REG_READ_FAILED, ossErrorMapSystem(EBADF)) : 0;
}

unsigned int Transaction::getNext(const Search& search, LookupSteps& steps) noexcept {
    if (const unsigned int rc = checkScan()) {
        return rc;
    }
    if (file_.validateRecord == nullptr || !search.any) {
        if (const unsigned int rc = validate(search.mask, search.key)) {
            return rc;
        }
    }
    if ((file_.state & REG_STATE_SCAN_AT_END) != 0) {
        return trace_.exit(REG_NO_MORE_RECORDS);
    }
    unsigned long size = 0;
    if (const unsigned int rc = recordSize(&size)) {
        return rc;
    }
    Input* const input = inside_.scanInput();
    if (input != nullptr && steps.take(*input, search, size)) {
        inside_.placeStream();
        return trace_.exit(0);
    }
    RecordBuffer work{tag_};
    if (input == nullptr || !work.allocate(size)) {
        return trace_.fail(60, REG_NO_RECORD_BUFFER);
    }
    const unsigned int found = steps.find(*input, search, work, size);
    inside_.placeStream();
    if (found == REG_NO_MORE_RECORDS) {
        file_.state |= REG_STATE_SCAN_AT_END;
    }
    if (clearsResult(found)) {
        std::memset(search.result, 0, size);
    }
    FirstError result;
    result.note(found);
    if (const unsigned int rc = work.release()) {
        result.note(trace_.fail(160, REG_FREE_RECORD_FAILED, rc));
    }
    return trace_.exit(result.code());
}

}  // namespace genreg

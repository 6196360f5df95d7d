// The frames that every operation of both engines runs in.
//
// An update:   validate - size - buffer | lock - open - copy - close - verify - discard - unlock - free - log - notify
// A lookup:    validate - size - buffer | open (or go back in the scan) - search - close (or restore) - free
// A verify:    slots - size - two buffers | open both files - walk - close, which commits or not - free
// What stands before the bar touches no file. The first failure decides the result; a failure of a clean-up step
// becomes it only when nothing failed before. Every early return closes, unlocks and frees.
#pragma once

#include <genreg/GenRegFile.h>

#include "genreg/core/Contents.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FirstError.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/Input.h"
#include "genreg/core/RecordBuffer.h"

namespace genreg {

// The mask under which MatchRecord tells whether two records are equal.
constexpr unsigned long EVERY_FIELD = ~0UL;

// What an update was asked for.
struct UpdateCall {
    unsigned long operation;  // REG_OP_CHANGE, REG_OP_ADD, REG_OP_DELETE
    unsigned long mask;
    void* record;  // the new one; null in a delete
    void* key;     // null in an add
};

// What an engine adds to the update frame.
class UpdateSteps : public PlaceSteps {
public:
    // Copies the registry, with the change applied.
    [[nodiscard]] virtual unsigned int copy() noexcept = 0;
    // Whether a copy that was made with this result is closed as a completed one, not abandoned.
    [[nodiscard]] virtual bool completes(unsigned int result) const noexcept {
        return result == 0 || result == REG_UNCHANGED;
    }
    // Gets ready what the verification is given; its failure is the result.
    [[nodiscard]] virtual unsigned int prepareVerify() noexcept { return 0; }
    // Compares and commits, under REG_FEATURE_DEFERRED_COMMIT.
    [[nodiscard]] virtual unsigned int verify() noexcept = 0;
    // Gives back the memory of the steps.
    [[nodiscard]] virtual unsigned int release() noexcept { return 0; }
    // Whether the last record is written otherwise when another one comes behind it.
    [[nodiscard]] virtual bool isOpenEnded(const Contents::Part& /*last*/) const noexcept { return true; }
    // For steps that know nothing of records; the engines' do.
    [[nodiscard]] bool identityOf(unsigned long /*mask*/, const void* /*key*/,
                                  unsigned int* /*identity*/) noexcept override {
        return false;
    }
    [[nodiscard]] Place nextPlace(Input& /*input*/, unsigned int* /*identity*/) noexcept override { return Place::End; }

protected:
    ~UpdateSteps() = default;
};

struct UpdatePlan {
    bool discards;          // an abandoned copy of a verified update is deleted, not left to be set aside
    bool logs;              // the Log callback is called
    bool isCommit = false;  // of a batch, which holds the lock and announces by itself
};

// What a lookup was asked for.
struct Search {
    unsigned long mask;
    void* key;
    void* result;  // the caller's record
    bool any;      // takes the next record whatever it holds
};

// What an engine adds to the frames of a lookup.
class LookupSteps : public PlaceSteps {
public:
    // The next record that the search takes, into the caller's, which holds so many bytes, as the buffer does.
    // REG_NO_MORE_RECORDS when there is none.
    [[nodiscard]] virtual unsigned int find(Input& input, const Search& search, RecordBuffer& work,
                                            unsigned long size) noexcept = 0;
    // Moves on as find() does, and hands the record straight out where that says and needs no more than the reading.
    // False where find() is to go on, from where the input is then.
    [[nodiscard]] virtual bool take(Input& /*input*/, const Search& /*search*/, unsigned long /*size*/) noexcept {
        return false;
    }
    [[nodiscard]] unsigned int takeOrFind(Input& input, const Search& search, RecordBuffer& work,
                                          unsigned long size) noexcept {
        return take(input, search, size) ? 0 : find(input, search, work, size);
    }
    // What Get answers, if nothing else, when the platform did not take its buffer back.
    [[nodiscard]] virtual unsigned int notFreed(unsigned int platformCode) noexcept = 0;

    // Like take(), of a record in memory that is Known, and all that the input has: false where the input is at its end
    // then when it is not the one. The buffer is kept between calls.
    [[nodiscard]] virtual bool takeKnown(Input& input, const Search& search, RecordBuffer& work,
                                         unsigned long size) noexcept = 0;

protected:
    ~LookupSteps() = default;
};

// Kept: a record below this size is never handed out.
constexpr unsigned long LEAST_COPY = 8;

// Copies a record that was found into the caller's. REG_RECORD_SIZE_REFUSED.
[[nodiscard]] unsigned int handOut(FunctionTrace& trace, const Search& search, const void* record,
                                   unsigned long size) noexcept;

// What an engine adds to the verify frame.
class VerifySteps {
public:
    // Walks both files. Sets *closeMode to REG_OP_FINISH to commit.
    [[nodiscard]] virtual unsigned int walk(Input& before, Input& after, RecordBuffer& oldRecord,
                                            RecordBuffer& newRecord, unsigned long* closeMode) noexcept = 0;

protected:
    ~VerifySteps() = default;
};

// One operation on one file.
class Transaction {
public:
    // tag: the engine's, for its buffers.
    Transaction(GenRegFile& file, FunctionTrace& trace, const char* tag) noexcept
        : file_(file), inside_(FileInternals::of(file)), trace_(trace), tag_(tag) {}

    // The steps of an update or a Get before any file is touched, with probes 10 to 60. REG_NO_VALIDATE_RECORD,
    // REG_RECORD_REFUSED, REG_NO_GET_MAX_RECORD_SIZE, REG_RECORD_TOO_SMALL, REG_RECORD_SIZE_REFUSED,
    // REG_NO_RECORD_BUFFER.
    [[nodiscard]] unsigned int prepare(unsigned long mask, void* record, RecordBuffer& buffer,
                                       unsigned long* size) noexcept;

    // The update behind the bar. The buffer is the operation's; it is released here. AGAIN: nothing has been done, and
    // the update is to be made once more, with steps of its own.
    static constexpr unsigned int AGAIN = ~0U;
    [[nodiscard]] unsigned int update(const UpdateCall& call, const UpdatePlan& plan, UpdateSteps& steps,
                                      RecordBuffer& buffer) noexcept;

    // A look-up in the open scan's file under REG_FEATURE_GET_IN_SCAN, else in the registry. REG_NOT_FOUND;
    // REG_MISSING passes through when passMissing is true.
    [[nodiscard]] unsigned int get(const Search& search, LookupSteps& steps, bool passMissing) noexcept;
    // The next record of the open scan.
    [[nodiscard]] unsigned int getNext(const Search& search, LookupSteps& steps) noexcept;

    // Reads the registry for a batch: *bytes is malloc's, and null where *missing. REG_OPEN_FAILED, REG_READ_FAILED,
    // REG_NO_MEMORY.
    [[nodiscard]] unsigned int readWhole(char** bytes, unsigned long* size, bool* missing) noexcept;
    // Tells the change log and the monitor of a batch that was committed.
    [[nodiscard]] unsigned int announce(const Batch& batch) noexcept;

    // The verification, all of it but the check of the slots.
    [[nodiscard]] unsigned int verify(VerifySteps& steps) noexcept;

private:
    class Reading;

    [[nodiscard]] unsigned int validate(unsigned long mask, void* record) noexcept;
    [[nodiscard]] unsigned int recordSize(unsigned long* size) noexcept;
    [[nodiscard]] unsigned int hold(RecordBuffer& buffer, unsigned long size) noexcept;
    // Among records in memory; the first buffer stays between searches.
    template <class Memory>
    [[nodiscard]] unsigned int findIn(Memory& memory, const Search& search, LookupSteps& steps, RecordBuffer& known,
                                      RecordBuffer& work, unsigned long size) noexcept;
    [[nodiscard]] unsigned int unopened(unsigned int rc, bool passMissing) noexcept;
    [[nodiscard]] unsigned int announce(const UpdateCall& call, bool logs) noexcept;
    [[nodiscard]] bool logsChanges() const noexcept;
    // What updates answer with and without a batch.
    [[nodiscard]] unsigned int notOpened(unsigned int rc) noexcept;
    [[nodiscard]] unsigned int notClosed(unsigned int rc) noexcept;
    [[nodiscard]] unsigned int verifyCopy(UpdateSteps& steps) noexcept;
    [[nodiscard]] unsigned int releaseAll(UpdateSteps& steps, RecordBuffer& buffer) noexcept;
    [[nodiscard]] unsigned int updateInBatch(const UpdateCall& call, UpdateSteps& steps, RecordBuffer& buffer) noexcept;
    [[nodiscard]] unsigned int openInBatch(const UpdateCall& call, UpdateSteps& steps, UpdateFiles& files) noexcept;
    [[nodiscard]] unsigned int notify() noexcept;
    [[nodiscard]] unsigned int checkScan() noexcept;

    GenRegFile& file_;
    FileInternals& inside_;
    FunctionTrace& trace_;
    const char* tag_;
};

// An update from its top to its end, but for the check of the slots.
template <typename Steps, typename Engine>
[[nodiscard]] unsigned int runUpdate(Engine& engine, FunctionTrace& trace, const char* tag, const UpdateCall& call,
                                     const UpdatePlan& plan) noexcept {
    RecordBuffer work{tag};
    unsigned long size = 0;
    Transaction transaction{engine, trace, tag};
    void* const validated = call.operation == REG_OP_DELETE ? call.key : call.record;
    if (const unsigned int rc = transaction.prepare(call.mask, validated, work, &size)) {
        return rc;
    }
    for (;;) {
        Steps steps{engine, trace, call, work};
        const unsigned int rc = transaction.update(call, plan, steps, work);
        if (rc != Transaction::AGAIN) {
            return rc;
        }
    }
}

}  // namespace genreg

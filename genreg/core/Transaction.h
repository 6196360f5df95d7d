// The frames that every operation of both engines runs in.
//
// An update:   validate - size - buffer | lock - open - copy - close - verify - discard - unlock - free - log - notify
// A lookup:    validate - size - buffer | open (or go back in the scan) - search - close (or restore) - free
// A verify:    slots - size - two buffers | open both files - walk - close, which commits or not - free
// What stands before the bar touches no file. The first failure decides the result; a failure of a clean-up step
// becomes it only when nothing failed before. Every early return closes, unlocks and frees.
#pragma once

#include <genreg/GenRegFile.h>

#include "genreg/core/FirstError.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/Input.h"
#include "genreg/core/RecordBuffer.h"

namespace genreg {

// What an engine adds to the update frame.
class UpdateSteps {
public:
    // Copies the registry, with the change applied. Sets *closeMode to REG_OP_READ to abandon the copy.
    [[nodiscard]] virtual unsigned int copy(unsigned long* closeMode) noexcept = 0;
    // Gets ready what the verification is given; its failure is the result.
    [[nodiscard]] virtual unsigned int prepareVerify() noexcept { return 0; }
    // Compares and commits, under REG_FEATURE_DEFERRED_COMMIT.
    [[nodiscard]] virtual unsigned int verify() noexcept = 0;
    // Gives back the memory of the steps.
    [[nodiscard]] virtual unsigned int release() noexcept { return 0; }

protected:
    ~UpdateSteps() = default;
};

struct UpdatePlan {
    unsigned long operation;  // REG_OP_CHANGE, REG_OP_ADD, REG_OP_DELETE
    bool discards;            // an abandoned copy of a verified update is deleted, not left to be set aside
    bool logs;                // the Log callback is called
    void* first;              // what Log is given
    void* second;
};

// What an engine adds to the verify frame.
class VerifySteps {
public:
    // Walks both files. Sets *closeMode to REG_OP_FINISH to commit.
    [[nodiscard]] virtual unsigned int walk(GenRegInput& before, GenRegInput& after, RecordBuffer& oldRecord,
                                            RecordBuffer& newRecord, unsigned long* closeMode) noexcept = 0;

protected:
    ~VerifySteps() = default;
};

}  // namespace genreg

class GenRegTransaction {
public:
    // The steps before any file is touched, with probes 10 to 60. REG_NO_VALIDATE_RECORD, REG_RECORD_REFUSED.
    [[nodiscard]] static unsigned int validate(GenRegFile& file, genreg::FunctionTrace& trace, unsigned long mask,
                                               void* record) noexcept;
    // REG_NO_GET_MAX_RECORD_SIZE, REG_RECORD_TOO_SMALL, REG_RECORD_SIZE_REFUSED.
    [[nodiscard]] static unsigned int recordSize(GenRegFile& file, genreg::FunctionTrace& trace,
                                                 unsigned long* size) noexcept;
    // Both of these, then the buffer: REG_NO_RECORD_BUFFER.
    [[nodiscard]] static unsigned int prepare(GenRegFile& file, genreg::FunctionTrace& trace, unsigned long mask,
                                              void* record, genreg::RecordBuffer& buffer, unsigned long* size) noexcept;

    // The update behind the bar. The buffer is the operation's; it is released here.
    [[nodiscard]] static unsigned int update(GenRegFile& file, genreg::FunctionTrace& trace,
                                             const genreg::UpdatePlan& plan, genreg::UpdateSteps& steps,
                                             genreg::RecordBuffer& buffer) noexcept;

    // The verification, all of it but the check of the slots.
    [[nodiscard]] static unsigned int verify(GenRegFile& file, genreg::FunctionTrace& trace, const char* tag,
                                             genreg::VerifySteps& steps) noexcept;

    // REG_SCAN_NOT_OPEN; REG_READ_FAILED in a forked child, whose scan is its parent's.
    [[nodiscard]] static unsigned int checkScan(const GenRegFile& file, genreg::FunctionTrace& trace) noexcept;

    // The read-ahead of the open scan, where the stream stands; null when there is no memory.
    [[nodiscard]] static GenRegInput* scanInput(GenRegFile& file) noexcept;
    // Moves the stream to where the read-ahead is, for a client that reads from it.
    static void placeStream(GenRegFile& file) noexcept;

    // Gives the stream of an open scan the scan's position, for reads that go through the stream itself; the next
    // GetNext goes on where they stop.
    static void handOverStream(GenRegFile& file) noexcept;

    // Whether an add appends to the registry file itself: duplicates need no look at what is there, and nothing is
    // verified.
    [[nodiscard]] static bool addsInPlace(const GenRegFile& file) noexcept;

    // Points a read-ahead at the first record of the open registry file.
    static void readRegistry(const GenRegFile& file, GenRegInput& input) noexcept;

private:
    static unsigned int announce(GenRegFile& file, genreg::FunctionTrace& trace,
                                 const genreg::UpdatePlan& plan) noexcept;
};

// Where a lookup reads: the open scan's file under REG_FEATURE_GET_IN_SCAN, else the registry under a transaction of
// its own. Closes, or puts the scan back, at its end.
class GenRegLookup {
public:
    GenRegLookup(GenRegFile& file, genreg::FunctionTrace& trace) noexcept : file_(file), trace_(trace) {}
    ~GenRegLookup() noexcept { (void)close(); }
    GenRegLookup(const GenRegLookup&) = delete;
    GenRegLookup& operator=(const GenRegLookup&) = delete;

    // REG_OPEN_FAILED; REG_MISSING passes through when passMissing is true.
    [[nodiscard]] unsigned int open(bool passMissing) noexcept;
    [[nodiscard]] GenRegInput& input() noexcept { return inScan_ ? *scan_ : own_; }
    // REG_CLOSE_FAILED.
    [[nodiscard]] unsigned int close() noexcept;

private:
    GenRegFile& file_;
    genreg::FunctionTrace& trace_;
    bool open_ = false;
    bool inScan_ = false;
    bool scanWasAtEnd_ = false;
    long long scanPosition_ = 0;
    GenRegInput* scan_ = nullptr;
    GenRegInput own_{-1, 0, 0};
};

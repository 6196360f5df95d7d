// Several updates of one object on a private copy in memory, and what is needed to commit them as one.
//
// An update of a batch is made by the steps that make it of a file: they read from memory what may concern them, write
// to memory, and are verified there. What they have made goes into the private copy, record by record.
#pragma once

#include "genreg/core/Contents.h"
#include "genreg/core/Transaction.h"

namespace genreg {

class Batch {
public:
    // missing: there is no registry file, which its first record would make.
    explicit Batch(bool missing) noexcept : wasMissing_(missing), missing_(missing) {}
    ~Batch() noexcept;
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    // Takes what was read, of malloc's; false without memory.
    [[nodiscard]] bool begin(char* bytes, unsigned long size) noexcept;

    [[nodiscard]] bool missing() const noexcept { return missing_; }
    [[nodiscard]] bool makesFile() const noexcept { return wasMissing_; }
    // How long the registry is now, in bytes.
    [[nodiscard]] unsigned long size() const noexcept { return contents_.size(); }

    // What the update is to read; its copy is gathered in memory. blindly: it is an add that would append to the file,
    // and reads nothing. REG_NO_MEMORY.
    [[nodiscard]] unsigned int open(UpdateSteps& steps, const UpdateCall& call, unsigned long features, bool blindly,
                                    UpdateFiles& files) noexcept;
    // What it has read, once more; and its copy.
    void compare(Input& before, Input& after, const UpdateFiles& files) const noexcept;
    // Takes in the copy. REG_NO_MEMORY: nothing has changed.
    [[nodiscard]] unsigned int take(UpdateFiles& files) noexcept;
    // Whether the update is to be made once more, and reads all of the registry then: its copy did not tell which
    // record is which.
    [[nodiscard]] bool again() const noexcept;

    // The new contents. All of them in one piece: false without memory.
    [[nodiscard]] const Contents& contents() const noexcept { return contents_; }
    // Whether there is an index: an update makes it, which wants to know more of a record than a look-up.
    [[nodiscard]] bool index(const PlaceSteps& /*steps*/, unsigned long features) const noexcept {
        return contents_.hasIndex(features);
    }
    [[nodiscard]] bool pack() noexcept { return contents_.pack(); }

    // Keeps what the change log is to be told of an update that was taken in. False without memory.
    [[nodiscard]] bool remember(const UpdateCall& call, unsigned int caller, unsigned long recordSize) noexcept;
    // tell(caller, operation, first, second), in the order of the updates.
    template <typename Tell>
    void recall(Tell tell) const noexcept {
        for (const Change* change = changes_; change != nullptr; change = change->next) {
            tell(change->caller, change->operation, change->first(), change->second());
        }
    }

    // The old ones.
    [[nodiscard]] const char* old() const noexcept { return old_; }
    [[nodiscard]] unsigned long oldSize() const noexcept { return oldSize_; }
    [[nodiscard]] bool changesNothing() const noexcept;

private:
    struct Change {
        Change* next;
        unsigned int caller;
        unsigned long operation;
        unsigned long size;  // of a record
        bool has[2];
        [[nodiscard]] char* record(int n) noexcept {
            return reinterpret_cast<char*>(this + 1) + static_cast<unsigned long>(n) * size;
        }
        [[nodiscard]] void* first() const noexcept { return has[0] ? const_cast<Change*>(this)->record(0) : nullptr; }
        [[nodiscard]] void* second() const noexcept { return has[1] ? const_cast<Change*>(this)->record(1) : nullptr; }
    };

    // A record that the update is shown, and where it stands there.
    struct Candidate {
        unsigned int place;
        unsigned long offset;
        unsigned long length;
    };

    [[nodiscard]] bool gather(Contents::Candidates candidates) noexcept;
    [[nodiscard]] bool pushCandidate(const Candidate& candidate) noexcept;
    [[nodiscard]] bool fits(const Output& copy) const noexcept;
    void apply(const Output& copy) noexcept;
    [[nodiscard]] bool equals(const Candidate& candidate, const Contents::Record& record) const noexcept;

    const bool wasMissing_;
    bool missing_;  // still
    char* old_ = nullptr;
    unsigned long oldSize_ = 0;
    Contents contents_;
    bool again_ = false;

    // Of the update that is made.
    UpdateSteps* steps_ = nullptr;
    unsigned long operation_ = 0;
    bool whole_ = true;                // it reads all of the registry
    bool blind_ = false;               // it reads nothing
    Output gathered_;                  // else what it reads
    Candidate* candidates_ = nullptr;  // and which records that is
    unsigned int candidateCount_ = 0;
    unsigned int candidateRoom_ = 0;

    Change* changes_ = nullptr;
    Change** nextChange_ = &changes_;
};

}  // namespace genreg

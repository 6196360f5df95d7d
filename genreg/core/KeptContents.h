// What an object keeps of its registry file: the bytes of one version, and an index of its records by identity.
//
// An answer from memory is found by the very steps that read a file. The index only leaves out records that those steps
// would pass by without a word: the candidates of a key, and every record of which the schema cannot tell without
// parsing it, are shown to them one by one, in the order of the file.
#pragma once

#include "genreg/core/Transaction.h"
#include "platform/posix/Posix.h"

namespace genreg {

class KeptContents {
public:
    explicit KeptContents(unsigned long mostBytes) noexcept : mostBytes_(mostBytes) {}
    ~KeptContents() noexcept { drop(); }
    KeptContents(const KeptContents&) = delete;
    KeptContents& operator=(const KeptContents&) = delete;

    // Whether the file at the path is the version that is kept. What is kept of another one is dropped.
    [[nodiscard]] bool isCurrent(const char* path) noexcept;

    // Takes in the file, which is open, locked and what isCurrent has just seen at the path; or does not, when it sees
    // it the first time or cannot be certain of the next change.
    void take(int descriptor, const char* path) noexcept;

    // A buffer for records that stays between look-ups.
    [[nodiscard]] RecordBuffer& work() noexcept { return work_; }

    // Bytes of what is kept: a record that is Known, or any that are to be looked through.
    struct Part {
        const char* bytes;
        unsigned long length;
        bool known;
    };
    class Candidates;

private:
    struct Entry {
        unsigned int offset;
        unsigned int length;
        unsigned int identity;
        unsigned int next;  // of the same list, behind this one in the file; NONE
    };
    static constexpr unsigned int NONE = ~0U;

    void drop() noexcept;
    void dropIndex() noexcept;
    [[nodiscard]] bool index(LookupSteps& steps, unsigned long features) noexcept;
    [[nodiscard]] bool fillIndex(LookupSteps& steps, unsigned int records) noexcept;
    [[nodiscard]] unsigned int after(unsigned int at, unsigned int identity) const noexcept;

    const unsigned long mostBytes_;
    posix::FileVersion seen_ = {};  // at the last look-up
    bool seenAgain_ = false;        // at the one before as well
    bool kept_ = false;             // the bytes are those of seen_
    int pin_ = -1;
    char* bytes_ = nullptr;

    bool indexTried_ = false;
    unsigned long indexFeatures_ = 0;  // of the object when it was made
    Entry* entries_ = nullptr;         // null: there is no index
    unsigned int* heads_ = nullptr;    // of the lists, by identity
    unsigned int headsMask_ = 0;
    unsigned int doubtful_ = NONE;  // the head of their list
    RecordBuffer work_{"KeptContents"};
};

// What may be what is looked for, in the order of the file: all of it where the index does not speak for the search.
// The features are the object's.
class KeptContents::Candidates {
public:
    Candidates(KeptContents& kept, LookupSteps& steps, const Search& search, unsigned long features) noexcept;
    // False when there is no other.
    [[nodiscard]] bool next(Part* part) noexcept;

private:
    const KeptContents& kept_;
    unsigned int identity_ = 0;
    bool all_;
    unsigned int known_ = NONE;
    unsigned int doubtful_ = NONE;
};

}  // namespace genreg

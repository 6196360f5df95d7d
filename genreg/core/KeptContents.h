// What an object keeps of its registry file: the bytes of one version, and an index of its records by identity.
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

    // The bytes, which are in one piece; whether there is an index of them for these features.
    [[nodiscard]] const Contents& contents() const noexcept { return contents_; }
    [[nodiscard]] bool index(PlaceSteps& steps, unsigned long features) noexcept {
        return contents_.index(steps, features, mostBytes_);
    }
    [[nodiscard]] static bool pack() noexcept { return true; }

private:
    void drop() noexcept;

    const unsigned long mostBytes_;
    posix::FileVersion seen_ = {};  // at the last look-up
    bool seenAgain_ = false;        // at the one before as well
    bool kept_ = false;             // the contents are those of seen_
    int pin_ = -1;
    Contents contents_;
    RecordBuffer work_{"KeptContents"};
};

}  // namespace genreg

// How the records of two readings of the global registry differ, for all who tell it: diff, watch, and the commands
// that show what they change.
#pragma once

#include <string>
#include <vector>

#include "base/Diff.h"
#include "base/Output.h"
#include "base/Update.h"
#include "records/RecordFields.h"

namespace tool {

struct FieldChange {
    unsigned long bit;
    const GlobalRegField* field;  // null for an item of a later release
    std::string name;
};

// A record that is in one of the two only, or has other values in the other; points into them.
struct RecordChange {
    const FoundRecord* before;        // null: inserted
    const FoundRecord* after;         // null: removed
    std::vector<FieldChange> fields;  // of a changed one, in the order of their bits

    [[nodiscard]] bool isChange() const { return before != nullptr && after != nullptr; }
    // The one that is there, the new one of two.
    [[nodiscard]] const FoundRecord& shown() const { return after != nullptr ? *after : *before; }
};

// By key: the removed and the changed ones in the order of `before`, then the inserted ones in that of `after`. Records
// that share a key, which no writer of the library leaves, are paired in their order.
[[nodiscard]] std::vector<RecordChange> compareRecords(const std::vector<FoundRecord>& before,
                                                       const std::vector<FoundRecord>& after);

// For people: records only in the one (-) or the other (+), and fields old -> new (~), under the names of the two.
// Nothing where there are none: what differs then are the order of records or notes that mean nothing to readers.
void printRecordDifference(Output& output, const Difference& difference, const std::vector<RecordChange>& changes);

// A change of the global registry, which has its folder made and whose difference is shown record by record. It has yet
// to be told how it is made, and how it is told.
[[nodiscard]] Change changeOfRecords(const std::string& path, const std::string& doing);

}  // namespace tool

// What became of records of the global registry, as it is told to people and to programs.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "base/ToldChange.h"
#include "records/RecordFields.h"

namespace tool {

// A record of which somebody knows what it was and is.
struct MadeRecord {
    std::optional<FoundRecord> before;
    std::optional<FoundRecord> after;
    bool changed = false;
    std::string operation = {};  // as ToldChange has it
};

[[nodiscard]] ToldChange toldRecord(const MadeRecord& made);
// Of one that was not there, by as much of its key as is known.
[[nodiscard]] ToldChange toldAbsence(const GlobalRegRecord& key);

// Deletions first, then what is there in its order.
[[nodiscard]] std::vector<ToldChange> changesOfRecords(const std::vector<FoundRecord>& before,
                                                       const std::vector<FoundRecord>& after);
// Between the contents of two files.
[[nodiscard]] std::vector<ToldChange> changesOfRecords(std::string_view before, std::string_view after);

}  // namespace tool

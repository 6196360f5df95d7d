// What became of the entries of a file, as it is told to people and to programs: each under what finds it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/ToldChange.h"
#include "entries/EntrySchema.h"

namespace tool {

// An entry of which somebody knows what it was and is.
struct MadeEntry {
    std::optional<Entry> before;
    std::optional<Entry> after;
    bool changed = false;
    std::string operation = {};  // as ToldChange has it
};

[[nodiscard]] ToldChange toldEntry(const EntrySchema& schema, const MadeEntry& made);

// Between the contents of a file of binary variables. Deletions first, then what is there in its order.
[[nodiscard]] std::vector<ToldChange> changesOfVariables(std::string_view before, std::string_view after);
// The same of lines. Those that only changed places are not told. A comment, a blank line and one of another form are
// told as a line that went and one that came.
[[nodiscard]] std::vector<ToldChange> changesOfLines(const EntrySchema& schema, const std::string& before,
                                                     const std::string& after);

}  // namespace tool

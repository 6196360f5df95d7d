// What turned the contents of a file into others, as it is told to people and to programs: record by record, line by
// line, each under its key.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "entries/EntrySchema.h"

namespace tool {

struct ToldChange {
    const char* action = "change";  // add, change, delete
    std::string type;               // "instance", "services"; "line" of a line that nothing finds
    Json key = Json::object();
    Json before{};  // all that there was to tell; null where there was nothing
    Json after{};
    std::string text{};  // for people: "instance RVN 9.7.0.2 inst1  startAtBoot: 0 -> 1"
};

// Deletions first, then what is there in its order.
[[nodiscard]] std::vector<ToldChange> changesOfRecords(std::string_view before, std::string_view after);
// Of binary variables.
[[nodiscard]] std::vector<ToldChange> changesOfVariables(std::string_view before, std::string_view after);
// Lines that only changed places are not told. A comment, a blank line and one of another form are told as a line that
// went and one that came.
[[nodiscard]] std::vector<ToldChange> changesOfLines(const EntrySchema& schema, const std::string& before,
                                                     const std::string& after);

// As all changes are told: "operation", "path", "type", the key, "action", "before", "after", "changed", "dryRun".
[[nodiscard]] Json changeObject(const ToldChange& change, const std::string& path);

}  // namespace tool

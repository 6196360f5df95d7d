// A change as programs are told of it: one shape, whoever tells.
#pragma once

#include <string>
#include <string_view>

#include "base/Json.h"

namespace tool {

struct ToldChange {
    std::string type;            // "instance", "services"; "line" of a line that nothing finds
    Json key = Json::object();   // what finds it; no members where nothing was changed and nothing in particular meant
    Json before{};               // the rest of what there was to tell; null where there was nothing
    Json after{};                // the same of what there is now
    bool changed = true;         // false: it is as it was
    std::string operation = {};  // of a batch, what its item asks for; else that of the command
    std::string text = {};       // for people, from those who compare contents: "services http tcp  port: 80 -> 8080"

    // add, change, delete, none
    [[nodiscard]] const char* action() const;
};

// Of what might have been changed, and was not.
[[nodiscard]] ToldChange unchanged(std::string_view type);

// "operation", "path", "type", the key, "action", "before", "after", "changed", "dryRun".
[[nodiscard]] Json changeObject(const ToldChange& change, const std::string& operation, const std::string& path,
                                bool dryRun);

}  // namespace tool

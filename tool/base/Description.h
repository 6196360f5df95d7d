// The commands as data, asked of their own declarations: what the manual and the completion are made of, so that a new
// command is in both.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Command.h"

namespace tool {

struct DescribedWord {
    std::string name;  // "FILE"
    std::string help;
    bool required = false;
    bool many = false;
};

struct DescribedOption {
    std::vector<std::string> names;  // "-n", "--dry-run"
    std::string what;                // of its value; empty: it has none
    std::vector<std::string> choices;
    std::string help;

    [[nodiscard]] bool isCalled(std::string_view name) const;
};

struct DescribedCommand {
    std::string name;
    std::string summary;
    std::vector<DescribedWord> words;
    std::vector<DescribedOption> options;  // its own
    unsigned int uses = 0;
    std::string footer;
};

[[nodiscard]] DescribedCommand describe(const Command& command);

// Those that a command of these uses takes; help and version, too.
[[nodiscard]] std::vector<DescribedOption> describeGlobalOptions(unsigned int uses);

// What is no command of any room: help.
[[nodiscard]] DescribedCommand describeHelp();

}  // namespace tool

// What a shell asks while a command line is typed: the words that may stand next, real names among them.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/Command.h"

namespace tool {

// The names that stand at a place of a command.
struct Names {
    struct Name {
        std::string word;
        std::string help;
    };
    std::vector<Name> found;
    bool files = false;
};

// For an operand ("NAME") or the value of an option of a command, where the operands before it are given. Throws
// whatever reading the names throws.
using NamesFor = Names(Context& context, const std::string& command, const std::string& operand,
                       const std::vector<std::string>& before);
// Those of registries.
[[nodiscard]] NamesFor namesFor;

// The words behind the program's name, the one that is being typed last. Prints a candidate a line, with a tab and what
// it is; ":files" where the names of files are welcome, which shells know best. It waits for nobody, and what cannot be
// read has no names.
void printCandidates(Context& context, std::span<const CommandGroup> groups, std::span<const Command> commands,
                     NamesFor* namesFor, const std::vector<std::string>& words);

[[nodiscard]] std::span<const Command> completionCommands();

}  // namespace tool

// The difference of two texts, line by line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Output.h"

namespace tool {

// Lines with their newline; a last one may lack it.
[[nodiscard]] std::vector<std::string_view> splitLines(std::string_view text);

struct Edit {
    enum class Kind { KEEP, REMOVE, INSERT };
    Kind kind;
    std::size_t oldLine;  // index into the lines of each side; where the edit stands when it has none there
    std::size_t newLine;
};

// What turns one sequence of lines into the other: all lines in order, removals before insertions.
[[nodiscard]] std::vector<Edit> compareLines(const std::vector<std::string_view>& before,
                                             const std::vector<std::string_view>& after);

struct Difference {
    std::string oldName;
    std::string newName;
    std::string before;
    std::string after;

    [[nodiscard]] bool empty() const { return before == after; }
};

// For people: the unified form, three lines of surroundings, coloured where wanted.
void printDifference(Output& output, const Difference& difference);

}  // namespace tool

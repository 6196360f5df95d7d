// Words of the command line as parts of a line "variable = value # comment": how they are written, or why they cannot
// be.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// A line that a new one is written over, so that it looks like the example, compact or not, its end too; without an
// example (an empty text) as the library does.
[[nodiscard]] std::string newLine(std::string_view example);

// The value as it must be written to be read back, in quotes where blanks would get lost. Throws a Failure that says
// why where there is no such way.
[[nodiscard]] std::string writtenValue(std::string_view value);

// Throws a Failure where the text cannot be a variable's name, or a comment.
void checkVariable(std::string_view variable);
void checkComment(std::string_view comment);

}  // namespace tool

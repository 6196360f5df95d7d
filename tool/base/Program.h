// Which program this is, since more than one is made of these rooms: what its help and its messages say of it.
#pragma once

#include <string_view>

namespace tool {

struct Program {
    std::string_view name;         // every message begins with it
    std::string_view description;  // of the help
    std::string_view footer;       // of the help: its exit statuses
    std::string_view waitHelp;     // of --wait
    std::string_view wordSummary;  // of the manual: what is to be said of its commands of one word
};

// genreg, until a main function says otherwise, before anything else.
[[nodiscard]] const Program& program() noexcept;
void setProgram(const Program& program) noexcept;

}  // namespace tool

// What is said, on standard error, of a file of lines that is not what it seems: lines of another form, values that end
// where nobody would think. One line each, and only of what was asked for.
#pragma once

#include <string>
#include <string_view>

#include "base/Command.h"

namespace tool {

// A line as its form sees it.
struct JudgedLine {
    enum class Kind { ENTRY, EMPTY, REFUSED };  // EMPTY: a comment or a blank line
    Kind kind = Kind::EMPTY;
    std::string name;  // of an entry
    std::string why;   // of a refused line
};

// A form of lines, for judging.
struct LineForm {
    const char* group;  // of the commands: "services"
    const char* noun;   // of an entry
    bool continued;     // a backslash before the newline goes on with the next line
    char nameEnd;       // of a name as people write it: what follows is not in the line's; 0: nothing
    JudgedLine (*judge)(const std::string& text);
};

[[nodiscard]] const LineForm& varValForm();
[[nodiscard]] const LineForm& servicesForm();
[[nodiscard]] const LineForm& initTabForm();

// What a list does not show. A file that cannot be read is for the command to report.
void remarkOnFile(Context& context, const LineForm& form, const std::string& path);

// What concerns one name.
void remarkOnName(Context& context, const LineForm& form, const std::string& path, std::string_view name);

// The number of the first line that begins with the name and is refused; 0 when there is none.
[[nodiscard]] std::size_t refusedLine(const LineForm& form, const std::string& path, std::string_view name);

}  // namespace tool

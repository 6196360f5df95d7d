// What is said, on standard error, of a file of lines that is not what it seems: lines of another schema, values that
// end where nobody would think. One line each, and only of what was asked for.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/DiskFiles.h"
#include "entries/EntrySchema.h"

namespace tool {

// A line as the library hands it to the schema: continuations joined, without the newline, up to a NUL byte.
[[nodiscard]] std::string lineText(const FileLine& line, bool continued);

// What a list does not show. A file that cannot be read is for the command to report.
void remarkOnFile(Context& context, const EntrySchema& schema, const std::string& path);

// What concerns one name.
void remarkOnName(Context& context, const EntrySchema& schema, const std::string& path, std::string_view name);

// The number of the first line that begins with the name and is refused; 0 when there is none.
[[nodiscard]] std::size_t refusedLine(const EntrySchema& schema, const std::string& path, std::string_view name);

// The schema that most of the lines are of; that of a usual name of a file counts first. Null where they are of none.
[[nodiscard]] const EntrySchema* formOf(const std::string& path, const std::string& bytes);

struct OddLine {
    std::size_t number;
    const char* kind;  // "other-form", "hidden" (behind a NUL byte), "cut", "backslash"
    std::string why;
};
// The lines that are not what they seem, in their order.
[[nodiscard]] std::vector<OddLine> oddLines(const EntrySchema& schema, const std::string& bytes);

// How many lines of each kind the bytes hold.
[[nodiscard]] std::map<JudgedLine::Kind, std::size_t> countLines(const EntrySchema& schema, const std::string& bytes);

}  // namespace tool

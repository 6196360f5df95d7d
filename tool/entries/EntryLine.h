// What the schemas of lines have in common: how comments are shown, and lines rewritten.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Output.h"

namespace tool {

// A comment as people mean it: without the blank behind its sign, and the carriage return at its end. Null is none.
[[nodiscard]] std::optional<std::string> shownComment(const char* comment);

// As the cell of a table and as the member of an object.
[[nodiscard]] std::string commentCell(const std::optional<std::string>& shown);
void putComment(Json& members, const std::optional<std::string>& shown);

// The cell of a comment that is asked for: none, as it stands; empty, none.
[[nodiscard]] std::optional<std::string> askedComment(const std::optional<std::string>& asked);

// What the library makes of a line when the record is written over it.
[[nodiscard]] std::string rewrittenLine(std::string_view line, void* record,
                                        unsigned int (*rewrite)(void* record, char* line));
// In place of a line that cannot be written: a text that is too long for any.
[[nodiscard]] std::string unwritableLine();

}  // namespace tool

// What the comments of all line forms have in common.
#pragma once

#include <optional>
#include <string>

#include "base/Output.h"

namespace tool {

// A comment as people mean it: without the blank behind its sign, and the carriage return at its end. Null is none.
[[nodiscard]] std::optional<std::string> shownComment(const char* comment);

// As the cell of a table and as the member of an object.
[[nodiscard]] std::string commentCell(const std::optional<std::string>& shown);
void putComment(Json& members, const std::optional<std::string>& shown);

}  // namespace tool

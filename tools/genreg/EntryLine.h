// What the lines of all forms have in common: blanks, and a comment behind "#".
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Output.h"

namespace tool {

// Cut off the text and answer: what stands before the first of the ends; the blanks at the front; those at the end.
std::string_view takeUntil(std::string_view& text, std::string_view ends);
std::string_view takeBlanks(std::string_view& text, std::string_view blanks);
std::string_view takeBlanksAtEnd(std::string_view& text, std::string_view blanks);

// The comment of a line, as it stands behind the sign, and as people mean it: without the blank that follows the sign.
struct LineComment {
    std::string gap;  // blanks before the sign, or at the end of a line without one
    std::optional<std::string> text;

    [[nodiscard]] std::optional<std::string> shown() const;
    // An empty text removes it. A comment that says so already keeps its bytes; another one gets this gap where no
    // blanks stand before it.
    void set(std::string_view wanted, std::string_view newGap);
    [[nodiscard]] std::string bytes() const { return text ? gap + "#" + *text : gap; }
};

// Takes the comment and the blanks before it off the line.
[[nodiscard]] LineComment takeComment(std::string_view& line, std::string_view blanks);

// A comment as the cell of a table and as the member of an object.
[[nodiscard]] std::string commentCell(const std::optional<std::string>& shown);
void putComment(Json& members, const std::optional<std::string>& shown);

}  // namespace tool

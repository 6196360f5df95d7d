// A line "variable = value # comment" with everything that stands between, so that one part can be replaced and the
// rest be kept byte for byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tool {

struct VarValLine {
    std::string lead;      // blanks before the variable
    std::string variable;  // as written
    std::string beforeSign;
    std::string afterSign;
    std::string value;
    std::string tail;                    // blanks behind the value
    std::optional<std::string> comment;  // everything behind "#"
    std::string end;                     // a carriage return, if the line has one

    // The line, newline included. One blank stands before the comment sign.
    [[nodiscard]] std::string text() const;

    // The comment as people mean it: without the blank that follows the sign.
    [[nodiscard]] std::optional<std::string> shownComment() const;
    // An empty text removes it. A comment that says so already keeps its bytes.
    void setComment(std::string_view text);
};

// Takes a line apart; nothing when it holds no pair. The newline at its end may be missing.
[[nodiscard]] std::optional<VarValLine> takeApart(std::string_view line);

// How a new line is written where nothing says otherwise, or as the given one, compact or not.
[[nodiscard]] VarValLine newLine(const VarValLine* example);

// The value as it must be written to be read back, in quotes where blanks would get lost. Throws a Failure that says
// why where there is no such way.
[[nodiscard]] std::string writtenValue(std::string_view value);

// Throws a Failure where the text cannot be a variable's name, or a comment.
void checkVariable(std::string_view variable);
void checkComment(std::string_view comment);

}  // namespace tool

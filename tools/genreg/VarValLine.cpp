#include "VarValLine.h"

#include <fmt/core.h>
#include <genreg/GenRegVarVal.h>

#include <algorithm>

#include "Answers.h"
#include "Text.h"

namespace tool {
namespace {

constexpr std::string_view BLANKS = " \t\r";

// Cuts the blanks at the front off the text and answers them.
std::string_view takeBlanks(std::string_view& text) {
    const std::size_t end = std::min(text.find_first_not_of(BLANKS), text.size());
    const std::string_view blanks = text.substr(0, end);
    text.remove_prefix(end);
    return blanks;
}

std::string_view trimmedEnd(std::string_view text) {
    const std::size_t last = text.find_last_not_of(BLANKS);
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// What the library reads when this pair is written; false when it reads no pair.
bool readsBack(std::string_view variable, std::string_view value) {
    const std::string line = fmt::format("{} = {}", variable, value);
    GenRegVarValRecord record{};
    return line.size() + 2 <= REG_LINE_SIZE && GenRegVarVal::ParseLine(&record, line.c_str()) == 0 &&
           record.contains == VARVAL_HAS_PAIR && record.variable == variable && record.value == value;
}

// Whether "name = value" of so many bytes around the sign is longer than a line may be.
bool isTooLong(std::size_t bytes) {
    return bytes + std::string_view(" = ").size() + 2 > REG_LINE_SIZE;
}

Failure tooLong(std::string_view what, std::size_t bytes) {
    return invalid(REG_LINE_TOO_LONG,
                   fmt::format("the {} has {} bytes; a line has room for {}, name and sign included", what, bytes,
                               REG_LINE_SIZE - 2),
                   "shorten it");
}

Failure whyValueIsRefused(std::string_view value) {
    const bool holdsQuote = value.find('"') != std::string_view::npos;
    if (isTooLong(value.size() + 1)) {
        return tooLong("value", value.size());
    }
    if (value.find('#') != std::string_view::npos) {
        return invalid(REG_RECORD_REFUSED, "the value holds \"#\", which starts the comment even inside quotes",
                       "leave the \"#\" out");
    }
    if (value.find('\t') != std::string_view::npos) {
        return invalid(REG_RECORD_REFUSED, "the value holds a tab, which reads back as a blank", "use blanks");
    }
    if (value.front() == '"' && value.find('"', 1) == std::string_view::npos) {
        return invalid(REG_UNTERMINATED_QUOTE, "the value begins with a double quote that is never closed",
                       "close the quote or leave it out");
    }
    if (value.front() == '"') {
        return invalid(REG_RECORD_REFUSED, "what follows the closing quote of the value would be lost",
                       "leave the quotes inside the value out");
    }
    if (!holdsQuote) {
        return tooLong("value, quoted for its blanks,", value.size() + 2);
    }
    return invalid(REG_RECORD_REFUSED,
                   "the value needs quotes for its blanks, but holds a double quote, and quotes do not nest",
                   "leave the quotes out, or write single blanks");
}

}  // namespace

std::string VarValLine::text() const {
    std::string line = lead + variable + beforeSign + "=" + afterSign + value;
    if (!comment) {
        return line + tail + end + "\n";
    }
    // Behind an empty value the blanks of the sign serve already; another one a time would add up.
    const bool blankThere = value.empty() && !afterSign.empty();
    return line + (blankThere ? "" : " ") + "#" + *comment + end + "\n";
}

std::optional<std::string> VarValLine::shownComment() const {
    if (!comment) {
        return std::nullopt;
    }
    return comment->empty() || comment->front() != ' ' ? *comment : comment->substr(1);
}

void VarValLine::setComment(std::string_view wanted) {
    if (wanted.empty()) {
        comment.reset();
        tail.clear();
    } else if (shownComment() != wanted) {
        comment = fmt::format(" {}", wanted);
    }
}

std::optional<VarValLine> takeApart(std::string_view line) {
    VarValLine result;
    if (!line.empty() && line.back() == '\n') {
        line.remove_suffix(1);
    }
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
        result.end = "\r";
    }
    const std::size_t sign = line.find('#');
    if (sign != std::string_view::npos) {
        result.comment = line.substr(sign + 1);
    }
    std::string_view pair = line.substr(0, sign);
    result.lead = takeBlanks(pair);
    const std::size_t equal = pair.find('=');
    if (equal == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view name = pair.substr(0, equal);
    result.variable = trimmedEnd(name);
    result.beforeSign = name.substr(result.variable.size());
    pair.remove_prefix(equal + 1);
    result.afterSign = takeBlanks(pair);
    const std::size_t quote = pair.empty() || pair.front() != '"' ? std::string_view::npos : pair.find('"', 1);
    result.value = quote == std::string_view::npos ? trimmedEnd(pair) : pair.substr(0, quote + 1);
    // Text between a closing quote and the comment is no part of the form; it goes with the value.
    const std::string_view rest = pair.substr(result.value.size());
    result.tail = rest.find_first_not_of(BLANKS) == std::string_view::npos ? rest : std::string_view();
    return result;
}

VarValLine newLine(const VarValLine* example) {
    VarValLine line;
    const bool compact =
        example != nullptr && example->beforeSign.empty() && example->afterSign.empty() && !example->value.empty();
    line.beforeSign = line.afterSign = compact ? "" : " ";
    line.end = example != nullptr ? example->end : "";
    return line;
}

std::string writtenValue(std::string_view value) {
    refuseControl("value", value);
    if (readsBack("v", value)) {
        return std::string(value);
    }
    std::string quoted = fmt::format("\"{}\"", value);
    if (value.find('"') == std::string_view::npos && readsBack("v", quoted)) {
        return quoted;
    }
    throw whyValueIsRefused(value);
}

void checkVariable(std::string_view variable) {
    refuseControl("name", variable);
    if (variable.empty()) {
        throw invalid(REG_NAME_MISSING, "the name is empty", "name the variable");
    }
    if (isTooLong(variable.size() + 1)) {
        throw tooLong("name", variable.size());
    }
    if (!readsBack(variable, "1")) {
        throw invalid(
            REG_RECORD_REFUSED,
            fmt::format("\"{}\" cannot be a name: \"=\", \"#\", a tab, or a blank at an end or beside another "
                        "would be read as something else",
                        printable(variable)),
            "choose a name without them");
    }
}

void checkComment(std::string_view comment) {
    refuseControl("comment", comment);
}

}  // namespace tool

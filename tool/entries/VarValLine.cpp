#include "entries/VarValLine.h"

#include <fmt/core.h>
#include <genreg/GenRegVarVal.h>

#include <algorithm>

#include "base/Answers.h"
#include "base/Text.h"

namespace tool {
namespace {

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

std::string newLine(std::string_view example) {
    const auto isText = [&](std::size_t at) {
        return at < example.size() && std::string_view(" \t\r\n#").find(example[at]) == std::string_view::npos;
    };
    const std::size_t equal = example.find('=');
    const bool compact = equal != std::string_view::npos && equal > 0 && isText(equal - 1) && isText(equal + 1);
    return fmt::format("{}{}\n", compact ? "x=0" : "x = 0",
                       example.ends_with("\r\n") || example.ends_with('\r') ? "\r" : "");
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

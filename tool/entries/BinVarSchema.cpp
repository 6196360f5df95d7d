// Files of binary records: a name, a 32-bit value, a comment.
#include <fmt/core.h>

#include <charconv>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/BinVarRegistry.h"

namespace tool {
namespace {

void checkText(std::string_view what, const std::string& text) {
    refuseControl(what, text);
    constexpr std::size_t MOST = BINVAR_TEXT_SIZE - 1;
    if (text.size() > MOST) {
        throw invalid(REG_BUFFER_TOO_SMALL,
                      fmt::format("the {} has {} bytes; a record has room for {}", what, text.size(), MOST),
                      fmt::format("shorten the {}", what));
    }
}

int checkedValue(const std::string& text) {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc::result_out_of_range) {
        throw invalid(REG_RECORD_REFUSED, fmt::format("{} does not fit into 32 bits", printable(text)),
                      "values are -2147483648 to 2147483647");
    }
    if (error != std::errc() || stop != end) {
        throw invalid(REG_RECORD_REFUSED, fmt::format("\"{}\" is no whole number", printable(text)),
                      "values are -2147483648 to 2147483647");
    }
    return value;
}

void ask(EntryRequest& request, const EntryWords& words, bool /*fresh*/) {
    checkText("name", words.name);
    checkText("comment", words.comment.value_or(""));
    if (words.name.empty()) {
        throw invalid(REG_NAME_MISSING, "the name is empty", "name the variable");
    }
    const auto value = words.fields.empty() ? std::nullopt : std::optional(checkedValue(words.fields[0]));
    const BinVar wanted{words.name, value, words.comment};
    request.edit.rewrite = [wanted](std::string_view record) { return wanted.rewrite(record); };
    request.edit.cells = {cell(wanted.name), value ? std::optional(std::to_string(*value)) : std::nullopt,
                          wanted.comment ? std::optional(cell(*wanted.comment)) : std::nullopt};
    if (value) {
        request.addWords = fmt::format("{} {}", shellWord(words.name), shellWord(words.fields[0]));
    }
}

std::unique_ptr<EntryFile> open(const std::string& path, bool severalAllowed) {
    return std::make_unique<BinVarRegistry>(path, severalAllowed);
}

}  // namespace

const EntrySchema& binVarSchema() {
    static const EntrySchema SCHEMA{
        .group = "binvar",
        .noun = "variable",
        .place = "record",
        .list = {"binvar list", "all variables, with their comments"},
        .get = {"binvar get", "the value of a variable, the first of its records"},
        .getAll = {"binvar get-all", "the values of every record of a variable"},
        .set = {"binvar set", "change a value; the record keeps its place and comment"},
        .add = {"binvar add", "append a record for a new variable"},
        .remove = {"binvar delete", "remove the record of a variable"},
        .apply = {"binvar apply", "make a batch of changes with one commit"},
        .file = "the binary variable/value file",
        .found = {"NAME", "the variable"},
        .named = {"NAME", "the variable"},
        .fields = {{"VALUE", "a whole number of 32 bits"}},
        .heading = {"NAME", "VALUE", "COMMENT"},
        .mask = BINVARVAL_MATCH_VARIABLE,
        .valueMask = BINVARVAL_MATCH_VALUE,
        .open = open,
        .ask = ask,
        .takeName = takeVariable,
        .takeWords = takeValue,
        .keyMembers = {"name"},
        .otherMembers = {"value", "comment"},
        .anyValue = "0",
        .shown = binVarLines,
    };
    return SCHEMA;
}

}  // namespace tool

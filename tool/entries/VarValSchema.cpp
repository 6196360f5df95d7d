// Files of lines "variable = value # comment".
#include <fmt/core.h>
#include <genreg/GenRegVarVal.h>

#include <algorithm>
#include <cmath>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/EntryLine.h"
#include "entries/EntrySchema.h"
#include "entries/LineRegistry.h"

namespace tool {
namespace {

std::optional<std::string> commentOf(const GenRegVarValRecord& record) {
    return shownComment((record.contains & VARVAL_HAS_COMMENT) != 0 ? record.comment : nullptr);
}

struct VarValLines {
    using Schema = GenRegVarVal;
    using Record = GenRegVarValRecord;

    static constexpr GenRegParseLine parse = GenRegVarVal::ParseKeptLine;  // comments as they stand

    static bool isEntry(const Record& record) { return (record.contains & VARVAL_HAS_PAIR) != 0; }

    static Entry describe(const Record& record) {
        const auto comment = commentOf(record);
        Entry entry;
        entry.name = record.variable;
        entry.value = record.value;
        entry.cells = {cell(entry.name), cell(entry.value), commentCell(comment)};
        putText(entry.members, "name", entry.name);
        putText(entry.members, "value", entry.value);
        putComment(entry.members, comment);
        return entry;
    }

    // What finds a pair is all in the record.
    static void makeKey(Record& /*record*/) {}
};

JudgedLine judge(const std::string& text) {
    auto record = std::make_unique<GenRegVarValRecord>();
    switch (GenRegVarVal::ParseLine(record.get(), text.c_str())) {
        case 0:
            break;
        case REG_UNTERMINATED_QUOTE:
            return {JudgedLine::Kind::REFUSED, "",
                    text.find('#') == std::string::npos
                        ? "a quote is never closed"
                        : "a quote is never closed; \"#\" begins the comment even inside quotes"};
        default:
            return {JudgedLine::Kind::REFUSED, "", "there is no \"=\" in it"};
    }
    if (VarValLines::isEntry(*record)) {
        return {JudgedLine::Kind::ENTRY, record->variable, ""};
    }
    return {record->contains == 0 ? JudgedLine::Kind::BLANK : JudgedLine::Kind::COMMENT, "", ""};
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

// A line that a new one is written over, so that it looks like the example, compact or not, its end too; without an
// example (an empty text) as the library does.
std::string newLine(std::string_view example) {
    const auto isText = [&](std::size_t at) {
        return at < example.size() && std::string_view(" \t\r\n#").find(example[at]) == std::string_view::npos;
    };
    const std::size_t equal = example.find('=');
    const bool compact = equal != std::string_view::npos && equal > 0 && isText(equal - 1) && isText(equal + 1);
    return fmt::format("{}{}", compact ? "x=0" : "x = 0", example.ends_with('\r') ? "\r" : "");
}

// The value as it must be written to be read back, in quotes where blanks would get lost. Throws a Failure that says
// why where there is no such way.
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

// One blank stands before the comment, as in a line that the library writes.
std::string settled(const std::string& line) {
    const std::size_t sign = line.find('#');
    if (sign == std::string::npos) {
        return line;
    }
    const std::string_view before = std::string_view(line).substr(0, sign);
    return fmt::format("{} {}", before.substr(0, before.find_last_not_of(" \t\r") + 1), line.substr(sign));
}

struct Pair {
    std::string name;
    std::optional<std::string> value;  // none: as it stands
    std::optional<std::string> comment;
};

// The line with what is asked for.
std::string rewritten(Pair pair, std::string_view line) {
    const auto record = std::make_unique<GenRegVarValRecord>();
    if (GenRegVarVal::ParseKeptLine(record.get(), std::string(line).c_str()) != 0 || !VarValLines::isEntry(*record)) {
        return unwritableLine();
    }
    const bool says = !pair.comment || askedComment(pair.comment) == commentCell(commentOf(*record));
    if (says && record->variable == pair.name && (!pair.value || record->value == *pair.value)) {
        return std::string(line);
    }
    record->variable = pair.name.data();
    record->value = pair.value ? pair.value->data() : record->value;
    std::string comment = " " + pair.comment.value_or("");
    if (!says) {
        record->contains = VARVAL_HAS_PAIR | (pair.comment->empty() ? 0 : VARVAL_HAS_COMMENT);
        record->comment = comment.data();
    }
    return settled(rewrittenLine(line, record.get(), GenRegVarVal::RewriteLine));
}

void ask(EntryRequest& request, const EntryWords& words, bool /*fresh*/) {
    checkVariable(words.name);
    refuseControl("comment", words.comment.value_or(""));
    Pair pair{words.name, std::nullopt, words.comment};
    if (!words.fields.empty()) {
        pair.value = writtenValue(words.fields[0]);
    }
    request.edit.rewrite = [pair](std::string_view line) { return rewritten(pair, line); };
    request.edit.cells = {cell(pair.name), pair.value ? std::optional(cell(*pair.value)) : std::nullopt,
                          askedComment(pair.comment)};
    if (pair.value) {
        request.addWords = fmt::format("{} {}", shellWord(pair.name), shellWord(*pair.value));
    }
}

// The library's getters look a variable up and convert what they find first. Here they find the lines of one value
// only.
class LinesOfValue final : public GenRegVarVal {
public:
    LinesOfValue(const std::string& path, const std::string& value, unsigned int* code)
        : GenRegVarVal(path.c_str(), code) {
        wanted = &value;
        matchRecord = match;
    }

private:
    static unsigned int match(unsigned long mask, void* record, void* key) {
        const char* const value = static_cast<GenRegVarValRecord*>(record)->value;
        return MatchRecord(mask, record, key) != 0 && value != nullptr && *wanted == value ? 1 : 0;
    }

    static inline const std::string* wanted = nullptr;
};

Json convert(const std::string& path, const Entry& entry, const std::string& type) {
    unsigned int code = 0;
    LinesOfValue file(path, entry.value, &code);
    waitPatiently(file, path);
    const char* name = entry.name.c_str();
    bool truth = false;
    double real = 0;
    long number = 0;
    unsigned long natural = 0;
    if (type == "bool" && file.GetBooleanValue(name, &truth)) {
        return truth;
    }
    if (type == "double" && file.GetDoubleValue(name, &real)) {
        // JSON has no number for those that are none.
        return std::isfinite(real) ? Json(real) : Json(fmt::format("{}", real));
    }
    if (type == "int" && file.GetSint64Value(name, &number)) {
        return number;
    }
    // The conversion behind it takes a sign and wraps around.
    if (type == "uint" && !entry.value.starts_with('-') && file.GetUint64Value(name, &natural)) {
        return natural;
    }
    throw answer("invalid", EXIT_INVALID, 0, path,
                 fmt::format("{} is {} in line {}, which is no {}", printable(entry.name), cell(entry.value),
                             entry.number, type),
                 "read it as text, without --type");
}

}  // namespace

const EntrySchema& varValSchema() {
    static const EntrySchema SCHEMA{
        .group = "varval",
        .noun = "variable",
        .place = "line",
        .list = {"varval list", "all pairs, with their comments"},
        .get = {"varval get", "the value of a variable, the first of its lines"},
        .getAll = {"varval get-all", "the values of every line of a variable"},
        .set = {"varval set", "change a value; the line keeps its layout and comment"},
        .add = {"varval add", "append a line for a new variable"},
        .remove = {"varval delete", "remove the line of a variable"},
        .apply = {"varval apply", "make a batch of changes with one commit"},
        .file = "the registry file",
        .found = {"NAME", "the variable"},
        .named = {"NAME", "the variable"},
        .fields = {{"VALUE", "the value; quoted where its blanks need it"}},
        .heading = {"NAME", "VALUE", "COMMENT"},
        .mask = VARVAL_MATCH_VARIABLE,
        .valueMask = VARVAL_MATCH_VALUE,
        .quotes = true,
        .tooLong = "with its comment the line would be longer than 2046 bytes",
        .shorten = "shorten the value or the comment",
        .open = openLines<VarValLines>,
        .ask = ask,
        .takeName = takeVariable,
        .takeWords = takeValue,
        .keyMembers = {"name"},
        .otherMembers = {"value", "comment"},
        .anyValue = "0",
        .convert = convert,
        .layoutLike = newLine,
        .judge = judge,
        .describe = describeLine<VarValLines>,
        .pair = "pair",
    };
    return SCHEMA;
}

}  // namespace tool

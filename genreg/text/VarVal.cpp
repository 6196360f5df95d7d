// The variable/value schema: its record callbacks.
#include <genreg/GenRegVarVal.h>
#include <genreg/LineUtilities.h>

#include <cstdio>
#include <cstring>

#include "genreg/text/KeptLine.h"
#include "genreg/text/LineShapes.h"
#include "genreg/text/PassOver.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::isBlank;
using genreg::LineText;
using genreg::sameText;

namespace {

// Every constructor writes the flag, so objects of two threads would race on a plain int. The compilers' own functions
// do it: not every library of the language has std::atomic_ref.
int compactFlag() noexcept {
    return __atomic_load_n(&bCompactFormattedLine, __ATOMIC_RELAXED);
}

void clearCompactFlag() noexcept {
    __atomic_store_n(&bCompactFormattedLine, 0, __ATOMIC_RELAXED);
}

// The blanks of a line as it stands, around its variable and its "=".
struct Layout {
    const char* indent;
    std::size_t indentLength;
    const char* beforeEqual;
    std::size_t beforeEqualLength;
    const char* afterEqual;
    std::size_t afterEqualLength;
};

// False when the line has no "=" before its comment.
bool readLayout(const char* line, Layout* layout) noexcept {
    const char* const equal = line + std::strcspn(line, "=#\n");
    if (*equal != '=') {
        return false;
    }
    const char* start = line;
    while (isBlank(*start)) {
        ++start;
    }
    const char* blanks = equal;
    while (blanks > start && isBlank(blanks[-1])) {
        --blanks;
    }
    const char* behind = equal + 1;
    while (isBlank(*behind)) {
        ++behind;
    }
    *layout = {line,      static_cast<std::size_t>(start - line),      blanks, static_cast<std::size_t>(equal - blanks),
               equal + 1, static_cast<std::size_t>(behind - equal - 1)};
    return true;
}

Layout newLayout() noexcept {
    const std::size_t blanks = compactFlag() != 0 ? 0 : 1;
    return {"", 0, " ", blanks, " ", blanks};
}

// Whether ParseLine takes the line, of which the blanks in front are left out.
bool surelyParses(const char* at, const char* end) noexcept {
    const auto stops = [&] { return at == end || *at == '#' || *at == '\n' || *at == '\0'; };
    if (stops()) {
        return true;
    }
    while (!stops() && *at != '=') {
        ++at;
    }
    if (stops()) {
        return false;
    }
    do {
        ++at;
    } while (at < end && (isBlank(*at) || *at == '\r'));
    if (stops() || *at != '"') {
        return true;
    }
    do {
        ++at;
    } while (!stops() && *at != '"');
    return !stops();
}

// Where the blanks in front of a line end.
const char* firstWord(const char* line, const char* end) noexcept {
    while (line < end && (isBlank(*line) || *line == '\r')) {
        ++line;
    }
    return line;
}

// Whether a line may hold this variable, judged by its first word alone. The words of a name may stand any blanks
// apart, and quotes keep theirs: a name that has a blank is judged by what stands before it.
bool lineMayHold(unsigned long mask, const char* line, unsigned long length, const void* key) noexcept {
    const char* const variable = static_cast<const GenRegVarValRecord*>(key)->variable;
    if ((mask & VARVAL_MATCH_VARIABLE) == 0 || variable == nullptr) {
        return true;
    }
    const char* const end = line + length;
    const char* const first = firstWord(line, end);
    const char* at = first;
    const char* want = variable;
    while (at < end && *want != '\0' && *want != ' ' && *at == *want) {
        ++at;
        ++want;
    }
    const bool wordHolds = *want == '\0' || *want == ' ';
    const bool may = at == end || (wordHolds && (*want == ' ' || std::strchr(" \t\r\n=", *at) != nullptr));
    return may || !surelyParses(first, end);
}

// The words of a name may stand any blanks apart: only a name of one word is a line's beginning.
std::size_t passLines(unsigned long mask, const char* lines, std::size_t length, const void* key,
                      bool joined) noexcept {
    const char* const variable = static_cast<const GenRegVarValRecord*>(key)->variable;
    if ((mask & VARVAL_MATCH_VARIABLE) == 0 || variable == nullptr || !genreg::isWord(variable)) {
        return 0;
    }
    genreg::LinePasser<genreg::PairLines> passer(lines, length, joined, genreg::Beginning(variable));
    return passer.pass([&](const char* line, std::size_t size) { return lineMayHold(mask, line, size, key); });
}

// A variable is known by its first word, which no blank of the line and no quote changes.
constexpr std::string_view WORD_ENDS = " \t\r\n=#";

bool identifyLine(const char* line, std::size_t length, std::string_view* identity) noexcept {
    const char* const end = line + length;
    const char* const first = firstWord(line, end);
    *identity = genreg::frontOf(first, end, WORD_ENDS);
    return surelyParses(first, end);
}

bool identifyKey(unsigned long mask, const void* key, std::string_view* identity) noexcept {
    const char* const variable = static_cast<const GenRegVarValRecord*>(key)->variable;
    if ((mask & VARVAL_MATCH_VARIABLE) == 0 || variable == nullptr) {
        return false;
    }
    *identity = genreg::frontOf(variable, WORD_ENDS);
    return true;
}

constexpr genreg::LineWays LINE_WAYS = {passLines, identifyLine, identifyKey};

// The pieces of a line with a pair, as they stand.
struct PairPlace {
    std::string_view variable;
    std::string_view value;  // and what follows its closing quote
    genreg::CommentPlace comment;
};

PairPlace placeOf(const char* line, const char* end) noexcept {
    const genreg::CommentPlace comment = genreg::commentPlace(line, end);
    const char* const variable = std::find_if_not(line, comment.body, genreg::isWhite);
    const char* const equal = std::find(variable, comment.body, '=');
    // Inside quotes one blank belongs to the sign, all others to the texts.
    const bool quoted = std::count(variable, equal, '"') % 2 != 0;
    const char* variableEnd = equal;
    while (variableEnd > variable && genreg::isWhite(variableEnd[-1]) && !(quoted && variableEnd < equal)) {
        --variableEnd;
    }
    const char* const behind = equal + 1;
    const char* value = behind;
    // Of the blanks behind the sign one comes before an empty value, the others before the comment.
    const bool empty = behind == comment.body;
    const bool one = quoted || (empty && comment.sign != end);
    const char* const limit = empty ? std::min(comment.sign, comment.end) : comment.body;
    while (value < limit && genreg::isWhite(*value) && !(one && value > behind)) {
        ++value;
    }
    return {genreg::between(variable, variableEnd), genreg::between(value, std::max(value, comment.body)), comment};
}

}  // namespace

GenRegVarVal::GenRegVarVal(const char* path, unsigned int* rc) noexcept {
    FunctionTrace trace{Function::GenRegVarVal};
    *rc = genreg::TextSchema::construct(*this, trace, path, lineMayHold, LINE_WAYS,
                                        REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_ALLOW_DUPLICATES);
    if (*rc != 0) {
        return;
    }
    clearCompactFlag();
}

GenRegVarVal::~GenRegVarVal() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegVarVal};
}

unsigned int GenRegVarVal::ParseLine(void* record, const char* line) noexcept {
    FunctionTrace trace{Function::VarValParseLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    auto& parsed = *static_cast<GenRegVarValRecord*>(record);
    parsed.contains = 0;
    parsed.variable = parsed.value = nullptr;
    char* const text = parsed.lineText;
    genreg::copyLine(parsed.lineText, line);
    parsed.comment = genreg::cutComment(text);
    if (parsed.comment != nullptr) {
        parsed.contains = VARVAL_HAS_COMMENT;
        CleanString(parsed.comment);
    }
    if (const unsigned int rc = StripWhiteSpace(text)) {
        return trace.fail(20, rc);
    }
    if (*text == '\0') {
        return 0;
    }
    parsed.contains |= VARVAL_HAS_PAIR;
    char* const equal = std::strchr(text, '=');
    if (equal == nullptr) {
        return trace.fail(30, REG_NO_EQUAL_SIGN);
    }
    *equal = '\0';
    if (equal > text && equal[-1] == ' ') {
        equal[-1] = '\0';
    }
    char* const value = equal[1] == ' ' ? equal + 2 : equal + 1;
    if (*value == '"') {
        char* const close = std::strchr(value + 1, '"');
        if (close == nullptr) {
            return trace.fail(40, REG_UNTERMINATED_QUOTE);
        }
        close[1] = '\0';
    }
    parsed.variable = text;
    parsed.value = value;
    return 0;
}

unsigned int GenRegVarVal::FormatLine(void* record, char* line) noexcept {
    FunctionTrace trace{Function::VarValFormatLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& wanted = *static_cast<const GenRegVarValRecord*>(record);
    const bool commented = (wanted.contains & VARVAL_HAS_COMMENT) != 0;
    LineText text;
    if ((wanted.contains & VARVAL_HAS_PAIR) != 0) {
        if (wanted.variable == nullptr || wanted.value == nullptr) {
            return trace.fail(20, wanted.variable == nullptr ? REG_NAME_MISSING : REG_VALUE_MISSING);
        }
        Layout layout = newLayout();
        if (*line != '\0' && !readLayout(line, &layout)) {
            return trace.fail(30, REG_NO_EQUAL_SIGN);
        }
        text.append(layout.indent, layout.indentLength);
        text.append(wanted.variable);
        text.append(layout.beforeEqual, layout.beforeEqualLength);
        text.append("=");
        text.append(layout.afterEqual, layout.afterEqualLength);
        text.append(wanted.value);
        text.append(commented ? " " : "");
    }
    if (commented) {
        text.append("# ");
        text.append(wanted.comment != nullptr ? wanted.comment : "");
    }
    return text.copyTo(line, "\n") ? 0 : trace.fail(40, REG_LINE_TOO_LONG);
}

unsigned int GenRegVarVal::MatchRecord(unsigned long mask, void* record, void* key) noexcept {
    FunctionTrace trace{Function::VarValMatchRecord};
    if (record == nullptr) {
        return trace.exit(0);
    }
    const auto& stored = *static_cast<const GenRegVarValRecord*>(record);
    const bool hasPair = (stored.contains & VARVAL_HAS_PAIR) != 0;
    if (key == nullptr) {
        const bool compares = (mask & (VARVAL_MATCH_VARIABLE | VARVAL_MATCH_VALUE)) != 0;
        return trace.exit(hasPair && !compares ? 1 : 0);
    }
    const auto& sought = *static_cast<const GenRegVarValRecord*>(key);
    const bool matches = hasPair &&
                         ((mask & VARVAL_MATCH_VARIABLE) == 0 || sameText(stored.variable, sought.variable)) &&
                         ((mask & VARVAL_MATCH_VALUE) == 0 || sameText(stored.value, sought.value));
    return trace.exit(matches ? 1 : 0);
}

unsigned int GenRegVarVal::ParseKeptLine(void* record, const char* line) noexcept {
    FunctionTrace trace{Function::VarValParseKeptLine};
    const unsigned int rc = ParseLine(record, line);
    if (record != nullptr && line != nullptr) {
        auto& parsed = *static_cast<GenRegVarValRecord*>(record);
        genreg::restoreComment(parsed.lineText, parsed.comment, line);
    }
    return trace.exit(rc);
}

unsigned int GenRegVarVal::RewriteLine(void* record, char* line) noexcept {
    FunctionTrace trace{Function::VarValRewriteLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& wanted = *static_cast<const GenRegVarValRecord*>(record);
    const char* const comment = genreg::commentOf((wanted.contains & VARVAL_HAS_COMMENT) != 0, wanted.comment);
    GenRegVarValRecord stored;
    const bool pair = (wanted.contains & VARVAL_HAS_PAIR) != 0 && wanted.variable != nullptr && wanted.value != nullptr;
    if (*line == '\0' || !pair) {
        stored.contains = wanted.contains;
        stored.comment = const_cast<char*>(comment != nullptr ? genreg::withoutBlank(comment) : nullptr);
        stored.variable = wanted.variable;
        stored.value = wanted.value;
        return trace.exit(FormatLine(&stored, line));
    }
    if (const unsigned int rc = ParseKeptLine(&stored, line)) {
        return trace.fail(20, rc);
    }
    if ((stored.contains & VARVAL_HAS_PAIR) == 0) {
        return trace.fail(30, REG_NO_EQUAL_SIGN);
    }
    genreg::LineEdit edit(line);
    const PairPlace place = placeOf(line, edit.end());
    if (!sameText(stored.variable, wanted.variable)) {
        edit.replace(place.variable, wanted.variable);
    }
    if (!sameText(stored.value, wanted.value)) {
        edit.replace(place.value, wanted.value);
        const bool touches = place.value.empty() && place.value.data() == place.comment.sign;
        edit.insert(touches && stored.comment != nullptr && comment != nullptr ? " " : "");
    }
    if (!genreg::sameComment(stored.comment, comment)) {
        genreg::replaceComment(edit, place.comment, comment, " ");
    }
    if (!edit.copyTo(line)) {
        return trace.fail(40, REG_LINE_TOO_LONG);
    }
    const bool readBack = ParseKeptLine(&stored, line) == 0 && MatchWhole(genreg::EVERY_FIELD, &stored, record) == 1;
    return readBack ? 0 : trace.fail(50, REG_RECORD_REFUSED);
}

unsigned int GenRegVarVal::MatchWhole(unsigned long mask, void* record, void* key) noexcept {
    FunctionTrace trace{Function::VarValMatchWhole};
    const unsigned int matches = MatchRecord(mask, record, key);
    if (matches != 1 || mask != genreg::EVERY_FIELD) {
        return trace.exit(matches);
    }
    const auto& stored = *static_cast<const GenRegVarValRecord*>(record);
    const auto& sought = *static_cast<const GenRegVarValRecord*>(key);
    const auto comment = [](const GenRegVarValRecord& of) {
        return genreg::commentOf((of.contains & VARVAL_HAS_COMMENT) != 0, of.comment);
    };
    return trace.exit(genreg::sameComment(comment(stored), comment(sought)) ? 1 : 0);
}

unsigned int GenRegVarVal::ValidateRecord(unsigned long mask, void* record) noexcept {
    FunctionTrace trace{Function::VarValValidateRecord};
    if (record == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& checked = *static_cast<const GenRegVarValRecord*>(record);
    if (checked.contains == 0) {
        return trace.fail(20, REG_EMPTY_RECORD);
    }
    if ((mask & VARVAL_MATCH_VARIABLE) != 0 && checked.variable == nullptr) {
        return trace.fail(30, REG_NAME_MISSING);
    }
    if ((mask & VARVAL_MATCH_VALUE) != 0 && checked.value == nullptr) {
        return trace.fail(40, REG_VALUE_MISSING);
    }
    return 0;
}

unsigned int GenRegVarVal::PrintRecord(void* record) noexcept {
    FunctionTrace trace{Function::VarValPrintRecord};
    if (record == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& printed = *static_cast<const GenRegVarValRecord*>(record);
    (void)std::printf("Record Dump:\n");
    if (printed.variable != nullptr) {
        (void)std::printf("   Variable = |%s|\n", printed.variable);
    }
    if (printed.value != nullptr) {
        (void)std::printf("   Value    = |%s|\n", printed.value);
    }
    (void)std::printf("   Contains = %i\n", static_cast<int>(printed.contains));
    if (printed.comment != nullptr) {
        (void)std::printf("   Comment  = |%s|\n", printed.comment);
    }
    return 0;
}

unsigned int GenRegVarVal::GetRecordSize(void* /*record*/, unsigned long* size) noexcept {
    return genreg::tellRecordSize<GenRegVarValRecord>(Function::VarValGetRecordSize, size);
}

unsigned int GenRegVarVal::GetMaxRecordSize(unsigned long* size) noexcept {
    return genreg::tellRecordSize<GenRegVarValRecord>(Function::VarValGetMaxRecordSize, size);
}

// The inittab schema: its record callbacks.
#include <genreg/GenRegInitTab.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <iterator>

#include "genreg/text/KeptLine.h"
#include "genreg/text/LineShapes.h"
#include "genreg/text/PassOver.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::LineText;
using genreg::sameText;

namespace {

constexpr unsigned long INITTAB_FEATURES = REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_LINE_CONTINUATION;

// Cuts the text at its first ":" and answers what stands behind it; null when there is none.
char* cutField(char* text) noexcept {
    char* const colon = std::strchr(text, ':');
    if (colon == nullptr) {
        return nullptr;
    }
    *colon = '\0';
    return colon + 1;
}

// Kept: the first character stays even if it is a blank.
void trimCommand(char* command) noexcept {
    for (std::size_t length = std::strlen(command); length > 1 && command[length - 1] == ' '; --length) {
        command[length - 1] = '\0';
    }
}

// Whether ParseLine takes the line: a comment, or one with all the fields.
bool surelyParses(const char* line, const char* end) noexcept {
    constexpr int COLONS = 3;
    const auto stops = [&](const char* at) { return at == end || *at == '#' || *at == '\0'; };
    int colons = 0;
    for (const char* at = line; !stops(at) && colons < COLONS; ++at) {
        colons += *at == ':' ? 1 : 0;
    }
    return stops(line) || *line == ':' || colons == COLONS;
}

// Whether what is looked for has this id.
bool asksForId(unsigned long matchType, const GenRegInitTabRecord& sought) noexcept {
    return (matchType & INITTAB_MATCH_ID) != 0 && (sought.flags & INITTAB_HAS_ENTRY) != 0 && sought.id != nullptr;
}

// Whether a line may hold the entry with this id, judged by what stands before its first ":".
bool lineMayHold(unsigned long matchType, const char* line, unsigned long length, const void* key) noexcept {
    const auto& sought = *static_cast<const GenRegInitTabRecord*>(key);
    if (!asksForId(matchType, sought)) {
        return true;
    }
    return genreg::beginsWithField(line, line + length, sought.id, ":#\n") || !surelyParses(line, line + length);
}

std::size_t passLines(unsigned long matchType, const char* lines, std::size_t length, const void* key,
                      bool joined) noexcept {
    const auto& sought = *static_cast<const GenRegInitTabRecord*>(key);
    if (!asksForId(matchType, sought) || !genreg::isWord(sought.id)) {
        return 0;
    }
    genreg::LinePasser<genreg::EntryLines> passer(lines, length, joined, genreg::Beginning(sought.id));
    return passer.pass([&](const char* line, std::size_t size) { return lineMayHold(matchType, line, size, key); });
}

constexpr std::string_view ID_ENDS = ":#\n";

bool identifyLine(const char* line, std::size_t length, std::string_view* identity) noexcept {
    *identity = genreg::frontOf(line, line + length, ID_ENDS);
    return surelyParses(line, line + length);
}

bool identifyKey(unsigned long matchType, const void* key, std::string_view* identity) noexcept {
    const auto& sought = *static_cast<const GenRegInitTabRecord*>(key);
    if (!asksForId(matchType, sought)) {
        return false;
    }
    *identity = genreg::frontOf(sought.id, ID_ENDS);
    return true;
}

constexpr genreg::LineWays LINE_WAYS = {passLines, identifyLine, identifyKey};

const char* commentOf(const GenRegInitTabRecord& record) noexcept {
    return genreg::commentOf((record.flags & INITTAB_HAS_COMMENT) != 0, record.comment);
}

bool sameComment(const GenRegInitTabRecord& a, const GenRegInitTabRecord& b) noexcept {
    const char* const one = commentOf(a);
    const char* const other = commentOf(b);
    return one == nullptr || other == nullptr ? one == other : sameText(one, other);
}

// Puts the fields of an entry that differ into its line, which has them all.
void replaceFields(genreg::LineEdit& edit, const char* line, const char* body, const GenRegInitTabRecord& stored,
                   const GenRegInitTabRecord& wanted) noexcept {
    const char* const old[] = {stored.id, stored.runLevel, stored.action, stored.command};
    const char* const fresh[] = {wanted.id, wanted.runLevel, wanted.action, wanted.command};
    for (std::size_t i = 0; i < std::size(old); ++i) {
        const char* const end = i + 1 < std::size(old) ? std::find(line, body, ':') : line + std::strlen(old[i]);
        if (!sameText(old[i], fresh[i])) {
            edit.replace(genreg::between(line, end), fresh[i]);
        }
        line = end + 1;
    }
}

}  // namespace

GenRegInitTab::GenRegInitTab() noexcept {
    const FunctionTrace trace{Function::GenRegInitTab};
    genreg::TextSchema::install(*this, lineMayHold, LINE_WAYS, INITTAB_FEATURES);
}

GenRegInitTab::GenRegInitTab(const char* path, unsigned int* rc) noexcept : GenRegInitTab() {
    *rc = setPaths(path);
}

GenRegInitTab::~GenRegInitTab() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegInitTab};
}

unsigned int GenRegInitTab::setPaths(const char* path) noexcept {
    FunctionTrace trace{Function::SetPaths};
    const unsigned int rc = setRegistryPaths(path);
    return rc == 0 ? 0 : trace.fail(10, rc);
}

unsigned int GenRegInitTab::ParseLine(void* record, const char* line) noexcept {
    FunctionTrace trace{Function::InitTabParseLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    auto& parsed = *static_cast<GenRegInitTabRecord*>(record);
    parsed.id = parsed.runLevel = parsed.action = parsed.command = nullptr;
    char* const text = parsed.line;
    genreg::copyLine(parsed.line, line);
    parsed.comment = *text == ':' ? text + 1 : genreg::cutComment(text);
    parsed.flags = parsed.comment != nullptr ? INITTAB_HAS_COMMENT : 0;
    if (*text == ':' || *text == '\0') {
        return 0;
    }
    parsed.flags |= INITTAB_HAS_ENTRY;
    parsed.id = text;
    parsed.runLevel = cutField(text);
    if (parsed.runLevel == nullptr) {
        return trace.fail(20, REG_INITTAB_NO_RUN_LEVEL, 0, text);
    }
    parsed.action = cutField(parsed.runLevel);
    if (parsed.action == nullptr) {
        return trace.fail(30, REG_INITTAB_NO_ACTION);
    }
    parsed.command = cutField(parsed.action);
    if (parsed.command == nullptr) {
        return trace.fail(40, REG_INITTAB_NO_COMMAND);
    }
    trimCommand(parsed.command);
    return 0;
}

unsigned int GenRegInitTab::FormatLine(void* record, char* line) noexcept {
    FunctionTrace trace{Function::InitTabFormatLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& wanted = *static_cast<const GenRegInitTabRecord*>(record);
    const bool entry = (wanted.flags & INITTAB_HAS_ENTRY) != 0;
    const bool commented = (wanted.flags & INITTAB_HAS_COMMENT) != 0;
    if (!entry && !commented) {
        return 0;
    }
    LineText text;
    if (entry) {
        const char* separator = "";
        for (const char* const field : {wanted.id, wanted.runLevel, wanted.action, wanted.command}) {
            if (field == nullptr) {
                return trace.fail(20, REG_NAME_MISSING);
            }
            text.append(separator);
            text.append(field);
            separator = ":";
        }
        text.append(commented ? " " : "");
    }
    if (commented) {
        text.append("#");
        text.append(wanted.comment != nullptr ? wanted.comment : "");
    }
    return text.copyTo(line, "") ? 0 : trace.fail(30, REG_LINE_TOO_LONG);
}

unsigned int GenRegInitTab::MatchRecord(unsigned long matchType, void* fileRecord, void* keyRecord) noexcept {
    FunctionTrace trace{Function::InitTabMatchRecord};
    if (matchType == 0) {
        return trace.exit(1);
    }
    if (fileRecord == nullptr || keyRecord == nullptr) {
        return trace.exit(0);
    }
    const auto& stored = *static_cast<const GenRegInitTabRecord*>(fileRecord);
    const auto& sought = *static_cast<const GenRegInitTabRecord*>(keyRecord);
    constexpr unsigned long EITHER = INITTAB_HAS_ENTRY | INITTAB_HAS_COMMENT;
    if ((sought.flags & EITHER) == 0 && sought.comment == nullptr) {
        return trace.exit((stored.flags & EITHER) == 0 && stored.comment == nullptr ? 1 : 0);
    }
    // Kept: what the key lacks is not asked for, so a key without a comment matches an entry with one.
    if ((sought.flags & EITHER & ~stored.flags) != 0) {
        return trace.exit(0);
    }
    const auto same = [matchType](unsigned long bit, const char* a, const char* b) {
        return (matchType & bit) == 0 || sameText(a, b);
    };
    const bool sameEntry =
        (sought.flags & INITTAB_HAS_ENTRY) == 0 || (same(INITTAB_MATCH_ID, stored.id, sought.id) &&
                                                    same(INITTAB_MATCH_RUN_LEVEL, stored.runLevel, sought.runLevel) &&
                                                    same(INITTAB_MATCH_ACTION, stored.action, sought.action) &&
                                                    same(INITTAB_MATCH_COMMAND, stored.command, sought.command));
    const bool sameComment = (sought.flags & INITTAB_HAS_COMMENT) == 0 || sameText(stored.comment, sought.comment);
    return trace.exit(sameEntry && sameComment ? 1 : 0);
}

unsigned int GenRegInitTab::RewriteLine(void* record, char* line) noexcept {
    FunctionTrace trace{Function::InitTabRewriteLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& wanted = *static_cast<const GenRegInitTabRecord*>(record);
    const bool whole = wanted.id != nullptr && wanted.runLevel != nullptr && wanted.action != nullptr &&
                       wanted.command != nullptr && (wanted.flags & INITTAB_HAS_ENTRY) != 0;
    GenRegInitTabRecord stored;
    if (*line == '\0' || !whole) {
        return trace.exit(FormatLine(record, line));
    }
    if (const unsigned int rc = ParseLine(&stored, line)) {
        return trace.fail(20, rc);
    }
    if ((stored.flags & INITTAB_HAS_ENTRY) == 0) {
        return trace.exit(FormatLine(record, line));
    }
    genreg::LineEdit edit(line);
    const char* const sign = std::find(static_cast<const char*>(line), edit.end(), '#');
    replaceFields(edit, line, sign, stored, wanted);
    // Of no command nothing may be left, since its first blank is not cut.
    const char* const behind = line + (stored.command - stored.line) + std::strlen(stored.command);
    const bool blank = *wanted.command == '\0';
    if (!sameComment(stored, wanted)) {
        const char* const comment = commentOf(wanted);
        const bool gap = comment != nullptr && !blank;
        edit.replace(genreg::between(gap ? sign : behind, edit.end()), gap && sign == behind ? " " : "");
        edit.insert(comment != nullptr ? "#" : "");
        edit.insert(comment != nullptr ? comment : "");
    } else if (blank) {
        edit.replace(genreg::between(behind, sign), "");
    }
    if (!edit.copyTo(line)) {
        return trace.fail(30, REG_LINE_TOO_LONG);
    }
    // A backslash at the end would continue it.
    const char* const end = line + std::strlen(line) - 1;
    const bool readBack =
        end[-1] != '\\' && ParseLine(&stored, line) == 0 && MatchWhole(genreg::EVERY_FIELD, &stored, record) == 1;
    return readBack ? 0 : trace.fail(40, REG_RECORD_REFUSED);
}

unsigned int GenRegInitTab::MatchWhole(unsigned long matchType, void* fileRecord, void* keyRecord) noexcept {
    FunctionTrace trace{Function::InitTabMatchWhole};
    const unsigned int matches = MatchRecord(matchType, fileRecord, keyRecord);
    if (matches != 1 || matchType != genreg::EVERY_FIELD) {
        return trace.exit(matches);
    }
    const auto& stored = *static_cast<const GenRegInitTabRecord*>(fileRecord);
    const auto& sought = *static_cast<const GenRegInitTabRecord*>(keyRecord);
    const bool sameKind = ((stored.flags ^ sought.flags) & (INITTAB_HAS_ENTRY | INITTAB_HAS_COMMENT)) == 0;
    return trace.exit(sameKind && sameComment(stored, sought) ? 1 : 0);
}

unsigned int GenRegInitTab::ValidateRecord(unsigned long matchType, void* record) noexcept {
    FunctionTrace trace{Function::InitTabValidateRecord};
    if (record == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& checked = *static_cast<const GenRegInitTabRecord*>(record);
    if ((checked.flags & (INITTAB_HAS_ENTRY | INITTAB_HAS_COMMENT)) == 0) {
        return trace.fail(20, REG_EMPTY_RECORD);
    }
    if ((checked.flags & INITTAB_HAS_ENTRY) == 0) {
        return 0;
    }
    // Kept: the run levels are not asked for.
    if (((matchType & INITTAB_MATCH_ID) != 0 && checked.id == nullptr) ||
        ((matchType & INITTAB_MATCH_ACTION) != 0 && checked.action == nullptr) ||
        ((matchType & INITTAB_MATCH_COMMAND) != 0 && checked.command == nullptr)) {
        return trace.fail(30, REG_NAME_MISSING);
    }
    return 0;
}

unsigned int GenRegInitTab::PrintRecord(void* record) noexcept {
    FunctionTrace trace{Function::InitTabPrintRecord};
    if (record == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& printed = *static_cast<const GenRegInitTabRecord*>(record);
    if ((printed.flags & INITTAB_HAS_COMMENT) == 0) {
        return 0;  // Kept: an entry without a comment prints nothing
    }
    const auto print = [](const char* label, const char* text) {
        if (text != nullptr) {
            (void)std::printf("   %-8s : |%s|\n", label, text);
        }
    };
    print("ID", printed.id);
    print("RunLevel", printed.runLevel);
    print("Action", printed.action);
    print("Command", printed.command);
    print("Comment", printed.comment);
    return 0;
}

unsigned int GenRegInitTab::GetRecordSize(void* /*record*/, unsigned long* size) noexcept {
    return genreg::tellRecordSize<GenRegInitTabRecord>(Function::InitTabGetRecordSize, size);
}

unsigned int GenRegInitTab::GetMaxRecordSize(unsigned long* size) noexcept {
    return genreg::tellRecordSize<GenRegInitTabRecord>(Function::InitTabGetMaxRecordSize, size);
}

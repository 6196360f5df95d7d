// The services schema: its record callbacks.
#include <genreg/GenRegServices.h>
#include <genreg/LineUtilities.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "genreg/text/KeptLine.h"
#include "genreg/text/LineShapes.h"
#include "genreg/text/PassOver.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::LineEdit;
using genreg::LineText;
using genreg::sameText;

namespace {

// The last place of the table is the null's.
constexpr std::size_t MOST_ALIASES = std::extent_v<decltype(GenRegServicesRecord::aliasTable)> - 1;

// A line up to this length has no room for more.
constexpr std::size_t LENGTH_OF_MOST = 2 * MOST_ALIASES;

constexpr std::string_view KNOWN_PROTOCOLS[] = {"udp", "tcp", "ddp", "divert", "sctp"};

// Names of fewer characters leave room for a second tab stop.
constexpr std::size_t TAB_STOP = 8;

// Between the host's order and the network's, both ways.
unsigned int swapPort(unsigned int port) noexcept {
    const unsigned int number = port & 0xffffU;
    if constexpr (std::endian::native == std::endian::little) {
        return (number >> 8U) | ((number & 0xffU) << 8U);
    }
    return number;
}

// Kept: the number compared is the port as it is stored, bytes swapped. The tabs of existing files depend on it.
bool isShortPort(const GenRegServicesRecord& record) noexcept {
    constexpr unsigned int LARGEST = 999;
    return record.port <= LARGEST;
}

bool hasAliases(const GenRegServicesRecord& record) noexcept {
    return record.aliases != nullptr && record.aliases[0] != nullptr;
}

// 0 or REG_BUFFER_TOO_SMALL: more aliases than the table holds.
unsigned int readAliases(GenRegServicesRecord& record, char* cursor) noexcept {
    std::size_t count = 0;
    char* alias = nullptr;
    unsigned int rc = 0;
    while ((rc = ExtractNextField(&alias, &cursor)) == 0) {
        if (count == MOST_ALIASES) {
            return REG_BUFFER_TOO_SMALL;
        }
        record.aliasTable[count++] = alias;
    }
    record.aliases = count > 0 ? record.aliasTable : nullptr;
    return rc == REG_END_OF_INPUT ? 0 : rc;
}

// Name, port and protocol; 0 or what of them is missing.
unsigned int appendService(LineText& text, const GenRegServicesRecord& record) noexcept {
    if (record.name == nullptr) {
        return REG_FORMAT_NAME_MISSING;
    }
    if (record.port == 0) {
        return REG_FORMAT_PORT_MISSING;
    }
    if (record.protocol == nullptr) {
        return REG_FORMAT_PROTOCOL_MISSING;
    }
    text.append(record.name);
    text.append(std::strlen(record.name) < TAB_STOP ? "\t\t" : "\t");
    char digits[8];
    const auto end = std::to_chars(digits, digits + sizeof digits, swapPort(record.port)).ptr;
    text.append(digits, static_cast<std::size_t>(end - digits));
    text.append("/");
    text.append(record.protocol);
    return 0;
}

// False when there are more than a line that is read back may have.
bool appendAliases(LineText& text, const GenRegServicesRecord& record) noexcept {
    text.append(isShortPort(record) ? "\t\t" : "\t");
    for (std::size_t i = 0; record.aliases[i] != nullptr; ++i) {
        if (i == MOST_ALIASES) {
            return false;
        }
        text.append(i > 0 ? " " : "");
        text.append(record.aliases[i]);
    }
    return true;
}

void appendComment(LineText& text, const GenRegServicesRecord& record) noexcept {
    if (hasAliases(record)) {
        text.append(std::strlen(record.aliases[0]) < TAB_STOP ? "\t\t" : "\t");
    } else {
        text.append(isShortPort(record) ? "\t\t\t\t" : "\t\t\t");
    }
    text.append("# ");
    text.append(record.comment != nullptr ? record.comment : "");
}

// Whether ParseLine takes the line, of which the blanks in front are left out: it has a second field, and no room for
// more aliases than there may be. Where quotes could matter, no.
bool surelyParses(const char* at, const char* end) noexcept {
    const auto stops = [&] { return at == end || *at == '#' || *at == '\n' || *at == '\0'; };
    const auto blank = [&] { return genreg::isBlank(*at) || *at == '\r'; };
    if (stops()) {
        return true;
    }
    const bool roomForTooMany = end - at > static_cast<long>(LENGTH_OF_MOST);
    for (; !stops() && !blank(); ++at) {
        if (*at == '"') {
            return false;
        }
    }
    while (!stops() && blank()) {
        ++at;
    }
    return !stops() && !roomForTooMany;
}

// Where the blanks in front of a line end.
const char* firstWord(const char* line, const char* end) noexcept {
    return std::find_if(line, end, [](char c) { return !genreg::isBlank(c) && c != '\r'; });
}

// Whether what is looked for has this name. Comment lines are matched by their text, whatever the mask asks for.
bool asksForName(unsigned long mask, const GenRegServicesRecord& sought) noexcept {
    return (mask & SERVICES_MATCH_NAME) != 0 && sought.flags != SERVICES_HAS_COMMENT && sought.name != nullptr;
}

// Whether a line may hold this service, judged by its first field alone.
bool lineMayHold(unsigned long mask, const char* line, unsigned long length, const void* key) noexcept {
    const auto& sought = *static_cast<const GenRegServicesRecord*>(key);
    if (!asksForName(mask, sought)) {
        return true;
    }
    const char* const end = line + length;
    const char* const name = firstWord(line, end);
    return genreg::beginsWithField(name, end, sought.name, " \t\r\n#") || !surelyParses(name, end);
}

std::size_t passLines(unsigned long mask, const char* lines, std::size_t length, const void* key,
                      bool joined) noexcept {
    const auto& sought = *static_cast<const GenRegServicesRecord*>(key);
    if (!asksForName(mask, sought) || !genreg::isWord(sought.name)) {
        return 0;
    }
    using Passer = genreg::LinePasser<genreg::ServiceLines<LENGTH_OF_MOST>>;
    Passer passer(lines, length, joined, genreg::Beginning(sought.name));
    return passer.pass([&](const char* line, std::size_t size) { return lineMayHold(mask, line, size, key); });
}

constexpr std::string_view NAME_ENDS = " \t\r\n#";

bool identifyLine(const char* line, std::size_t length, std::string_view* identity) noexcept {
    const char* const end = line + length;
    const char* const name = firstWord(line, end);
    *identity = genreg::frontOf(name, end, NAME_ENDS);
    return surelyParses(name, end);
}

bool identifyKey(unsigned long mask, const void* key, std::string_view* identity) noexcept {
    const auto& sought = *static_cast<const GenRegServicesRecord*>(key);
    if (!asksForName(mask, sought)) {
        return false;
    }
    *identity = genreg::frontOf(sought.name, NAME_ENDS);
    return true;
}

constexpr genreg::LineWays LINE_WAYS = {passLines, identifyLine, identifyKey};

// The words of a service's line, as they stand: name, port and protocol, aliases. Never more than can be aliases, and
// one.
struct Words {
    std::string_view text[2 + MOST_ALIASES + 1];
    std::size_t count = 0;

    Words(const char* at, const char* end) noexcept {
        for (; count < std::size(text); ++count) {
            at = std::find_if_not(at, end, genreg::isWhite);
            const char* const start = at;
            at = std::find_if(at, end, genreg::isWhite);
            if (start == at) {
                return;
            }
            text[count] = genreg::between(start, at);
        }
    }
    [[nodiscard]] const char* start(std::size_t i) const noexcept { return text[i].data(); }
    [[nodiscard]] const char* end(std::size_t i) const noexcept { return text[i].data() + text[i].size(); }
};

std::size_t countAliases(const GenRegServicesRecord& record) noexcept {
    std::size_t count = 0;
    while (record.aliases != nullptr && record.aliases[count] != nullptr) {
        ++count;
    }
    return count;
}

bool sameAliases(const GenRegServicesRecord& a, const GenRegServicesRecord& b) noexcept {
    const std::size_t count = countAliases(a);
    return count == countAliases(b) && (count == 0 || std::equal(a.aliases, a.aliases + count, b.aliases, sameText));
}

// Name, port and protocol.
void replaceService(LineEdit& edit, const Words& words, const GenRegServicesRecord& stored,
                    const GenRegServicesRecord& wanted) noexcept {
    if (!sameText(stored.name, wanted.name)) {
        edit.replace(words.text[0], wanted.name);
    }
    const std::string_view service = words.text[1];
    const std::size_t slash = std::min(service.find('/'), service.size());
    if (stored.port != wanted.port) {
        char digits[8];
        const auto end = std::to_chars(digits, digits + sizeof digits, swapPort(wanted.port)).ptr;
        edit.replace(service.substr(0, slash), genreg::between(digits, end));
    }
    if (!sameText(stored.protocol, wanted.protocol)) {
        edit.replace(service.substr(slash), "/");
        edit.insert(wanted.protocol);
    }
}

// The words from one that differs to the last that does; those around them keep their blanks.
void replaceAliases(LineEdit& edit, const Words& words, const GenRegServicesRecord& wanted) noexcept {
    const std::size_t old = words.count - 2;
    const std::size_t fresh = countAliases(wanted);
    const auto same = [&](std::size_t i, std::size_t j) { return words.text[2 + i] == wanted.aliases[j]; };
    std::size_t front = 0;
    while (front < std::min(old, fresh) && same(front, front)) {
        ++front;
    }
    std::size_t back = 0;
    while (back < std::min(old, fresh) - front && same(old - back - 1, fresh - back - 1)) {
        ++back;
    }
    // The blanks in front of a word that goes, or comes, go or come with it; those of the first are the next one's.
    const bool goes = front + back == fresh;
    const bool comes = front + back == old;
    const bool first = front == 0 && back > 0;
    const std::size_t from = 2 + front;
    const std::size_t to = words.count - back;
    const char* const begin = first || !(goes || comes) ? words.start(from) : words.end(from - 1);
    const char* const end = first && (goes || comes) ? words.start(to) : words.end(to - 1);
    edit.replace(genreg::between(begin, std::max(begin, end)), "");
    const char* separator = comes && !first ? (old > 0 ? " " : "\t") : "";
    for (std::size_t i = front; i < fresh - back; ++i) {
        edit.insert(separator);
        edit.insert(wanted.aliases[i]);
        separator = " ";
    }
    edit.insert(comes && first ? " " : "");
}

}  // namespace

GenRegServices::GenRegServices(const char* path, unsigned int* rc) noexcept {
    FunctionTrace trace{Function::GenRegServices};
    *rc = genreg::TextSchema::construct(*this, trace, path, lineMayHold, LINE_WAYS, REG_FEATURE_DEFERRED_COMMIT);
}

GenRegServices::~GenRegServices() noexcept {
    const FunctionTrace trace{Function::DestroyGenRegServices};
}

unsigned int GenRegServices::ParseLine(void* record, const char* line) noexcept {
    FunctionTrace trace{Function::ServicesParseLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    auto& parsed = *static_cast<GenRegServicesRecord*>(record);
    std::memset(&parsed, 0, sizeof parsed);
    genreg::copyLine(parsed.line, line);
    parsed.comment = genreg::cutComment(parsed.line);
    if (parsed.comment != nullptr) {
        parsed.flags = SERVICES_HAS_COMMENT;
        CleanString(parsed.comment);
    }
    if (const unsigned int rc = StripWhiteSpace(parsed.line)) {
        return trace.fail(20, rc);
    }
    char* cursor = parsed.line;
    if (ExtractNextField(&parsed.name, &cursor) != 0) {
        // Kept: a line of blanks is an empty record, only one of nothing at all is a blank line.
        if (std::strcmp(line, "\n") == 0) {
            parsed.flags = SERVICES_HAS_COMMENT;
        }
        return 0;
    }
    parsed.flags |= SERVICES_HAS_NAME;
    char* service = nullptr;
    if (ExtractNextField(&service, &cursor) != 0) {
        return trace.fail(30, REG_SERVICE_WITHOUT_PORT);
    }
    char* const slash = std::strchr(service, '/');
    if (slash == nullptr) {
        return 0;  // Kept: a record with a name only
    }
    *slash = '\0';
    parsed.port = swapPort(static_cast<unsigned int>(std::strtol(service, nullptr, 10)));
    parsed.protocol = slash + 1;
    if (std::ranges::find(KNOWN_PROTOCOLS, parsed.protocol) == std::end(KNOWN_PROTOCOLS)) {
        return 0;  // Kept: an unknown protocol has no aliases
    }
    if (const unsigned int rc = readAliases(parsed, cursor)) {
        std::memset(&parsed, 0, sizeof parsed);  // no look-up hands out half a list
        return trace.fail(40, rc);
    }
    return 0;
}

unsigned int GenRegServices::FormatLine(void* record, char* line) noexcept {
    FunctionTrace trace{Function::ServicesFormatLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    std::memset(line, 0, REG_LINE_SIZE);
    const auto& wanted = *static_cast<const GenRegServicesRecord*>(record);
    LineText text;
    if ((wanted.flags & SERVICES_HAS_NAME) != 0) {
        if (const unsigned int rc = appendService(text, wanted)) {
            return trace.fail(20, rc);
        }
    }
    if (hasAliases(wanted) && !appendAliases(text, wanted)) {
        return trace.fail(30, REG_BUFFER_TOO_SMALL);
    }
    if ((wanted.flags & SERVICES_HAS_COMMENT) != 0) {
        appendComment(text, wanted);
    }
    return text.copyTo(line, "\n") ? 0 : trace.fail(40, REG_LINE_TOO_LONG);
}

unsigned int GenRegServices::MatchRecord(unsigned long mask, void* record1, void* record2) noexcept {
    FunctionTrace trace{Function::ServicesMatchRecord};
    if (record1 == nullptr || record2 == nullptr) {
        return trace.exit(0);
    }
    const auto& a = *static_cast<const GenRegServicesRecord*>(record1);
    const auto& b = *static_cast<const GenRegServicesRecord*>(record2);
    if (a.flags == SERVICES_HAS_COMMENT && b.flags == SERVICES_HAS_COMMENT) {
        const bool bothNone = a.comment == nullptr && b.comment == nullptr;
        return trace.exit(bothNone || sameText(a.comment, b.comment) ? 1 : 0);
    }
    // Kept: aliases and comments are no part of it, so a change of nothing else is none.
    const bool matches = (a.flags & b.flags & SERVICES_HAS_NAME) != 0 &&
                         ((mask & SERVICES_MATCH_NAME) == 0 || sameText(a.name, b.name)) &&
                         ((mask & SERVICES_MATCH_PORT) == 0 || a.port == b.port) &&
                         ((mask & SERVICES_MATCH_PROTOCOL) == 0 || sameText(a.protocol, b.protocol));
    return trace.exit(matches ? 1 : 0);
}

unsigned int GenRegServices::ParseKeptLine(void* record, const char* line) noexcept {
    FunctionTrace trace{Function::ServicesParseKeptLine};
    const unsigned int rc = ParseLine(record, line);
    if (record != nullptr && line != nullptr) {
        auto& parsed = *static_cast<GenRegServicesRecord*>(record);
        genreg::restoreComment(parsed.line, parsed.comment, line);
    }
    return trace.exit(rc);
}

unsigned int GenRegServices::RewriteLine(void* record, char* line) noexcept {
    FunctionTrace trace{Function::ServicesRewriteLine};
    if (record == nullptr || line == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& wanted = *static_cast<const GenRegServicesRecord*>(record);
    const char* const comment = genreg::commentOf((wanted.flags & SERVICES_HAS_COMMENT) != 0, wanted.comment);
    GenRegServicesRecord stored;
    if (*line != '\0') {
        if (const unsigned int rc = ParseKeptLine(&stored, line)) {
            return trace.fail(20, rc);
        }
    }
    const bool service =
        (wanted.flags & SERVICES_HAS_NAME) != 0 && wanted.name != nullptr && wanted.protocol != nullptr;
    if (*line == '\0' || !service || stored.name == nullptr || (wanted.port == 0 && stored.port != 0)) {
        GenRegServicesRecord fresh;
        fresh.flags = wanted.flags;
        fresh.comment = const_cast<char*>(comment != nullptr ? genreg::withoutBlank(comment) : nullptr);
        fresh.name = wanted.name;
        fresh.aliases = wanted.aliases;
        fresh.port = wanted.port;
        fresh.protocol = wanted.protocol;
        return trace.exit(FormatLine(&fresh, line));
    }
    genreg::LineEdit edit(line);
    const genreg::CommentPlace place = genreg::commentPlace(line, edit.end());
    const Words words(line, place.body);
    replaceService(edit, words, stored, wanted);
    // Where the protocol has none, words that are no aliases stay.
    if (!sameAliases(stored, wanted)) {
        replaceAliases(edit, words, wanted);
    }
    const char* const old = genreg::commentOf((stored.flags & SERVICES_HAS_COMMENT) != 0, stored.comment);
    if (!genreg::sameComment(old, comment)) {
        genreg::replaceComment(edit, place, comment, "\t");
    }
    if (!edit.copyTo(line)) {
        return trace.fail(30, REG_LINE_TOO_LONG);
    }
    const bool readBack = ParseKeptLine(&stored, line) == 0 && MatchWhole(genreg::EVERY_FIELD, &stored, record) == 1;
    return readBack ? 0 : trace.fail(40, REG_RECORD_REFUSED);
}

unsigned int GenRegServices::MatchWhole(unsigned long mask, void* record1, void* record2) noexcept {
    FunctionTrace trace{Function::ServicesMatchWhole};
    const unsigned int matches = MatchRecord(mask, record1, record2);
    if (matches != 1 || mask != genreg::EVERY_FIELD) {
        return trace.exit(matches);
    }
    const auto& a = *static_cast<const GenRegServicesRecord*>(record1);
    const auto& b = *static_cast<const GenRegServicesRecord*>(record2);
    const auto comment = [](const GenRegServicesRecord& of) {
        return genreg::commentOf((of.flags & SERVICES_HAS_COMMENT) != 0, of.comment);
    };
    return trace.exit(sameAliases(a, b) && genreg::sameComment(comment(a), comment(b)) ? 1 : 0);
}

unsigned int GenRegServices::ValidateRecord(unsigned long mask, void* record) noexcept {
    FunctionTrace trace{Function::ServicesValidateRecord};
    if (record == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& checked = *static_cast<const GenRegServicesRecord*>(record);
    if (checked.flags == 0) {
        return trace.fail(20, REG_EMPTY_RECORD);
    }
    if ((mask & SERVICES_MATCH_NAME) != 0 && checked.name == nullptr) {
        return trace.fail(30, REG_SERVICE_NAME_MISSING);
    }
    if ((mask & SERVICES_MATCH_PORT) != 0 && checked.port == 0) {
        return trace.fail(40, REG_SERVICE_PORT_MISSING);
    }
    if ((mask & SERVICES_MATCH_PROTOCOL) != 0 && checked.protocol == nullptr) {
        return trace.fail(50, REG_SERVICE_PROTOCOL_MISSING);
    }
    return 0;
}

unsigned int GenRegServices::PrintRecord(void* record) noexcept {
    FunctionTrace trace{Function::ServicesPrintRecord};
    if (record == nullptr) {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    const auto& printed = *static_cast<const GenRegServicesRecord*>(record);
    const auto print = [](const char* label, const char* text) {
        const char* const bar = text != nullptr ? "|" : "";
        (void)std::printf("   %-8s = %s%s%s\n", label, bar, text != nullptr ? text : "NULL", bar);
    };
    print("name", printed.name);
    (void)std::printf("   port     = %d\n", static_cast<int>(printed.port));  // Kept: as stored
    print("protocol", printed.protocol);
    print("comment", printed.comment);
    return 0;
}

unsigned int GenRegServices::GetRecordSize(void* /*record*/, unsigned long* size) noexcept {
    return genreg::tellRecordSize<GenRegServicesRecord>(Function::ServicesGetRecordSize, size);
}

unsigned int GenRegServices::GetMaxRecordSize(unsigned long* size) noexcept {
    return genreg::tellRecordSize<GenRegServicesRecord>(Function::ServicesGetMaxRecordSize, size);
}

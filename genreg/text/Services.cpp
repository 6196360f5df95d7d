// The services form: its record callbacks.
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

#include "genreg/text/Schema.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::LineText;
using genreg::sameText;

namespace {

// The last place of the table is the null's.
constexpr std::size_t MOST_ALIASES = std::extent_v<decltype(GenRegServicesRecord::aliasTable)> - 1;

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
    constexpr long LENGTH_OF_TOO_MANY = 2 * static_cast<long>(MOST_ALIASES);
    const auto stops = [&] { return at == end || *at == '#' || *at == '\n' || *at == '\0'; };
    const auto blank = [&] { return genreg::isBlank(*at) || *at == '\r'; };
    if (stops()) {
        return true;
    }
    const bool roomForTooMany = end - at > LENGTH_OF_TOO_MANY;
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

// Whether a line may hold this service, judged by its first field alone. Comment lines are matched by their text,
// whatever the mask asks for.
bool lineMayHold(unsigned long mask, const char* line, unsigned long length, const void* key) noexcept {
    const auto& sought = *static_cast<const GenRegServicesRecord*>(key);
    if ((mask & SERVICES_MATCH_NAME) == 0 || sought.flags == SERVICES_HAS_COMMENT || sought.name == nullptr) {
        return true;
    }
    const char* const end = line + length;
    const char* const name = std::find_if(line, end, [](char c) { return !genreg::isBlank(c) && c != '\r'; });
    return genreg::beginsWithField(name, end, sought.name, " \t\r\n#") || !surelyParses(name, end);
}

}  // namespace

GenRegServices::GenRegServices(const char* path, unsigned int* rc) noexcept {
    FunctionTrace trace{Function::GenRegServices};
    *rc = GenRegTextSchema::construct(*this, trace, path, lineMayHold, REG_FEATURE_DEFERRED_COMMIT);
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
        return 0;  // kept: a record with a name only
    }
    *slash = '\0';
    parsed.port = swapPort(static_cast<unsigned int>(std::strtol(service, nullptr, 10)));
    parsed.protocol = slash + 1;
    if (std::ranges::find(KNOWN_PROTOCOLS, parsed.protocol) == std::end(KNOWN_PROTOCOLS)) {
        return 0;  // kept: an unknown protocol has no aliases
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
    (void)std::printf("   port     = %d\n", static_cast<int>(printed.port));  // kept: as stored
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

#include "entries/ServicesLine.h"

#include <fmt/core.h>
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <iterator>

#include "base/Answers.h"
#include "base/Text.h"

namespace tool {
namespace {

constexpr std::size_t MOST_ALIASES = std::size(decltype(GenRegServicesRecord::aliasTable){}) - 1;
constexpr unsigned int LARGEST_PORT = 65535;
constexpr std::string_view PROTOCOLS_WITH_ALIASES[] = {"udp", "tcp", "ddp", "divert", "sctp"};

// Ports are stored in network byte order.
unsigned int swapped(unsigned int port) {
    return std::endian::native == std::endian::little ? ((port >> 8U) & 0xffU) | ((port & 0xffU) << 8U) : port;
}

std::unique_ptr<GenRegServicesRecord> parsed(std::string_view line) {
    auto record = std::make_unique<GenRegServicesRecord>();
    const bool read = GenRegServices::ParseKeptLine(record.get(), std::string(line).c_str()) == 0 &&
                      (record->flags & SERVICES_HAS_NAME) != 0 && record->protocol != nullptr;
    return read ? std::move(record) : nullptr;
}

void checkWord(std::string_view what, const std::string& word) {
    refuseControl(what, word);
    if (word.empty()) {
        throw invalid(REG_RECORD_REFUSED, fmt::format("the {} is empty", what), "name it or leave it out");
    }
    if (word.find_first_of(" \t#/") != std::string::npos) {
        throw invalid(
            REG_RECORD_REFUSED,
            fmt::format("the {} \"{}\" holds a blank, \"#\" or \"/\", which end it in a line", what, printable(word)),
            "choose one without them");
    }
}

void checkAliases(const std::string& protocol, const std::vector<std::string>& aliases) {
    for (const std::string& alias : aliases) {
        checkWord("alias", alias);
    }
    if (aliases.size() > MOST_ALIASES) {
        throw invalid(REG_BUFFER_TOO_SMALL,
                      fmt::format("{} aliases; a line has at most {}", aliases.size(), MOST_ALIASES), "name fewer");
    }
    const bool known = std::ranges::find(PROTOCOLS_WITH_ALIASES, protocol) != std::end(PROTOCOLS_WITH_ALIASES);
    if (!aliases.empty() && !known) {
        throw invalid(REG_RECORD_REFUSED,
                      fmt::format("aliases are read for {} only, not for {}", fmt::join(PROTOCOLS_WITH_ALIASES, ", "),
                                  printable(protocol)),
                      "leave the aliases out");
    }
}

}  // namespace

std::string Service::rewrite(std::string_view line) const {
    auto record = parsed(line);
    if (record == nullptr) {
        record = std::make_unique<GenRegServicesRecord>();
    }
    Service wanted = *this;  // the record points at texts that it may change
    record->flags |= SERVICES_HAS_NAME;
    record->name = wanted.name.data();
    record->protocol = wanted.protocol.data();
    record->port = swapped(port);
    if (aliases) {
        std::ranges::fill(record->aliasTable, nullptr);
        for (std::size_t i = 0; i < std::min(aliases->size(), MOST_ALIASES); ++i) {
            record->aliasTable[i] = (*wanted.aliases)[i].data();
        }
        record->aliases = record->aliasTable;
    }
    // One that says so already keeps its bytes.
    if (comment) {
        record->flags = SERVICES_HAS_NAME | (comment->empty() ? 0 : SERVICES_HAS_COMMENT);
        record->comment = commentOf(*record) != comment ? wanted.comment->data() : record->comment;
    }
    std::string text(line);
    text.resize(REG_LINE_SIZE);
    const bool written = GenRegServices::RewriteLine(record.get(), text.data()) == 0;
    return written ? text.substr(0, text.find('\n')) : std::string(REG_LINE_SIZE, ' ');
}

bool Service::isReadFrom(std::string_view line) const {
    const auto record = parsed(line);
    if (record == nullptr || record->name != name || record->protocol != protocol || portOf(*record) != port ||
        (aliases && aliasesOf(*record) != *aliases)) {
        return false;
    }
    return !comment || commentOf(*record) == (comment->empty() ? std::nullopt : comment);
}

std::optional<std::string> commentOf(const GenRegServicesRecord& record) {
    return shownComment((record.flags & SERVICES_HAS_COMMENT) != 0 ? record.comment : nullptr);
}

std::vector<std::string> aliasesOf(const GenRegServicesRecord& record) {
    std::vector<std::string> aliases;
    for (char* const* alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias) {
        aliases.emplace_back(*alias);
    }
    return aliases;
}

unsigned int portOf(const GenRegServicesRecord& record) {
    return swapped(record.port);
}

Service checkedService(const std::string& name, const std::string& portAndProtocol,
                       const std::optional<std::vector<std::string>>& aliases,
                       const std::optional<std::string>& comment) {
    Service service{name, 0, {}, aliases, comment};
    checkWord("name", name);
    refuseControl("comment", comment.value_or(""));
    const std::size_t slash = portAndProtocol.find('/');
    if (slash == std::string::npos) {
        throw invalid(REG_SERVICE_PROTOCOL_MISSING,
                      fmt::format("\"{}\" lacks its protocol", printable(portAndProtocol)),
                      fmt::format("{}/tcp", printable(portAndProtocol)));
    }
    service.protocol = portAndProtocol.substr(slash + 1);
    checkWord("protocol", service.protocol);
    const char* const digits = portAndProtocol.data();
    const auto [end, error] = std::from_chars(digits, digits + slash, service.port);
    if (error != std::errc() || end != digits + slash || service.port == 0 || service.port > LARGEST_PORT) {
        throw invalid(REG_SERVICE_PORT_MISSING,
                      fmt::format("\"{}\" is no port", printable(portAndProtocol.substr(0, slash))),
                      fmt::format("ports are 1 to {}", LARGEST_PORT));
    }
    if (aliases) {
        checkAliases(service.protocol, *aliases);
    }
    return service;
}

}  // namespace tool

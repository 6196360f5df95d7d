// Files of lines "name port/protocol alias ... # comment".
#include <fmt/core.h>
#include <fmt/format.h>
#include <genreg/GenRegServices.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <iterator>
#include <map>
#include <set>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/EntryEditor.h"
#include "entries/EntryLine.h"
#include "entries/LineRegistry.h"

namespace tool {
namespace {

constexpr std::size_t MOST_ALIASES = std::size(decltype(GenRegServicesRecord::aliasTable){}) - 1;
constexpr unsigned int LARGEST_PORT = 65535;
constexpr std::string_view PROTOCOLS_WITH_ALIASES[] = {"udp", "tcp", "ddp", "divert", "sctp"};

// Ports are stored in network byte order.
unsigned int swapped(unsigned int port) {
    return std::endian::native == std::endian::little ? ((port >> 8U) & 0xffU) | ((port & 0xffU) << 8U) : port;
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

std::string aliasCell(const std::vector<std::string>& aliases) {
    return aliases.empty() ? std::string(ABSENT) : cell(fmt::format("{}", fmt::join(aliases, " ")));
}

void putTexts(Json& members, const std::string& key, const std::vector<std::string>& texts) {
    const bool plain = std::all_of(texts.begin(), texts.end(), isUtf8);
    Json list = Json::array();
    for (const std::string& text : texts) {
        list.push_back(plain ? text : base64(text));
    }
    members[plain ? key : key + "Base64"] = std::move(list);
}

struct ServicesLines {
    using Schema = GenRegServices;
    using Record = GenRegServicesRecord;

    static constexpr GenRegParseLine parse = GenRegServices::ParseKeptLine;  // comments as they stand

    static bool isEntry(const Record& record) {
        return (record.flags & SERVICES_HAS_NAME) != 0 && record.name != nullptr && record.protocol != nullptr;
    }

    static Entry describe(const Record& record) {
        const std::vector<std::string> aliases = aliasesOf(record);
        const auto comment = commentOf(record);
        Entry entry;
        entry.name = fmt::format("{}/{}", record.name, record.protocol);
        entry.value = fmt::format("{}/{}", portOf(record), record.protocol);
        entry.names = aliases;
        entry.cells = {cell(record.name), cell(entry.value), aliasCell(aliases), commentCell(comment)};
        putText(entry.members, "name", record.name);
        entry.members["port"] = portOf(record);
        putText(entry.members, "protocol", record.protocol);
        putTexts(entry.members, "aliases", aliases);
        putComment(entry.members, comment);
        return entry;
    }

    // What finds a service is all in the record.
    static void makeKey(Record& /*record*/) {}
};

JudgedLine judge(const std::string& text) {
    auto record = std::make_unique<GenRegServicesRecord>();
    switch (GenRegServices::ParseLine(record.get(), text.c_str())) {
        case 0:
            break;
        case REG_SERVICE_WITHOUT_PORT:
            return {JudgedLine::Kind::REFUSED, "", "it has no port and protocol"};
        default:
            return {JudgedLine::Kind::REFUSED, "", "it has more than 127 aliases"};
    }
    if (record->name == nullptr) {
        return {};
    }
    return record->protocol != nullptr
               ? JudgedLine{JudgedLine::Kind::ENTRY, record->name, ""}
               : JudgedLine{JudgedLine::Kind::REFUSED, "", "its port has no \"/\" and protocol"};
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

// A service as it is asked for.
struct Service {
    std::string name;
    unsigned int port = 0;
    std::string protocol;                             // empty: port and protocol as they stand
    std::optional<std::vector<std::string>> aliases;  // none: as they stand
    std::optional<std::string> comment;               // none: as it stands; empty: none
};

// Throws a Failure where the word is no port.
unsigned int checkedPort(const std::string& word) {
    unsigned int port = 0;
    const char* const last = word.data() + word.size();
    const auto [end, error] = std::from_chars(word.data(), last, port);
    if (error != std::errc() || end != last || port == 0 || port > LARGEST_PORT) {
        throw invalid(REG_SERVICE_PORT_MISSING, fmt::format("\"{}\" is no port", printable(word)),
                      fmt::format("ports are 1 to {}", LARGEST_PORT));
    }
    return port;
}

void checkPortAndProtocol(Service& service, const std::string& portAndProtocol) {
    const std::size_t slash = portAndProtocol.find('/');
    if (slash == std::string::npos) {
        throw invalid(REG_SERVICE_PROTOCOL_MISSING,
                      fmt::format("\"{}\" lacks its protocol", printable(portAndProtocol)),
                      fmt::format("{}/tcp", printable(portAndProtocol)));
    }
    service.protocol = portAndProtocol.substr(slash + 1);
    checkWord("protocol", service.protocol);
    service.port = checkedPort(portAndProtocol.substr(0, slash));
    if (service.aliases) {
        checkAliases(service.protocol, *service.aliases);
    }
}

// The line with what is asked for; a new one when there is no line yet.
std::string rewritten(Service service, std::string_view line) {
    const auto record = std::make_unique<GenRegServicesRecord>();
    if (GenRegServices::ParseKeptLine(record.get(), std::string(line).c_str()) != 0 ||
        !ServicesLines::isEntry(*record)) {
        *record = {};
    }
    record->flags |= SERVICES_HAS_NAME;
    record->name = service.name.data();
    if (!service.protocol.empty()) {
        record->protocol = service.protocol.data();
        record->port = swapped(service.port);
    }
    if (service.aliases) {
        std::ranges::fill(record->aliasTable, nullptr);
        std::ranges::transform(*service.aliases, record->aliasTable, [](std::string& alias) { return alias.data(); });
        record->aliases = record->aliasTable;
    }
    // One that says so already keeps its bytes.
    if (service.comment) {
        record->flags = SERVICES_HAS_NAME | (service.comment->empty() ? 0 : SERVICES_HAS_COMMENT);
        record->comment = commentOf(*record) != service.comment ? service.comment->data() : record->comment;
    }
    return rewrittenLine(line, record.get(), GenRegServices::RewriteLine);
}

// The protocols of the services found, when there is more than one, are for the user to choose from.
void refuseSeveralProtocols(const std::string& file, const std::string& name, const std::vector<Entry>& matches) {
    std::set<std::string> names;
    for (const Entry& entry : matches) {
        names.insert(entry.name);
    }
    if (names.size() > 1) {
        throw answer("several", EXIT_CONFLICT, REG_SEVERAL_MATCH, file,
                     fmt::format("{} stands for several services: {}", printable(name),
                                 printable(fmt::format("{}", fmt::join(names, ", ")))),
                     "name one of them, or --all for every one");
    }
}

// Of NAME or NAME/PROTOCOL.
void find(EntryRequest& request) {
    const bool whole = request.name.find('/') != std::string::npos;
    request.mask = SERVICES_MATCH_NAME | (whole ? SERVICES_MATCH_PROTOCOL : 0);
    request.concerns = [whole, name = request.name](const Entry& entry) {
        return whole ? entry.name == name : entry.name.substr(0, entry.name.find('/')) == name;
    };
    request.tellApart = [file = request.file, name = request.name](const std::vector<Entry>& matches) {
        refuseSeveralProtocols(file, name, matches);
    };
}

void ask(EntryRequest& request, const EntryWords& words, bool fresh) {
    const bool given = fresh || words.noRest || !words.rest.empty();
    Service service{words.name, 0, {}, given ? std::optional(words.rest) : std::nullopt, words.comment};
    if (words.fields.empty()) {  // the name may say the protocol
        service.name = words.name.substr(0, words.name.find('/'));
    }
    checkWord("name", service.name);
    refuseControl("comment", words.comment.value_or(""));
    std::optional<std::string> portCell;
    if (!words.fields.empty()) {
        checkPortAndProtocol(service, words.fields[0]);
        request.name = fmt::format("{}/{}", service.name, service.protocol);
        request.addWords = fmt::format("{} {}", shellWord(words.name), shellWord(words.fields[0]));
        portCell = cell(fmt::format("{}/{}", service.port, service.protocol));
    }
    request.edit.rewrite = [service](std::string_view line) { return rewritten(service, line); };
    request.edit.cells = {cell(service.name), portCell, given ? std::optional(aliasCell(words.rest)) : std::nullopt,
                          askedComment(service.comment)};
}

// Several services that one alias or port stands for are for the user to choose from, too.
void findBy(EntryRequest& request, const std::string& what, std::function<bool(const Entry&)> concerns) {
    request.name = what;
    request.concerns = std::move(concerns);
    request.tellApart = [file = request.file, what](const std::vector<Entry>& matches) {
        refuseSeveralProtocols(file, what, matches);
    };
}

// ALIAS or ALIAS/PROTOCOL.
void findByAlias(EntryRequest& request, const std::string& given) {
    const std::size_t slash = given.find('/');
    findBy(request, fmt::format("alias {}", given),
           [alias = given.substr(0, slash),
            end = slash == std::string::npos ? std::string() : given.substr(slash)](const Entry& entry) {
               return entry.name.ends_with(end) && std::ranges::find(entry.names, alias) != entry.names.end();
           });
}

// PORT or PORT/PROTOCOL. What is asked for is the name then.
void findByPort(EntryRequest& request, const std::string& given) {
    const std::size_t slash = given.find('/');
    const unsigned int port =
        refusingFor(request.file, "get " + given, [&] { return checkedPort(given.substr(0, slash)); });
    const std::string wanted = std::to_string(port) + (slash == std::string::npos ? "/" : given.substr(slash));
    request.showsName = true;
    findBy(request, fmt::format("port {}", given), [wanted, whole = slash != std::string::npos](const Entry& entry) {
        return whole ? entry.value == wanted : entry.value.starts_with(wanted);
    });
}

std::string takeName(BatchItem& item, EntryWords& words) {
    words.name = item.takeName("name");
    const auto protocol = item.takeText("protocol");
    words.fields = {protocol ? "/" + *protocol : ""};
    return words.name + words.fields[0];
}

// The protocol is there already, behind the place of the port.
void takeWords(BatchItem& item, const Entry* found, EntryWords& words) {
    const auto port = item.takeText("port");
    const auto aliases = item.take("aliases");
    if (found == nullptr && (!port || words.fields[0].empty())) {
        throw item.failure(port ? "it has no \"protocol\"" : "it has no \"port\"", "a new service needs both");
    }
    const std::string standing = found != nullptr ? found->value : "/";
    const std::size_t slash = standing.find('/');
    const std::string protocol = words.fields[0].empty() ? standing.substr(slash) : words.fields[0];
    words.asFound = !port || words.fields[0].empty();
    words.fields[0] = (port ? *port : standing.substr(0, slash)) + protocol;
    words.comment = item.takeOrNone("comment");
    if (!aliases) {
        return;
    }
    const bool texts = aliases->is_array() && std::ranges::all_of(aliases->elements(), &Json::is_string);
    if (!texts) {
        throw item.failure("\"aliases\" is no list of texts", "[] removes them");
    }
    for (const Json& alias : aliases->elements()) {
        words.rest.push_back(alias.get<std::string>());
    }
    words.noRest = words.rest.empty();
}

int ports(Context& context, const std::string& file) {
    std::map<unsigned int, std::vector<std::string>> services;
    for (const Entry& entry : entriesOf(servicesSchema(), file, "list the ports")) {
        services[entry.members["port"].get<unsigned int>()].push_back(entry.name);
    }
    Table table({"PORT", "SERVICES"});
    for (const auto& [port, names] : services) {
        if (context.output.style.json) {
            Json object{{"port", port}};
            putTexts(object, "services", names);
            context.output.json(object);
        } else {
            table.row({std::to_string(port), cell(fmt::format("{}", fmt::join(names, " ")))});
        }
    }
    if (!context.output.style.json && !services.empty()) {
        table.print(context.output);
    }
    return EXIT_DONE;
}

}  // namespace

const EntrySchema& servicesSchema() {
    static const EntrySchema SCHEMA{
        .group = "services",
        .noun = "service",
        .place = "line",
        .list = {"services list", "all services, with their aliases and comments"},
        .own = {"services ports", "the ports in order, with their services"},
        .get = {"services get", "the port and protocol of a service, the first of its lines"},
        .set = {"services set", "change a service; what is not given stays, and so does its line"},
        .add = {"services add", "append a line for a new service"},
        .remove = {"services delete", "remove the line of a service"},
        .apply = {"services apply", "make a batch of changes with one commit"},
        .runOwn = ports,
        .file = "the services file",
        .found = {"NAME[/PROTOCOL]", "the service; the protocol where it has several"},
        .named = {"NAME", "the service"},
        .fields = {{"PORT/PROTOCOL", "its port, 1 to 65535, and protocol"}},
        .rest = {"ALIAS", "other names of it"},
        .noRest = {"--no-aliases", "remove the aliases"},
        .restTwice = "--no-aliases, and aliases behind the port: which?",
        .lookups = {{"--alias", "ALIAS[/PROTOCOL]", "the service of that alias", findByAlias},
                    {"--port", "PORT[/PROTOCOL]", "the name of the service on that port", findByPort}},
        .heading = {"NAME", "PORT", "ALIASES", "COMMENT"},
        .mask = SERVICES_MATCH_NAME,
        .valueMask = SERVICES_MATCH_PORT | SERVICES_MATCH_PROTOCOL,
        .tooLong = "the line would be longer than 2046 bytes, or would be read as something else",
        .shorten = "shorten the comment or name fewer aliases",
        .open = openLines<ServicesLines>,
        .ask = ask,
        .takeName = takeName,
        .takeWords = takeWords,
        .keyMembers = {"name", "protocol"},
        .otherMembers = {"port", "aliases", "comment"},
        .anyValue = "1/tcp",
        .find = find,
        .judge = judge,
        .describe = describeLine<ServicesLines>,
        .nameEnd = '/',
    };
    return SCHEMA;
}

}  // namespace tool

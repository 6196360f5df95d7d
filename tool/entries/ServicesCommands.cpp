#include <fmt/core.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/EntryCommands.h"
#include "entries/LineFile.h"
#include "entries/ServicesLine.h"

namespace tool {
namespace {

struct ServicesForm {
    using Schema = GenRegServices;
    using Record = GenRegServicesRecord;

    static constexpr GenRegParseLine parse = GenRegServices::ParseKeptLine;  // comments as they stand

    static bool isEntry(const Record& record) {
        return (record.flags & SERVICES_HAS_NAME) != 0 && record.name != nullptr && record.protocol != nullptr;
    }

    static Entry describe(const Record& record) {
        const std::vector<std::string> aliases = aliasesOf(record);
        const auto comment = commentOf(record);
        const std::string aliasText = fmt::format("{}", fmt::join(aliases, " "));
        Entry entry;
        entry.name = fmt::format("{}/{}", record.name, record.protocol);
        entry.value = fmt::format("{}/{}", portOf(record), record.protocol);
        entry.cells = {cell(record.name), cell(entry.value), aliases.empty() ? std::string(ABSENT) : cell(aliasText),
                       commentCell(comment)};
        putText(entry.members, "name", record.name);
        entry.members["port"] = portOf(record);
        putText(entry.members, "protocol", record.protocol);
        putTexts(entry.members, "aliases", aliases);
        putComment(entry.members, comment);
        return entry;
    }

    // What finds a service is all in the record.
    static void makeKey(Record& /*record*/) {}

    static void putTexts(Json& members, const std::string& key, const std::vector<std::string>& texts) {
        const bool plain = std::all_of(texts.begin(), texts.end(), isUtf8);
        Json list = Json::array();
        for (const std::string& text : texts) {
            list.push_back(plain ? text : base64(text));
        }
        members[plain ? key : key + "_b64"] = std::move(list);
    }
};

std::unique_ptr<EntryFile> openServices(const std::string& path, bool severalAllowed) {
    return std::make_unique<LineFile<ServicesForm>>(path, severalAllowed);
}

const EntryForm& form() {
    static const EntryForm FORM{
        "services",
        "service",
        "line",
        {"NAME", "PORT", "ALIASES", "COMMENT"},
        SERVICES_MATCH_PORT | SERVICES_MATCH_PROTOCOL,
        "the line would be longer than 2046 bytes, or would be read as something else",
        "shorten the comment or name fewer aliases",
        openServices,
        nullptr,
        &servicesForm(),
    };
    return FORM;
}

struct Arguments {
    std::string file;
    std::string name;
    std::string port;
    std::vector<std::string> aliases;
    bool noAliases = false;
    std::optional<std::string> comment;
};

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
EntryRequest requestOf(const Arguments& arguments) {
    EntryRequest request;
    request.file = arguments.file;
    request.name = arguments.name;
    const bool whole = arguments.name.find('/') != std::string::npos;
    request.mask = SERVICES_MATCH_NAME | (whole ? SERVICES_MATCH_PROTOCOL : 0);
    request.concerns = [whole, name = arguments.name](const Entry& entry) {
        return whole ? entry.name == name : entry.name.substr(0, entry.name.find('/')) == name;
    };
    request.tellApart = [file = arguments.file, name = arguments.name](const std::vector<Entry>& matches) {
        refuseSeveralProtocols(file, name, matches);
    };
    putText(request.result, "name", arguments.name);
    return request;
}

EntryRequest editOf(const Arguments& arguments, bool fresh) {
    if (arguments.noAliases && !arguments.aliases.empty()) {
        throw usageFailure("--no-aliases, and aliases behind the port: which?");
    }
    const bool given = fresh || arguments.noAliases || !arguments.aliases.empty();
    const Service service =
        refusingFor(arguments.file, fmt::format("{} {}", fresh ? "add" : "set", printable(arguments.name)), [&] {
            return checkedService(arguments.name, arguments.port,
                                  given ? std::optional(arguments.aliases) : std::nullopt, arguments.comment);
        });
    Arguments found = arguments;
    found.name = fmt::format("{}/{}", service.name, service.protocol);
    EntryRequest request = requestOf(found);
    request.edit.rewrite = [service](std::string_view line) { return service.rewrite(line); };
    request.edit.readsAsAsked = [service](std::string_view line) { return service.isReadFrom(line); };
    request.addWords = fmt::format("{} {}", shellWord(arguments.name), shellWord(arguments.port));
    request.result = Json::object();
    putText(request.result, "name", service.name);
    request.result["port"] = service.port;
    putText(request.result, "protocol", service.protocol);
    return request;
}

int ports(Context& context, const Arguments& arguments) {
    std::map<unsigned int, std::vector<std::string>> services;
    for (const Entry& entry : entriesOf(form(), arguments.file, "list the ports")) {
        services[entry.members["port"].get<unsigned int>()].push_back(entry.name);
    }
    Table table({"PORT", "SERVICES"});
    for (const auto& [port, names] : services) {
        if (context.output.style.json) {
            Json object{{"port", port}};
            ServicesForm::putTexts(object, "services", names);
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

std::shared_ptr<Arguments> declareFile(CLI::App& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.add_option("FILE", arguments->file, "the services file")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareName(CLI::App& parser) {
    auto arguments = declareFile(parser);
    parser.add_option("NAME[/PROTOCOL]", arguments->name, "the service; the protocol where it has several")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareService(CLI::App& parser) {
    auto arguments = declareFile(parser);
    parser.add_option("NAME", arguments->name, "the service")->required();
    parser.add_option("PORT/PROTOCOL", arguments->port, "its port, 1 to 65535, and protocol")->required();
    parser.add_option("ALIAS", arguments->aliases, "other names of it");
    parser.add_option("--comment", arguments->comment, "the comment of the line; empty: none")->type_name("TEXT");
    return arguments;
}

Action declareList(CLI::App& parser) {
    return
        [arguments = declareFile(parser)](Context& context) { return listEntries(context, form(), arguments->file); };
}

Action declarePorts(CLI::App& parser) {
    return [arguments = declareFile(parser)](Context& context) { return ports(context, *arguments); };
}

Action declareGet(CLI::App& parser) {
    return [arguments = declareName(parser)](Context& context) {
        return getEntries(context, form(), requestOf(*arguments), context.options.all);
    };
}

Action declareAdd(CLI::App& parser) {
    return [arguments = declareService(parser)](Context& context) {
        return addEntry(context, form(), editOf(*arguments, true));
    };
}

Action declareSet(CLI::App& parser) {
    auto arguments = declareService(parser);
    parser.add_flag("--no-aliases", arguments->noAliases, "remove the aliases");
    return [arguments](Context& context) { return setEntry(context, form(), editOf(*arguments, false)); };
}

Action declareDelete(CLI::App& parser) {
    return [arguments = declareName(parser)](Context& context) {
        return deleteEntry(context, form(), requestOf(*arguments));
    };
}

constexpr Command COMMANDS[] = {
    {"services list", "all services, with their aliases and comments", 0, declareList},
    {"services ports", "the ports in order, with their services", 0, declarePorts},
    {"services get", "the port and protocol of a service, the first of its lines", USES_ALL, declareGet},
    {"services set", "change a service; what is not given stays, and so does its line",
     USES_UPDATE | USES_IF_VALUE | USES_ALL, declareSet},
    {"services add", "append a line for a new service", USES_UPDATE | USES_PARENTS | USES_ALL, declareAdd},
    {"services delete", "remove the line of a service", USES_UPDATE | USES_IF_VALUE | USES_ALL | USES_YES,
     declareDelete},
};

}  // namespace

std::span<const Command> servicesCommands() {
    return COMMANDS;
}

}  // namespace tool

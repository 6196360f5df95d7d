#include "entries/EntryCommands.h"

#include <fmt/core.h>

#include "base/Answers.h"
#include "base/Text.h"
#include "base/ValueSource.h"
#include "entries/EntryBatch.h"
#include "entries/EntryEditor.h"

namespace tool {
namespace {

enum class Verb { LIST, OWN, GET, GET_ALL, SET, ADD, DELETE, APPLY };

bool writes(Verb verb) {
    return verb == Verb::SET || verb == Verb::ADD;
}

Failure missingWord(const EntrySchema& schema, Verb verb, const std::string& word) {
    const char* const command = verb == Verb::GET   ? schema.get.name
                                : verb == Verb::ADD ? schema.add.name
                                                    : schema.set.name;
    return usageFailure(fmt::format("{}: {} is required", command, word), fmt::format("genreg {} --help", command));
}

// All the fields, or none of them where something else is to change.
void completeFields(const EntrySchema& schema, EntryWords& words, Verb verb) {
    if (words.valueFrom) {
        if (!words.fields.empty()) {
            throw usageFailure(fmt::format("--value-from, and {} behind the name: which?", schema.fields[0].name));
        }
        words.fields = {valueFrom(*words.valueFrom)};
    }
    const bool otherwise = verb == Verb::SET && words.fields.empty() && (words.comment || words.noRest);
    if (words.fields.size() < schema.fields.size() && !otherwise) {
        throw missingWord(schema, verb, schema.fields[words.fields.size()].name);
    }
}

// What a get without a name looks for.
void lookUp(EntryRequest& request, const EntrySchema& schema, const EntryWords& words) {
    std::string options;
    std::size_t given = request.name.empty() ? 0 : 1;
    for (std::size_t i = 0; i < schema.lookups.size(); ++i) {
        options += fmt::format(", {}", schema.lookups[i].option);
        if (words.lookups[i]) {
            ++given;
            schema.lookups[i].find(request, *words.lookups[i]);
        }
    }
    if (given > 1) {
        throw usageFailure(fmt::format("{}: {}{}: one of them finds it", schema.get.name, schema.found.name, options),
                           fmt::format("genreg {} --help", schema.get.name));
    }
    if (given == 0) {
        throw missingWord(schema, Verb::GET,
                          schema.found.name + (options.empty() ? "" : " or one of" + options.substr(1)));
    }
}

EntryRequest requestOf(const EntrySchema& schema, EntryWords& words, Verb verb) {
    EntryRequest request{words.file, words.name, schema.mask};
    request.addMissing = words.addMissing;
    request.ifPresent = words.ifPresent;
    request.unquoted = words.unquoted;
    if (writes(verb)) {
        completeFields(schema, words, verb);
    }
    if (writes(verb)) {
        if (words.noRest && !words.rest.empty()) {
            throw usageFailure(schema.restTwice);
        }
        refusingFor(words.file, fmt::format("{} {}", verb == Verb::ADD ? "add" : "set", printable(words.name)),
                    [&] { schema.ask(request, words, verb == Verb::ADD); });
    }
    if (words.valueFrom) {  // nor is it to stand in an advice
        request.addWords = fmt::format("{} --value-from {}", shellWord(words.name), shellWord(*words.valueFrom));
    }
    if (schema.find != nullptr && !request.name.empty()) {
        schema.find(request);
    }
    if (verb == Verb::GET && !schema.lookups.empty()) {
        lookUp(request, schema, words);
    }
    return request;
}

int runVerb(Context& context, const EntrySchema& schema, EntryWords& words, Verb verb) {
    switch (verb) {
        case Verb::LIST:
            return listEntries(context, schema, words.file, words.pattern);
        case Verb::OWN:
            return schema.runOwn(context, words.file);
        case Verb::GET:
        case Verb::GET_ALL:
            return getEntries(context, schema, requestOf(schema, words, verb),
                              verb == Verb::GET_ALL || context.options.all, words.type);
        case Verb::SET:
            return setEntry(context, schema, requestOf(schema, words, verb));
        case Verb::ADD:
            return addEntry(context, schema, requestOf(schema, words, verb));
        case Verb::APPLY:
            return applyToEntries(context, schema, words.file, words.name);
        case Verb::DELETE:
            break;
    }
    return deleteEntry(context, schema, requestOf(schema, words, verb));
}

// The words behind the name of a set or an add.
void declareFields(Parser& parser, const EntrySchema& schema, EntryWords& words, Verb verb) {
    const bool mayComeFromFile = schema.fields.size() == 1 && schema.lookups.empty();
    for (const EntryWord& field : schema.fields) {
        const auto take = [&words](const std::string& word) { words.fields.push_back(word); };
        parser.handedOver(field.name, verb == Verb::ADD && !mayComeFromFile, take, field.help);
    }
    if (mayComeFromFile) {
        parser.option("--value-from", "FILE", words.valueFrom,
                      "take the value from a file, or with - from standard input; other users see command lines");
    }
    if (schema.rest.name != nullptr) {
        parser.words(schema.rest.name, words.rest, schema.rest.help);
    }
    parser.option(
        "--comment", "TEXT", words.comment,
        fmt::format("the comment of the {}; empty: none{}", schema.place,
                    verb == Verb::SET ? fmt::format("; without {} nothing else changes", schema.fields[0].name) : ""));
    if (verb == Verb::SET) {
        parser.flag("--add", words.addMissing, fmt::format("add the {} where it is missing", schema.noun));
    }
    if (schema.noRest.name != nullptr && verb == Verb::SET) {
        parser.flag(schema.noRest.name, words.noRest, schema.noRest.help);
    }
}

Action declareVerb(Parser& parser, const EntrySchema& schema, Verb verb) {
    auto words = std::make_shared<EntryWords>();
    parser.required("FILE", words->file, schema.file);
    if (verb == Verb::APPLY) {
        parser.optional("BATCH", words->name, "a file of JSON lines, or - for standard input");
    } else if (verb == Verb::LIST) {
        parser.optional("PATTERN", words->pattern,
                        fmt::format("only those whose {} it fits: *, ?, [...]", schema.keyMembers.front()));
    } else if (verb == Verb::GET && !schema.lookups.empty()) {
        parser.optional(schema.found.name, words->name, schema.found.help);
        words->lookups.resize(schema.lookups.size());
        for (std::size_t i = 0; i < schema.lookups.size(); ++i) {
            const EntryLookup& lookup = schema.lookups[i];
            parser.option(lookup.option, lookup.what, words->lookups[i], lookup.help);
        }
    } else if (verb != Verb::OWN) {
        const EntryWord& name = writes(verb) ? schema.named : schema.found;
        parser.required(name.name, words->name, name.help);
    }
    if (writes(verb)) {
        declareFields(parser, schema, *words, verb);
    }
    if ((verb == Verb::GET || verb == Verb::GET_ALL) && schema.convert != nullptr) {
        parser.choice("--type", "TYPE", {"bool", "int", "uint", "double", "string"}, words->type,
                      "convert the value: bool, int, uint, double; string leaves it");
    }
    if ((verb == Verb::GET || verb == Verb::GET_ALL) && schema.quotes) {
        parser.flag("--unquoted", words->unquoted, "without the double quotes around the value");
    }
    if (verb == Verb::DELETE) {
        parser.flag("--if-present", words->ifPresent, fmt::format("a {} that is not there is no failure", schema.noun));
    }
    return [&schema, words, verb](Context& context) { return runVerb(context, schema, *words, verb); };
}

template <const EntrySchema& (*SCHEMA)(), Verb VERB>
void addCommand(std::vector<Command>& commands, const EntryWord& words, unsigned int uses) {
    if (words.name != nullptr) {
        commands.push_back(
            {words.name, words.help, uses, [](Parser& parser) { return declareVerb(parser, SCHEMA(), VERB); }});
    }
}

template <const EntrySchema& (*SCHEMA)()>
void addCommands(std::vector<Command>& commands) {
    const EntrySchema& schema = SCHEMA();
    addCommand<SCHEMA, Verb::LIST>(commands, schema.list, 0);
    addCommand<SCHEMA, Verb::OWN>(commands, schema.own, 0);
    addCommand<SCHEMA, Verb::GET>(commands, schema.get, schema.getAll.name != nullptr ? 0 : USES_ALL);
    addCommand<SCHEMA, Verb::GET_ALL>(commands, schema.getAll, 0);
    addCommand<SCHEMA, Verb::SET>(commands, schema.set, USES_UPDATE | USES_PARENTS | USES_IF_VALUE | USES_ALL);
    addCommand<SCHEMA, Verb::ADD>(commands, schema.add, USES_UPDATE | USES_PARENTS | USES_ALL);
    addCommand<SCHEMA, Verb::APPLY>(commands, schema.apply, USES_UPDATE | USES_PARENTS);
    addCommand<SCHEMA, Verb::DELETE>(commands, schema.remove, USES_UPDATE | USES_IF_VALUE | USES_ALL | USES_YES);
}

std::vector<Command> allCommands() {
    std::vector<Command> commands;
    addCommands<varValSchema>(commands);
    addCommands<servicesSchema>(commands);
    addCommands<initTabSchema>(commands);
    addCommands<binVarSchema>(commands);
    return commands;
}

}  // namespace

std::span<const Command> entryCommands() {
    static const std::vector<Command> COMMANDS = allCommands();
    return COMMANDS;
}

}  // namespace tool

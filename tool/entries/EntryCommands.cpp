#include "entries/EntryCommands.h"

#include <fmt/core.h>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/EntryBatch.h"
#include "entries/EntryEditor.h"

namespace tool {
namespace {

enum class Verb { LIST, OWN, GET, GET_ALL, SET, ADD, DELETE, APPLY };

bool writes(Verb verb) {
    return verb == Verb::SET || verb == Verb::ADD;
}

EntryRequest requestOf(const EntrySchema& schema, const EntryWords& words, Verb verb) {
    EntryRequest request{words.file, words.name, schema.mask};
    putText(request.result, schema.member, words.name);
    if (writes(verb)) {
        if (words.noRest && !words.rest.empty()) {
            throw usageFailure(schema.restTwice);
        }
        refusingFor(words.file, fmt::format("{} {}", verb == Verb::ADD ? "add" : "set", printable(words.name)),
                    [&] { schema.ask(request, words, verb == Verb::ADD); });
    }
    if (schema.find != nullptr) {
        schema.find(request);
    }
    return request;
}

int runVerb(Context& context, const EntrySchema& schema, const EntryWords& words, Verb verb) {
    switch (verb) {
        case Verb::LIST:
            return listEntries(context, schema, words.file);
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
    words.fields.resize(schema.fields.size());
    for (std::size_t i = 0; i < schema.fields.size(); ++i) {
        parser.required(schema.fields[i].name, words.fields[i], schema.fields[i].help);
    }
    if (schema.rest.name != nullptr) {
        parser.words(schema.rest.name, words.rest, schema.rest.help);
    }
    parser.option("--comment", "TEXT", words.comment, fmt::format("the comment of the {}; empty: none", schema.place));
    if (schema.noRest.name != nullptr && verb == Verb::SET) {
        parser.flag(schema.noRest.name, words.noRest, schema.noRest.help);
    }
}

Action declareVerb(Parser& parser, const EntrySchema& schema, Verb verb) {
    auto words = std::make_shared<EntryWords>();
    parser.required("FILE", words->file, schema.file);
    if (verb == Verb::APPLY) {
        parser.optional("BATCH", words->name, "a file of JSON lines, or - for standard input");
    } else if (verb != Verb::LIST && verb != Verb::OWN) {
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
    addCommand<SCHEMA, Verb::SET>(commands, schema.set, USES_UPDATE | USES_IF_VALUE | USES_ALL);
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

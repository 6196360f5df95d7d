#include <fmt/core.h>

#include <algorithm>
#include <bit>
#include <iterator>
#include <memory>

#include "Answers.h"
#include "Commands.h"
#include "Files.h"
#include "GlobalRegistry.h"
#include "RecordFields.h"
#include "Text.h"
#include "Update.h"

namespace tool {
namespace {

struct Arguments {
    unsigned int type;               // GLOBALREG_*
    std::vector<std::string> key{};  // the key's fields in their order; those that were not given are empty
    std::vector<std::string> words{};
};

// A field to set, or without a text to remove.
struct FieldEdit {
    const GlobalRegField* field;
    std::string text;
};

// What a command works on.
struct Task {
    Context& context;
    const RecordKind& kind;
    std::string path;
    GlobalRegRecord key;  // only the key's fields, as far as they were given
    std::string doing;    // "set instance RVN 9.7.0.2 inst1"
};

std::string commandFor(const Task& task, std::string_view verb) {
    return fmt::format("genreg {} {}", task.kind.name, verb);
}

Failure changedMeanwhile(const Task& task) {
    return answer("changed", EXIT_CONFLICT, 0, task.path,
                  fmt::format("{} was changed by somebody else meanwhile; nothing was written", keyText(task.key)),
                  fmt::format("look at it ({}), then decide anew", commandFor(task, "get")));
}

Failure severalMatch(const Task& task, std::size_t count) {
    return answer("several", EXIT_CONFLICT, REG_SEVERAL_MATCH, task.path,
                  fmt::format("there are {} records {}; nothing was changed", count, keyText(task.key)),
                  fmt::format("{}, then {} --all", commandFor(task, "list"), commandFor(task, "remove")));
}

// The last field of the key tells records apart; a name that is near is named.
Failure notFound(const Task& task, const std::vector<FoundRecord>& records) {
    const GlobalRegField& field =
        task.kind.type == GLOBALREG_SERVICE
            ? task.kind.fields.front()
            : task.kind.fields[static_cast<std::size_t>(std::bit_width(task.kind.keyFields)) - 1];
    std::vector<std::string> names;
    for (const FoundRecord& record : records) {
        const auto name = valueText(record, field);
        if (name && record.recordType == task.kind.type) {
            names.push_back(*name);
        }
    }
    const std::string wanted = valueText(task.key, field).value_or("");
    const std::string meant = nearest(wanted, names);
    const std::string list = commandFor(task, "list");
    return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, task.path,
                  fmt::format("there is no {}", keyText(task.key)),
                  meant.empty() || meant == wanted ? list : fmt::format("{}, or {}", printable(meant), list));
}

// What keeps the words of the command line from being used.
Failure refused(Failure failure, const std::string& path, const std::string& doing) {
    failure.path = path;
    failure.message = fmt::format("{}: cannot {}: {}", printable(path), doing, failure.message);
    return failure;
}

std::vector<const GlobalRegField*> keyFieldsOf(const RecordKind& kind) {
    std::vector<const GlobalRegField*> fields;
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) != 0) {
            fields.push_back(&field);
        }
    }
    return fields;
}

GlobalRegRecord keyOf(const RecordKind& kind, const std::vector<std::string>& words) {
    GlobalRegRecord key{};
    key.recordType = kind.type;
    const auto fields = keyFieldsOf(kind);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].empty()) {
            Failure failure = usageFailure(fmt::format("{} is empty", fields[i]->name));
            failure.kind = "invalid";
            failure.exitStatus = EXIT_INVALID;
            failure.code = fields[i]->refusedCode != 0 ? fields[i]->refusedCode : REG_VERSION_INVALID;
            throw failure;
        }
        setField(key, *fields[i], words[i]);
    }
    return key;
}

Task taskOf(Context& context, const Arguments& arguments, const char* verb) {
    Task task{context, kindOf(arguments.type), globalRegistryPath(context), {}, {}};
    task.doing = fmt::format("{} {}", verb, task.kind.name);
    try {
        task.key = keyOf(task.kind, arguments.key);
    } catch (const Failure& failure) {
        throw refused(failure, task.path, task.doing);
    }
    task.doing = fmt::format("{} {}", verb, keyText(task.key));
    return task;
}

std::vector<FoundRecord> recordsOf(const Task& task, const std::string& path) {
    judgeFile(path, task.doing, true);
    return GlobalRegistry(task.context, path, true).read(task.doing);
}

bool isMeant(const Task& task, const GlobalRegRecord& record) {
    return record.recordType == task.key.recordType && (task.key.fieldMask & ~record.fieldMask) == 0 &&
           sameValues(record, task.key, task.key.fieldMask);
}

std::vector<FoundRecord> meant(const Task& task, const std::vector<FoundRecord>& records) {
    std::vector<FoundRecord> matches;
    std::copy_if(records.begin(), records.end(), std::back_inserter(matches),
                 [&](const FoundRecord& record) { return isMeant(task, record); });
    return matches;
}

// The key's columns, and those that any record has something in.
void printTable(Output& output, const RecordKind& kind, const std::vector<FoundRecord>& records) {
    unsigned long shown = kind.keyFields;
    LaterItems later;
    for (const FoundRecord& record : records) {
        shown |= record.fieldMask;
        later.insert(record.later.begin(), record.later.end());
    }
    std::vector<std::string> heading;
    for (const GlobalRegField& field : kind.fields) {
        if ((shown & field.bit) != 0) {
            heading.emplace_back(field.name);
        }
    }
    for (const auto& [bit, ignored] : later) {
        heading.push_back(laterName(bit));
    }
    Table table(heading);
    for (const FoundRecord& record : records) {
        std::vector<std::string> cells;
        for (const GlobalRegField& field : kind.fields) {
            if ((shown & field.bit) != 0) {
                cells.push_back(valueCell(record, field));
            }
        }
        for (const auto& [bit, ignored] : later) {
            cells.push_back(laterCell(record.later, bit));
        }
        table.row(std::move(cells));
    }
    table.print(output);
}

int list(Context& context, const Arguments& arguments) {
    const Task task = taskOf(context, arguments, "list");
    const std::vector<FoundRecord> records = meant(task, recordsOf(task, task.path));
    if (context.output.style.json) {
        for (const FoundRecord& record : records) {
            context.output.json(recordObject(record));
        }
    } else if (!records.empty()) {
        printTable(context.output, task.kind, records);
    }
    return EXIT_DONE;
}

const GlobalRegField& fieldNamed(const RecordKind& kind, const std::string& name) {
    std::vector<std::string> names;
    for (const GlobalRegField& field : kind.fields) {
        if (field.name == name) {
            return field;
        }
        if ((kind.keyFields & field.bit) == 0) {
            names.emplace_back(field.name);
        }
    }
    const std::string near = nearest(name, names);
    std::string all;
    for (const std::string& known : names) {
        all += (all.empty() ? "" : ", ") + known;
    }
    throw usageFailure(fmt::format("a{} {} has no field {}", kind.name == "instance" ? "n" : "", kind.name, cell(name)),
                       near.empty() ? all : near);
}

int get(Context& context, const Arguments& arguments) {
    const GlobalRegField* field =
        arguments.words.empty() ? nullptr : &fieldNamed(kindOf(arguments.type), arguments.words.front());
    const Task task = taskOf(context, arguments, "get");
    const std::vector<FoundRecord> all = recordsOf(task, task.path);
    const std::vector<FoundRecord> records = meant(task, all);
    if (records.empty()) {
        throw notFound(task, all);
    }
    for (const FoundRecord& record : records) {
        const auto value = field == nullptr ? std::nullopt : valueText(record, *field);
        if (field != nullptr && !value) {
            throw answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, task.path,
                         fmt::format("{} has no {}", keyText(record), field->name), commandFor(task, "get"));
        }
        if (context.output.style.json) {
            context.output.json(field == nullptr ? recordObject(record)
                                                 : recordObject(record, field->bit | task.kind.keyFields));
        } else if (field != nullptr) {
            context.output.line(context.output.isTerminal() ? printable(*value) : *value);
        } else {
            Table table({"FIELD", "VALUE"});
            for (const GlobalRegField& each : task.kind.fields) {
                table.row({each.name, valueCell(record, each)});
            }
            for (const auto& [bit, bytes] : record.later) {
                table.row({laterName(bit), laterCell(bytes)});
            }
            table.print(context.output);
        }
    }
    return EXIT_DONE;
}

std::vector<FieldEdit> editsOf(const RecordKind& kind, const std::vector<std::string>& words) {
    std::vector<FieldEdit> edits;
    unsigned long named = 0;
    for (const std::string& word : words) {
        const std::size_t sign = word.find('=');
        if (sign == std::string::npos) {
            throw usageFailure(fmt::format("{} is no field=value", cell(word)),
                               fmt::format("genreg {} set --help", kind.name));
        }
        const GlobalRegField& field = fieldNamed(kind, word.substr(0, sign));
        if ((kind.keyFields & field.bit) != 0) {
            throw usageFailure(fmt::format("{} is a part of the key, which does not change", field.name),
                               "set a new record, then remove the old one");
        }
        if ((named & field.bit) != 0) {
            throw usageFailure(fmt::format("{} is given twice", field.name));
        }
        named |= field.bit;
        edits.push_back({&field, word.substr(sign + 1)});
    }
    return edits;
}

void applyEdits(GlobalRegRecord& record, const std::vector<FieldEdit>& edits) {
    for (const FieldEdit& edit : edits) {
        if (edit.text.empty()) {
            removeField(record, *edit.field);
        } else {
            setField(record, *edit.field, edit.text);
        }
    }
}

// Refuses what --if-value does not allow.
void checkExpected(const Task& task, const GlobalRegRecord& found) {
    const auto& expected = task.context.options.ifValue;
    if (!expected) {
        return;
    }
    const GlobalRegField& field = fieldNamed(task.kind, "value");
    if (valueText(found, field).value_or("") != *expected) {
        throw answer("changed", EXIT_CONFLICT, 0, task.path,
                     fmt::format("{} is {}, not {}; nothing was changed", keyText(task.key), valueCell(found, field),
                                 cell(*expected)),
                     fmt::format("look at it ({}), then decide anew", commandFor(task, "get")));
    }
}

bool addRecord(const Task& task, GlobalRegistry& registry, const std::string& path, GlobalRegRecord record) {
    const unsigned int code = registry.add(record);
    if (code == REG_DUPLICATE) {
        throw changedMeanwhile(task);
    }
    if (code != 0) {
        throw libraryFailure(code, path, task.doing);
    }
    return true;
}

// Makes the change in that file. added: whether the record was missing.
bool change(const Task& task, const std::string& path, const std::vector<FieldEdit>& edits, bool* added) {
    const bool exists = judgeFile(path, task.doing, false);
    GlobalRegistry registry(task.context, path, path != task.path);
    const std::vector<FoundRecord> all = exists ? registry.read(task.doing) : std::vector<FoundRecord>();
    const std::vector<FoundRecord> matches = meant(task, all);
    *added = matches.empty();
    if (matches.size() > 1) {
        throw severalMatch(task, matches.size());
    }
    GlobalRegRecord record = *added ? task.key : matches.front();
    applyEdits(record, edits);
    if (*added) {
        if (task.context.options.ifValue) {
            throw notFound(task, all);
        }
        return addRecord(task, registry, path, record);
    }
    checkExpected(task, matches.front());
    const unsigned int code = registry.change(matches.front(), record);
    if (code == REG_NOT_FOUND) {
        throw changedMeanwhile(task);
    }
    if (code != 0 && code != REG_UNCHANGED) {
        throw libraryFailure(code, path, task.doing);
    }
    return code == 0;
}

Change changeOf(const Task& task) {
    return changeOfRecords(task.path, task.doing, recordObject(task.key));
}

int set(Context& context, const Arguments& arguments) {
    const std::vector<FieldEdit> edits = editsOf(kindOf(arguments.type), arguments.words);
    const Task task = taskOf(context, arguments, "set");
    try {
        // The change log has a line for the record; a line break would let it hold another.
        for (const std::string& word : arguments.key) {
            refuseControl("key", word);
        }
        for (const FieldEdit& edit : edits) {
            refuseControl(edit.field->name, edit.text);
        }
        GlobalRegRecord trial = task.key;
        applyEdits(trial, edits);
    } catch (const Failure& failure) {
        throw refused(failure, task.path, task.doing);
    }
    Change change = changeOf(task);
    bool added = false;
    change.make = [&](const std::string& path) {
        const bool changed = tool::change(task, path, edits, &added);
        change.result["added"] = added;
        return changed;
    };
    const int status = carryOut(context, change);
    if (added && !context.options.dryRun) {
        context.output.note("added", task.path, fmt::format("{}: added", keyText(task.key)));
    }
    return status;
}

// The records that are to go. Refuses what the options do not allow.
std::vector<FoundRecord> removable(const Task& task, const std::string& path) {
    const std::vector<FoundRecord> all = recordsOf(task, path);
    std::vector<FoundRecord> matches = meant(task, all);
    if (matches.empty()) {
        throw notFound(task, all);
    }
    if (matches.size() > 1 && !task.context.options.all) {
        throw severalMatch(task, matches.size());
    }
    if (!task.context.options.all) {
        checkExpected(task, matches.front());
    }
    return matches;
}

bool removeRecords(const Task& task, const std::string& path) {
    const std::vector<FoundRecord> matches = removable(task, path);
    GlobalRegistry registry(task.context, path, path != task.path);
    const unsigned int code = task.context.options.ifValue
                                  ? registry.remove(matches.front())
                                  : registry.removeMatching(task.key, task.context.options.all);
    if (code == REG_NOT_FOUND) {
        throw changedMeanwhile(task);
    }
    if (code != 0) {
        throw libraryFailure(code, path, task.doing);
    }
    return true;
}

int remove(Context& context, const Arguments& arguments) {
    const Options& options = context.options;
    if (options.all && options.ifValue) {
        throw usageFailure("--if-value is about one record, --all about several");
    }
    const Task task = taskOf(context, arguments, "remove");
    if (task.key.fieldMask != task.kind.keyFields && !options.all) {
        throw usageFailure(fmt::format("{}: which one? {} names several", keyText(task.key), task.doing),
                           "the whole key, or --all");
    }
    if (options.all && !options.yes && !options.dryRun) {
        const std::size_t count = removable(task, task.path).size();
        if (count > 1) {
            confirm(task.path, fmt::format("remove {} records ({})", count, keyText(task.key)));
        }
    }
    Change change = changeOf(task);
    change.make = [&](const std::string& path) { return removeRecords(task, path); };
    return carryOut(context, change);
}

constexpr const char* KEY_WORDS[] = {"SERVICE", "VERSION", "NAME"};
constexpr const char* KEY_HELP[] = {"the service", "its version: 9.7.0.2", "the name"};

// The words of the key: all of them, or at least so many.
std::shared_ptr<Arguments> declareKey(CLI::App& parser, unsigned int type, std::size_t required) {
    auto arguments = std::make_shared<Arguments>(Arguments{type});
    const bool versioned = type != GLOBALREG_VARIABLE;
    const std::size_t count = keyFieldsOf(kindOf(type)).size();
    arguments->key.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t word = !versioned && i == 1 ? 2 : i;
        auto* const option = parser.add_option_function<std::string>(
            KEY_WORDS[word], [arguments](const std::string& text) { arguments->key.push_back(text); }, KEY_HELP[word]);
        option->required(i < required);
    }
    return arguments;
}

std::string fieldsText(unsigned int type) {
    const RecordKind& kind = kindOf(type);
    std::string text = "Fields:";
    for (const GlobalRegField& field : kind.fields) {
        text += (kind.keyFields & field.bit) != 0 ? "" : fmt::format(" {}", field.name);
    }
    return text;
}

constexpr std::size_t WHOLE_KEY = 3;

template <unsigned int TYPE>
Action declareList(CLI::App& parser) {
    return [arguments = declareKey(parser, TYPE, 0)](Context& context) { return list(context, *arguments); };
}

template <unsigned int TYPE>
Action declareGet(CLI::App& parser) {
    auto arguments = declareKey(parser, TYPE, WHOLE_KEY);
    parser.add_option("FIELD", arguments->words, "only the value of this field")->expected(0, 1);
    parser.footer(fieldsText(TYPE));
    return [arguments](Context& context) { return get(context, *arguments); };
}

template <unsigned int TYPE>
Action declareSet(CLI::App& parser) {
    auto arguments = declareKey(parser, TYPE, WHOLE_KEY);
    parser.add_option("FIELD=VALUE", arguments->words, "fields to set; FIELD= removes one, others stay as they are");
    parser.footer(fieldsText(TYPE));
    return [arguments](Context& context) { return set(context, *arguments); };
}

template <unsigned int TYPE>
Action declareRemove(CLI::App& parser) {
    return [arguments = declareKey(parser, TYPE, 1)](Context& context) { return remove(context, *arguments); };
}

constexpr unsigned int SETS = USES_REGISTRY | USES_UPDATE;
constexpr unsigned int REMOVES = SETS | USES_ALL | USES_YES;

constexpr Command COMMANDS[] = {
    {"service list", "the installed copies", USES_REGISTRY, declareList<GLOBALREG_SERVICE>},
    {"service get", "one of them, or one of its fields", USES_REGISTRY, declareGet<GLOBALREG_SERVICE>},
    {"service set", "set fields; a missing record is added", SETS, declareSet<GLOBALREG_SERVICE>},
    {"service remove", "remove one, or with --all each that matches", REMOVES, declareRemove<GLOBALREG_SERVICE>},
    {"instance list", "the instances", USES_REGISTRY, declareList<GLOBALREG_INSTANCE>},
    {"instance get", "one of them, or one of its fields", USES_REGISTRY, declareGet<GLOBALREG_INSTANCE>},
    {"instance set", "set fields; a missing record is added", SETS, declareSet<GLOBALREG_INSTANCE>},
    {"instance remove", "remove one, or with --all each that matches", REMOVES, declareRemove<GLOBALREG_INSTANCE>},
    {"variable list", "the settings", USES_REGISTRY, declareList<GLOBALREG_VARIABLE>},
    {"variable get", "one of them, or one of its fields", USES_REGISTRY, declareGet<GLOBALREG_VARIABLE>},
    {"variable set", "set fields; a missing record is added", SETS | USES_IF_VALUE, declareSet<GLOBALREG_VARIABLE>},
    {"variable remove", "remove one, or with --all each that matches", REMOVES | USES_IF_VALUE,
     declareRemove<GLOBALREG_VARIABLE>},
};

}  // namespace

std::span<const Command> recordCommands() {
    return COMMANDS;
}

}  // namespace tool

#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <memory>

#include "base/Answers.h"
#include "base/Text.h"
#include "global/GlobalCommands.h"
#include "global/RecordTask.h"
#include "records/RecordTable.h"
#include "system/System.h"

namespace tool {
namespace {

bool fits(const FoundRecord& record, const RecordKind& kind, const std::vector<std::string>& words) {
    const auto fields = keyFieldsOf(kind);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto value = valueText(record, *fields[i]);
        if (!value || (*value != words[i] && !fitsPattern(words[i], *value))) {
            return false;
        }
    }
    return record.recordType == kind.type;
}

bool isPattern(const std::string& word) {
    return word.find_first_of("*?[") != std::string::npos;
}

// The words as fields show them, patterns as they are: a version may be given with fewer numbers.
std::vector<std::string> asShown(const RecordTask& task, std::vector<std::string> words) {
    const auto fields = keyFieldsOf(task.kind);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (!isPattern(words[i])) {
            GlobalRegRecord record{};
            record.recordType = task.kind.type;
            refusingFor(task.path, task.doing, [&] { setField(record, *fields[i], words[i]); });
            words[i] = valueText(record, *fields[i]).value_or("");
        }
    }
    return words;
}

int list(Context& context, const RecordArguments& arguments) {
    // A pattern takes the place of a word of the key.
    RecordArguments plain = arguments;
    const bool byPattern = std::ranges::any_of(arguments.key, isPattern);
    if (byPattern) {
        plain.key.clear();
    }
    const RecordTask task = taskOf(context, plain, "list");
    std::vector<FoundRecord> records = meant(task, recordsOf(task, task.path));
    if (byPattern) {
        const std::vector<std::string> words = asShown(task, arguments.key);
        std::erase_if(records, [&](const FoundRecord& record) { return !fits(record, task.kind, words); });
    }
    if (context.output.style.json) {
        for (const FoundRecord& record : records) {
            context.output.json(recordObject(record));
        }
    } else if (!records.empty()) {
        RecordTable table(task.kind);
        for (const FoundRecord& record : records) {
            table.row(record);
        }
        table.print(context.output);
    }
    return EXIT_DONE;
}

int get(Context& context, const RecordArguments& arguments) {
    const GlobalRegField* field =
        arguments.words.empty() ? nullptr : &fieldNamed(kindOf(arguments.type), arguments.words.front());
    const RecordTask task = taskOf(context, arguments, "get");
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

constexpr const char* KEY_WORDS[] = {"SERVICE", "VERSION", "NAME"};
constexpr std::size_t MOST_WORDS = std::size(KEY_WORDS);
constexpr const char* KEY_HELP[] = {"the service", "its version: 9.7.0.2", "the name"};

// The words of the key: all of them, or at least so many.
std::shared_ptr<RecordArguments> declareKey(Parser& parser, unsigned int type, std::size_t required) {
    auto arguments = std::make_shared<RecordArguments>(RecordArguments{type});
    const bool versioned = type != GLOBALREG_VARIABLE;
    const std::size_t count = keyFieldsOf(kindOf(type)).size();
    arguments->key.reserve(count);
    for (std::size_t i = 0; i < count && i < MOST_WORDS; ++i) {
        const std::size_t word = !versioned && i == 1 ? 2 : i;
        const auto take = [arguments](const std::string& text) { arguments->key.push_back(text); };
        parser.handedOver(KEY_WORDS[word], i < required, take, KEY_HELP[word]);
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
Action declareList(Parser& parser) {
    parser.footer("Each word may be a pattern, in quotes because of the shell: *, ?, [...].");
    return [arguments = declareKey(parser, TYPE, 0)](Context& context) { return list(context, *arguments); };
}

template <unsigned int TYPE>
Action declareGet(Parser& parser) {
    auto arguments = declareKey(parser, TYPE, WHOLE_KEY);
    parser.oneWord("FIELD", arguments->words, "only the value of this field");
    parser.footer(fieldsText(TYPE));
    return [arguments](Context& context) { return get(context, *arguments); };
}

template <unsigned int TYPE>
Action declareSet(Parser& parser) {
    auto arguments = declareKey(parser, TYPE, WHOLE_KEY);
    parser.words("FIELD=VALUE", arguments->words, "fields to set; FIELD= removes one, others stay as they are");
    parser.footer(fieldsText(TYPE));
    if constexpr (TYPE == GLOBALREG_VARIABLE) {
        parser.option("--value-from", "FILE", arguments->valueFrom,
                      "take the field value from a file, or with - from standard input");
    }
    return [arguments](Context& context) { return setRecord(context, *arguments); };
}

template <unsigned int TYPE>
Action declareRemove(Parser& parser) {
    auto arguments = declareKey(parser, TYPE, 1);
    parser.flag("--if-present", arguments->ifPresent, "a record that is not there is no failure");
    return [arguments](Context& context) { return removeRecords(context, *arguments); };
}

constexpr unsigned int SETS = USES_REGISTRY | USES_UPDATE;
constexpr unsigned int REMOVES = SETS | USES_ALL | USES_YES;

}  // namespace

std::span<const Command> recordCommands() {
    static constexpr Command COMMANDS[] = {
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
    return COMMANDS;
}

}  // namespace tool

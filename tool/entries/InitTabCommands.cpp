#include <fmt/core.h>
#include <genreg/GenRegInitTab.h>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/EntryCommands.h"
#include "entries/EntryLine.h"
#include "entries/LineFile.h"

namespace tool {
namespace {

// The comment as people mean it: without the blank behind its sign.
std::optional<std::string> commentOf(const GenRegInitTabRecord& record) {
    return shownComment((record.flags & INITTAB_HAS_COMMENT) != 0 ? record.comment : nullptr);
}

struct InitTabForm {
    using Schema = GenRegInitTab;
    using Record = GenRegInitTabRecord;

    static constexpr GenRegParseLine parse = GenRegInitTab::ParseLine;  // comments as they stand

    static bool isEntry(const Record& record) {
        return (record.flags & INITTAB_HAS_ENTRY) != 0 && record.id != nullptr && record.command != nullptr;
    }

    static Entry describe(const Record& record) {
        const auto comment = commentOf(record);
        Entry entry;
        entry.name = record.id;
        entry.value = fmt::format("{}:{}:{}", record.runLevel, record.action, record.command);
        entry.cells = {cell(record.id), cell(record.runLevel), cell(record.action), cell(record.command),
                       commentCell(comment)};
        putText(entry.members, "id", record.id);
        putText(entry.members, "run_levels", record.runLevel);
        putText(entry.members, "action", record.action);
        putText(entry.members, "command", record.command);
        putComment(entry.members, comment);
        return entry;
    }

    // A key with a comment would find that comment only.
    static void makeKey(Record& record) {
        record.flags = INITTAB_HAS_ENTRY;
        record.comment = nullptr;
    }
};

std::unique_ptr<EntryFile> openInitTab(const std::string& path, bool severalAllowed) {
    return std::make_unique<LineFile<InitTabForm>>(path, severalAllowed);
}

const EntryForm& form() {
    static const EntryForm FORM{
        "inittab",
        "entry",
        "line",
        {"ID", "RUNLEVELS", "ACTION", "COMMAND", "COMMENT"},
        INITTAB_MATCH_RUN_LEVEL | INITTAB_MATCH_ACTION | INITTAB_MATCH_COMMAND,
        "the line would be longer than 2046 bytes, or would be read as something else",
        "shorten the command or the comment",
        openInitTab,
        nullptr,
        &initTabForm(),
    };
    return FORM;
}

struct Arguments {
    std::string file;
    std::string id;
    std::string runLevels;
    std::string action;
    std::string command;
    std::optional<std::string> comment;
};

void checkField(std::string_view what, const std::string& field, std::string_view refused) {
    refuseControl(what, field);
    const std::size_t found = field.find_first_of(refused);
    if (found != std::string::npos) {
        throw invalid(REG_RECORD_REFUSED,
                      fmt::format("the {} holds \"{}\", which {}", what, field[found],
                                  field[found] == '#' ? "starts the comment" : "ends the field"),
                      "leave it out");
    }
}

void checkEntry(const Arguments& entry) {
    checkField("id", entry.id, ":#");
    checkField("run levels", entry.runLevels, ":#");
    checkField("action", entry.action, ":#");
    checkField("command", entry.command, "#");
    refuseControl("comment", entry.comment.value_or(""));
    if (entry.id.empty()) {
        throw invalid(REG_NAME_MISSING, "the id is empty, which makes the line a comment", "name the entry");
    }
    if (entry.command.ends_with(' ') && entry.command.size() > 1) {
        throw invalid(REG_RECORD_REFUSED, "the command ends in a blank, which would be lost", "leave it out");
    }
    const std::string& last = entry.comment.value_or("").empty() ? entry.command : *entry.comment;
    if (last.ends_with('\\')) {
        throw invalid(REG_RECORD_REFUSED, "a backslash at the end of the line continues it on the next",
                      "leave the backslash out");
    }
}

// The entry that the line holds; null when it holds none.
std::unique_ptr<GenRegInitTabRecord> parsed(std::string_view line) {
    auto record = std::make_unique<GenRegInitTabRecord>();
    const bool read =
        GenRegInitTab::ParseLine(record.get(), std::string(line).c_str()) == 0 && InitTabForm::isEntry(*record);
    return read ? std::move(record) : nullptr;
}

bool saysSo(const GenRegInitTabRecord& record, const Arguments& entry) {
    return record.id == entry.id && record.runLevel == entry.runLevels && record.action == entry.action &&
           record.command == entry.command;
}

// The line with what is asked for; where that cannot be written, a text that is too long for any line.
std::string rewritten(Arguments entry, std::string_view line) {
    auto record = parsed(line);
    if (record == nullptr) {
        record = std::make_unique<GenRegInitTabRecord>();
    }
    record->flags |= INITTAB_HAS_ENTRY;
    record->id = entry.id.data();
    record->runLevel = entry.runLevels.data();
    record->action = entry.action.data();
    record->command = entry.command.data();
    // One that says so already keeps its bytes.
    std::string comment = " " + entry.comment.value_or("");
    if (entry.comment) {
        record->flags = INITTAB_HAS_ENTRY | (entry.comment->empty() ? 0 : INITTAB_HAS_COMMENT);
        record->comment = commentOf(*record) != entry.comment ? comment.data() : record->comment;
    }
    std::string text(line.empty() ? "-:-:-:-" : line);  // a new one is written over this
    text.resize(REG_LINE_SIZE);
    const bool written = GenRegInitTab::RewriteLine(record.get(), text.data()) == 0;
    return written ? text.substr(0, std::min(text.find('\n'), text.find('\0'))) : std::string(REG_LINE_SIZE, ' ');
}

bool isReadFrom(const Arguments& entry, std::string_view line) {
    const auto record = parsed(line);
    return record != nullptr && saysSo(*record, entry) && !line.ends_with('\\') &&
           (!entry.comment || commentOf(*record) == (entry.comment->empty() ? std::nullopt : entry.comment));
}

EntryRequest requestOf(const Arguments& arguments) {
    EntryRequest request;
    request.file = arguments.file;
    request.name = arguments.id;
    request.mask = INITTAB_MATCH_ID;
    request.concerns = [id = arguments.id](const Entry& entry) { return entry.name == id; };
    putText(request.result, "id", arguments.id);
    return request;
}

EntryRequest editOf(const Arguments& arguments, const char* verb) {
    refusingFor(arguments.file, fmt::format("{} {}", verb, printable(arguments.id)), [&] { checkEntry(arguments); });
    EntryRequest request = requestOf(arguments);
    request.edit.rewrite = [arguments](std::string_view line) { return rewritten(arguments, line); };
    request.edit.readsAsAsked = [arguments](std::string_view line) { return isReadFrom(arguments, line); };
    request.addWords = fmt::format("{} {} {} {}", shellWord(arguments.id), shellWord(arguments.runLevels),
                                   shellWord(arguments.action), shellWord(arguments.command));
    putText(request.result, "run_levels", arguments.runLevels);
    putText(request.result, "action", arguments.action);
    putText(request.result, "command", arguments.command);
    return request;
}

std::shared_ptr<Arguments> declareFile(CLI::App& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.add_option("FILE", arguments->file, "the inittab file")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareId(CLI::App& parser) {
    auto arguments = declareFile(parser);
    parser.add_option("ID", arguments->id, "the id of the entry")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareEntry(CLI::App& parser) {
    auto arguments = declareId(parser);
    parser.add_option("RUNLEVELS", arguments->runLevels, "the run levels; may be empty")->required();
    parser.add_option("ACTION", arguments->action, "respawn, wait, once, off, ...; may be empty")->required();
    parser.add_option("COMMAND", arguments->command, "the command, one word to the shell; may be empty")->required();
    parser.add_option("--comment", arguments->comment, "the comment of the line; empty: none")->type_name("TEXT");
    return arguments;
}

Action declareList(CLI::App& parser) {
    return
        [arguments = declareFile(parser)](Context& context) { return listEntries(context, form(), arguments->file); };
}

Action declareGet(CLI::App& parser) {
    return [arguments = declareId(parser)](Context& context) {
        return getEntries(context, form(), requestOf(*arguments), context.options.all);
    };
}

Action declareSet(CLI::App& parser) {
    return [arguments = declareEntry(parser)](Context& context) {
        return setEntry(context, form(), editOf(*arguments, "set"));
    };
}

Action declareAdd(CLI::App& parser) {
    return [arguments = declareEntry(parser)](Context& context) {
        return addEntry(context, form(), editOf(*arguments, "add"));
    };
}

Action declareDelete(CLI::App& parser) {
    return [arguments = declareId(parser)](Context& context) {
        return deleteEntry(context, form(), requestOf(*arguments));
    };
}

constexpr Command COMMANDS[] = {
    {"inittab list", "all entries, with their comments", 0, declareList},
    {"inittab get", "run levels, action and command of an entry, the first of its lines", USES_ALL, declareGet},
    {"inittab set", "change an entry; its line keeps its place and comment", USES_UPDATE | USES_IF_VALUE | USES_ALL,
     declareSet},
    {"inittab add", "append a line for a new entry", USES_UPDATE | USES_PARENTS | USES_ALL, declareAdd},
    {"inittab delete", "remove the line of an entry", USES_UPDATE | USES_IF_VALUE | USES_ALL | USES_YES, declareDelete},
};

}  // namespace

std::span<const Command> initTabCommands() {
    return COMMANDS;
}

}  // namespace tool

// Files of lines "id:runlevels:action:command # comment".
#include <fmt/core.h>
#include <genreg/GenRegInitTab.h>

#include <algorithm>
#include <iterator>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/EntryLine.h"
#include "entries/EntrySchema.h"
#include "entries/LineRegistry.h"

namespace tool {
namespace {

// The comment as people mean it: without the blank behind its sign.
std::optional<std::string> commentOf(const GenRegInitTabRecord& record) {
    return shownComment((record.flags & INITTAB_HAS_COMMENT) != 0 ? record.comment : nullptr);
}

struct InitTabLines {
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
        putText(entry.members, "runLevels", record.runLevel);
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

JudgedLine judge(const std::string& text) {
    auto record = std::make_unique<GenRegInitTabRecord>();
    if (GenRegInitTab::ParseLine(record.get(), text.c_str()) != 0) {
        return {JudgedLine::Kind::REFUSED, "", "it has fewer than three \":\" before its comment"};
    }
    return (record->flags & INITTAB_HAS_ENTRY) == 0 ? JudgedLine{}
                                                    : JudgedLine{JudgedLine::Kind::ENTRY, record->id, ""};
}

struct Fields {
    std::string id;
    std::vector<std::string> words;  // run levels, action, command; none: as they stand
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

void checkEntry(const Fields& entry) {
    checkField("id", entry.id, ":#");
    const std::string command = entry.words.empty() ? "" : entry.words[2];
    if (!entry.words.empty()) {
        checkField("run levels", entry.words[0], ":#");
        checkField("action", entry.words[1], ":#");
        checkField("command", command, "#");
    }
    refuseControl("comment", entry.comment.value_or(""));
    if (entry.id.empty()) {
        throw invalid(REG_NAME_MISSING, "the id is empty, which makes the line a comment", "name the entry");
    }
    if (command.ends_with(' ') && command.size() > 1) {
        throw invalid(REG_RECORD_REFUSED, "the command ends in a blank, which would be lost", "leave it out");
    }
    const std::string& last = entry.comment.value_or("").empty() ? command : *entry.comment;
    if (last.ends_with('\\')) {
        throw invalid(REG_RECORD_REFUSED, "a backslash at the end of the line continues it on the next",
                      "leave the backslash out");
    }
}

// The line with what is asked for.
std::string rewritten(Fields entry, std::string_view line) {
    const auto record = std::make_unique<GenRegInitTabRecord>();
    if (GenRegInitTab::ParseLine(record.get(), std::string(line).c_str()) != 0 || !InitTabLines::isEntry(*record)) {
        return unwritableLine();
    }
    record->id = entry.id.data();
    if (!entry.words.empty()) {
        record->runLevel = entry.words[0].data();
        record->action = entry.words[1].data();
        record->command = entry.words[2].data();
    }
    // One that says so already keeps its bytes.
    std::string comment = " " + entry.comment.value_or("");
    if (entry.comment) {
        record->flags = INITTAB_HAS_ENTRY | (entry.comment->empty() ? 0 : INITTAB_HAS_COMMENT);
        record->comment = commentOf(*record) != entry.comment ? comment.data() : record->comment;
    }
    std::string text = rewrittenLine(line, record.get(), GenRegInitTab::RewriteLine);
    return text.ends_with('\\') ? unwritableLine() : text;
}

void ask(EntryRequest& request, const EntryWords& words, bool /*fresh*/) {
    const Fields entry{words.name, words.fields, words.comment};
    checkEntry(entry);
    request.edit.rewrite = [entry](std::string_view line) { return rewritten(entry, line); };
    request.edit.layout = "-:-:-:-";
    request.edit.cells = {cell(entry.id), std::nullopt, std::nullopt, std::nullopt, askedComment(entry.comment)};
    for (std::size_t i = 0; i < entry.words.size(); ++i) {
        request.edit.cells[i + 1] = cell(entry.words[i]);
        request.addWords += fmt::format("{}{}", i == 0 ? shellWord(entry.id) + " " : " ", shellWord(entry.words[i]));
    }
}

std::string takeName(BatchItem& item, EntryWords& words) {
    return words.name = item.takeName("id");
}

void takeWords(BatchItem& item, const Entry* found, EntryWords& words) {
    std::string standing = found != nullptr ? found->value : "";
    for (const char* const member : {"runLevels", "action", "command"}) {
        const bool last = std::string_view(member) == "command";
        const std::size_t end = last ? standing.size() : std::min(standing.find(':'), standing.size());
        const auto text = item.takeText(member);
        if (!text && found == nullptr) {
            throw item.failure(fmt::format("it has no \"{}\"", member), "a new entry needs one; it may be empty");
        }
        words.asFound = words.asFound || !text;
        words.fields.push_back(text ? *text : standing.substr(0, end));
        standing.erase(0, end + 1);
    }
    words.comment = item.takeOrNone("comment");
}

}  // namespace

const EntrySchema& initTabSchema() {
    static const EntrySchema SCHEMA{
        .group = "inittab",
        .noun = "entry",
        .place = "line",
        .list = {"inittab list", "all entries, with their comments"},
        .get = {"inittab get", "run levels, action and command of an entry, the first of its lines"},
        .set = {"inittab set", "change an entry; its line keeps its place and comment"},
        .add = {"inittab add", "append a line for a new entry"},
        .remove = {"inittab delete", "remove the line of an entry"},
        .apply = {"inittab apply", "make a batch of changes with one commit"},
        .file = "the inittab file",
        .found = {"ID", "the id of the entry"},
        .named = {"ID", "the id of the entry"},
        .fields = {{"RUNLEVELS", "the run levels; may be empty"},
                   {"ACTION", "respawn, wait, once, off, ...; may be empty"},
                   {"COMMAND", "the command, one word to the shell; may be empty"}},
        .heading = {"ID", "RUNLEVELS", "ACTION", "COMMAND", "COMMENT"},
        .mask = INITTAB_MATCH_ID,
        .valueMask = INITTAB_MATCH_RUN_LEVEL | INITTAB_MATCH_ACTION | INITTAB_MATCH_COMMAND,
        .tooLong = "the line would be longer than 2046 bytes, or would be read as something else",
        .shorten = "shorten the command or the comment",
        .open = openLines<InitTabLines>,
        .ask = ask,
        .takeName = takeName,
        .takeWords = takeWords,
        .keyMembers = {"id"},
        .otherMembers = {"runLevels", "action", "command", "comment"},
        .anyValue = "2:off:",
        .judge = judge,
        .describe = describeLine<InitTabLines>,
        .continued = true,
    };
    return SCHEMA;
}

}  // namespace tool

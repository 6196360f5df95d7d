// Any text as a line of an inittab file, continuations joined: what is parsed, written and parsed again is the same
// record, and what is written of that is the same line.
//
// Not claimed: an entry with a comment and without a command, whose command becomes the blank before the comment; and a
// line that ends in a backslash (the last of a file, without its newline, may), which would continue on the next one.
// The verification of a deferred commit refuses both; the file stands.
#include <genreg/GenRegInitTab.h>

#include "SchemaLine.h"

namespace {

using Line = SchemaLine<GenRegInitTab, GenRegInitTabRecord>;

void claimSound(unsigned int rc, const GenRegInitTabRecord& record) {
    claimInside(record.line, {record.comment, record.id, record.runLevel, record.action, record.command});
    claim(record.flags <= (INITTAB_HAS_COMMENT | INITTAB_HAS_ENTRY), "no other flag is set");
    claim((record.comment != nullptr) == ((record.flags & INITTAB_HAS_COMMENT) != 0), "a comment has its flag");
    claim((record.id != nullptr) == ((record.flags & INITTAB_HAS_ENTRY) != 0), "an entry has its flag");
    // Each refusal leaves the fields before what is missing.
    const char* const fields[] = {record.id, record.runLevel, record.action, record.command};
    const auto found = std::count_if(std::begin(fields), std::end(fields), [](const char* f) { return f != nullptr; });
    constexpr unsigned int CODES[] = {0, REG_INITTAB_NO_RUN_LEVEL, REG_INITTAB_NO_ACTION, REG_INITTAB_NO_COMMAND, 0};
    claim(rc == CODES[found], "a refusal has its reason");
    claim(found == 0 || (record.id != nullptr && *record.id != '\0'), "an id is no empty text");
    for (const char* const field : {record.id, record.runLevel, record.action}) {
        claim(textOf(field).find_first_of(":#\n") == std::string::npos, "a field ends at a colon");
    }
}

// An entry is what stands before the comment, but for the blanks behind its command.
void claimWhole(const GenRegInitTabRecord& record, std::string text) {
    text = text.substr(0, text.find_first_of("#\n"));
    const std::string command = textOf(record.command);
    const std::string entry =
        textOf(record.id) + ":" + textOf(record.runLevel) + ":" + textOf(record.action) + ":" + command;
    claim(text.substr(0, entry.size()) == entry, "the fields are the text");
    const std::string cut = text.substr(entry.size());
    claim(cut.find_first_not_of(' ') == std::string::npos, "only blanks are cut");
    claim(cut.empty() || !command.empty(), "and not the first character");
    claim(command.size() < 2 || command.back() != ' ', "and none is left");
}

void claimSame(const GenRegInitTabRecord& again, const GenRegInitTabRecord& record) {
    claim(again.flags == record.flags, "it holds as much");
    claim(textOf(again.id) == textOf(record.id), "the id is the same");
    claim(textOf(again.runLevel) == textOf(record.runLevel), "the run levels are the same");
    claim(textOf(again.action) == textOf(record.action), "the action is the same");
    claim(textOf(again.command) == textOf(record.command), "the command is the same");
    claim(textOf(again.comment) == textOf(record.comment), "the comment is the same");
}

// The line as it is kept: nothing asked, nothing changed; one field asked, one changed.
void keepTheRest(Line& schema, GenRegInitTabRecord& record) {
    const std::string before = schema.text();
    const std::string line = Line::ended(before);
    const bool continues = line.size() > 1 && line[line.size() - 2] == '\\';
    const Line::Writing written = schema.rewrite(record);
    claim(written.rc == REG_LINE_TOO_LONG ? line.size() >= REG_LINE_SIZE : continues || written.line == line,
          "what is not changed stays");
    char* GenRegInitTabRecord::*const fields[] = {&GenRegInitTabRecord::id, &GenRegInitTabRecord::runLevel,
                                                  &GenRegInitTabRecord::action, &GenRegInitTabRecord::command};
    for (char* GenRegInitTabRecord::*const field : fields) {
        const auto set = [field](GenRegInitTabRecord& wanted, char* word) { wanted.*field = word; };
        schema.claimOnlyThatChanges(record.*field, set, GenRegInitTab::ParseLine, continues);
    }
    if (record.comment != nullptr) {
        const auto comment = [](GenRegInitTabRecord& wanted, char* word) { wanted.comment = word; };
        schema.claimOnlyThatChanges(record.comment, comment, GenRegInitTab::ParseLine, false);
        record.flags = INITTAB_HAS_ENTRY;
        const Line::Writing bare = schema.rewrite(record);
        const bool endsSo = bare.rc == REG_RECORD_REFUSED && textOf(record.command).ends_with('\\');
        claim(endsSo || (bare.rc == 0 && before.starts_with(bare.line.substr(0, bare.line.size() - 1))),
              "a comment goes, and nothing else");
        record.flags = INITTAB_HAS_ENTRY | INITTAB_HAS_COMMENT;
    }
}

void searchIt(Line& schema) {
    for (std::string name : schema.namesInSight()) {
        GenRegInitTabRecord key = {};
        key.id = name.data();
        key.runLevel = key.action = key.command = key.comment = const_cast<char*>("a");
        for (const unsigned long flags : {0UL, INITTAB_HAS_COMMENT, INITTAB_HAS_ENTRY}) {
            key.flags = flags;
            schema.claimPassedOverRightly(key);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Line schema(bytes, size, true);
    searchIt(schema);
    const auto [rc, record] = schema.read(schema.line());
    claimSound(rc, *record);
    if (rc != 0) {
        return 0;
    }
    const std::string before = schema.text();
    if (record->id != nullptr) {
        claimWhole(*record, before);
        keepTheRest(schema, *record);
    }
    schema.claimFound(*record, schema.line(), *record);
    const Line::Writing written = Line::write(*record, before);
    if (record->flags == 0) {
        claim(written.rc == 0 && written.line == (before.empty() ? "\n" : before), "of no record nothing is written");
        return 0;
    }
    if (written.rc != 0) {
        claim(written.rc == REG_LINE_TOO_LONG && before.size() + 2 >= REG_LINE_SIZE,
              "a record that was read can be written");
        return 0;
    }
    claim(Line::write(*record).line == written.line, "a new line is written as one over another");
    const bool lostCommand = record->comment != nullptr && textOf(record->command).empty();
    const bool continues = written.line.size() > 1 && written.line[written.line.size() - 2] == '\\';
    if (lostCommand || continues) {
        return 0;
    }
    const Line::Reading again = schema.read(written.line);
    claimSound(again.rc, *again.record);
    claimSame(*again.record, *record);
    schema.claimFound(*record, written.line, *again.record);
    const Line::Writing settled = Line::write(*again.record);
    claim(settled.rc == 0 && settled.line == written.line, "the layout settles");
    return 0;
}

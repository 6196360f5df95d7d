// Any text as a variable/value line: what is parsed, written (over itself and as a new line) and parsed again is the
// same record, but for the blank that each writing puts before a comment.
//
// Not claimed: a line whose "=" stands inside quotes, written over itself. Its blanks are the value's and the layout's
// at once and so are written twice. The verification of a deferred commit refuses such a change; the file stands.
#include <genreg/GenRegVarVal.h>

#include "FormLine.h"

namespace {

using Line = FormLine<GenRegVarVal, GenRegVarValRecord>;

void writeAndReadAgain(Line& form, GenRegVarValRecord& record, const std::string& before) {
    const Line::Writing written = Line::write(record, before);
    if (written.rc != 0) {
        claim(written.rc == REG_LINE_TOO_LONG, "a record that was read can be written");
        return;
    }
    const Line::Reading again = form.read(written.line);
    claim(again.rc == 0, "what was written can be read");
    claim(again.record->contains == record.contains, "it holds as much");
    claim(textOf(again.record->variable) == textOf(record.variable), "the variable is the same");
    claim(textOf(again.record->value) == textOf(record.value), "the value is the same");
    if (record.comment != nullptr) {
        claim(textOf(again.record->comment) == " " + textOf(record.comment), "the comment gains a blank");
    }
    if ((record.contains & VARVAL_HAS_PAIR) != 0) {
        form.claimFound(record, written.line, *again.record);
    }
}

// The line as it is kept: nothing asked, nothing changed, whichever way the record was read; one field asked, one
// changed.
void keepTheRest(Line& form) {
    const Line::Reading kept = form.read(form.line(), GenRegVarVal::ParseKeptLine);
    const GenRegVarValRecord& record = *kept.record;
    const std::string before = Line::ended(form.text());
    for (const GenRegParseLine parse : {GenRegVarVal::ParseKeptLine, GenRegVarVal::ParseLine}) {
        const Line::Reading same = form.read(form.line(), parse);
        const Line::Writing written = form.rewrite(*same.record);
        claim(written.rc == REG_LINE_TOO_LONG ? before.size() >= REG_LINE_SIZE : written.line == before,
              "what is not changed stays");
        // Of a carriage return behind it the cleaning makes a dot, which might be meant.
        if (record.comment != nullptr && std::string(record.comment).ends_with('\r')) {
            break;
        }
    }
    const bool quotes = before.find('"') != std::string::npos;
    const auto value = [](GenRegVarValRecord& wanted, char* word) { wanted.value = word; };
    form.claimOnlyThatChanges(textOf(record.value), value, GenRegVarVal::ParseKeptLine, quotes);
    const auto variable = [](GenRegVarValRecord& wanted, char* word) { wanted.variable = word; };
    form.claimOnlyThatChanges(textOf(record.variable), variable, GenRegVarVal::ParseKeptLine, quotes);
    const auto comment = [](GenRegVarValRecord& wanted, char* word) {
        wanted.comment = word;
        wanted.contains |= VARVAL_HAS_COMMENT;
    };
    if (record.comment != nullptr) {
        form.claimOnlyThatChanges(record.comment, comment, GenRegVarVal::ParseKeptLine, false);
        kept.record->contains = VARVAL_HAS_PAIR;
        const Line::Writing bare = form.rewrite(*kept.record);
        claim(bare.rc == 0 && before.starts_with(Line::ended(bare.line).substr(0, bare.line.find_first_of("\r\n"))),
              "a comment goes, and nothing else");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Line form(bytes, size, false);
    const auto [rc, record] = form.read(form.line());
    claimInside(record->lineText, {record->comment, record->variable, record->value});
    if (rc != 0) {
        claim(rc == REG_NO_EQUAL_SIGN || rc == REG_UNTERMINATED_QUOTE, "a refusal has its reason");
        claim(record->variable == nullptr && record->value == nullptr, "a refused line leaves no field");
        return 0;
    }
    if (record->contains == 0) {
        return 0;
    }
    if ((record->contains & VARVAL_HAS_PAIR) != 0) {
        form.claimFound(*record, form.line(), *record);
        keepTheRest(form);
    }
    writeAndReadAgain(form, *record, "");
    const std::string name = textOf(record->variable);
    if (std::count(name.begin(), name.end(), '"') % 2 == 0) {
        writeAndReadAgain(form, *record, form.text());
    }
    return 0;
}

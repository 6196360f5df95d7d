// Any text as a variable/value line: what is parsed, written (over itself and as a new line) and parsed again is the
// same record, but for the blank that each writing puts before a comment.
//
// Not claimed: a line whose "=" stands inside quotes, written over itself. Its blanks are the value's and the layout's
// at once and so are written twice. The verification of a deferred commit refuses such a change; the file stands.
#include <genreg/GenRegVarVal.h>

#include "SchemaLine.h"

namespace {

using Line = SchemaLine<GenRegVarVal, GenRegVarValRecord>;

void writeAndReadAgain(Line& schema, GenRegVarValRecord& record, const std::string& before) {
    const Line::Writing written = Line::write(record, before);
    if (written.rc != 0) {
        claim(written.rc == REG_LINE_TOO_LONG, "a record that was read can be written");
        return;
    }
    const Line::Reading again = schema.read(written.line);
    claim(again.rc == 0, "what was written can be read");
    claim(again.record->contains == record.contains, "it holds as much");
    claim(textOf(again.record->variable) == textOf(record.variable), "the variable is the same");
    claim(textOf(again.record->value) == textOf(record.value), "the value is the same");
    if (record.comment != nullptr) {
        claim(textOf(again.record->comment) == " " + textOf(record.comment), "the comment gains a blank");
    }
    if ((record.contains & VARVAL_HAS_PAIR) != 0) {
        schema.claimFound(record, written.line, *again.record);
    }
}

// The line as it is kept: nothing asked, nothing changed; one field asked, one changed.
void keepTheRest(Line& schema) {
    const Line::Reading kept = schema.read(schema.line(), GenRegVarVal::ParseKeptLine);
    const GenRegVarValRecord& record = *kept.record;
    schema.claimStays({GenRegVarVal::ParseKeptLine, GenRegVarVal::ParseLine});
    const bool quotes = schema.text().find('"') != std::string::npos;
    const auto value = [](GenRegVarValRecord& wanted, char* word) { wanted.value = word; };
    schema.claimOnlyThatChanges(textOf(record.value), value, GenRegVarVal::ParseKeptLine, quotes);
    const auto variable = [](GenRegVarValRecord& wanted, char* word) { wanted.variable = word; };
    schema.claimOnlyThatChanges(textOf(record.variable), variable, GenRegVarVal::ParseKeptLine, quotes);
    schema.claimOnlyCommentChanges(*kept.record, &GenRegVarValRecord::contains, VARVAL_HAS_PAIR);
}

void searchIt(Line& schema) {
    for (std::string name : schema.namesInSight()) {
        GenRegVarValRecord key = {};
        key.contains = VARVAL_HAS_PAIR;
        key.variable = name.data();
        for (const char* const value : {"", "a"}) {
            key.value = const_cast<char*>(value);
            schema.claimPassedOverRightly(key);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Line continued(bytes, size, true);
    searchIt(continued);
    Line schema(bytes, size, false);
    searchIt(schema);
    const auto [rc, record] = schema.read(schema.line());
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
        schema.claimFound(*record, schema.line(), *record);
        keepTheRest(schema);
    }
    writeAndReadAgain(schema, *record, "");
    const std::string name = textOf(record->variable);
    if (std::count(name.begin(), name.end(), '"') % 2 == 0) {
        writeAndReadAgain(schema, *record, schema.text());
    }
    return 0;
}

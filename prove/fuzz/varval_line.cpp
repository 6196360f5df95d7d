// Any text as a variable/value line: what is parsed, written (over itself and as a new line) and parsed again is the
// same record, but for the blank that each writing puts before a comment.
//
// Not claimed: a line whose "=" stands inside quotes, written over itself. Its blanks are the value's and the layout's
// at once and so are written twice. The verification of a deferred commit refuses such a change; the file stands.
#include <genreg/GenRegVarVal.h>

#include <algorithm>
#include <memory>

#include "Fuzz.h"

namespace {

std::string textOf(const char* text) {
    return text != nullptr ? text : "(none)";
}

void parseAgain(GenRegVarValRecord& record, char* line) {
    const unsigned int rc = GenRegVarVal::FormatLine(&record, line);
    if (rc != 0) {
        claim(rc == REG_LINE_TOO_LONG, "a record that was read can be written");
        return;
    }
    const auto again = std::make_unique<GenRegVarValRecord>();
    claim(GenRegVarVal::ParseLine(again.get(), line) == 0, "what was written can be read");
    claim(again->contains == record.contains, "it holds as much");
    claim(textOf(again->variable) == textOf(record.variable), "the variable is the same");
    claim(textOf(again->value) == textOf(record.value), "the value is the same");
    if (record.comment != nullptr) {
        claim(textOf(again->comment) == " " + textOf(record.comment), "the comment gains a blank");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    // As the engine hands it over: one line, shorter than its buffer.
    std::string text(reinterpret_cast<const char*>(bytes), std::min<std::size_t>(size, REG_LINE_SIZE - 2));
    text = text.substr(0, text.find_first_of(std::string("\n\0", 2)));
    const auto record = std::make_unique<GenRegVarValRecord>();
    const unsigned int rc = GenRegVarVal::ParseLine(record.get(), (text + "\n").c_str());
    if (rc != 0) {
        claim(rc == REG_NO_EQUAL_SIGN || rc == REG_UNTERMINATED_QUOTE, "a refusal has its reason");
        claim(record->variable == nullptr && record->value == nullptr, "a refused line leaves no field");
        return 0;
    }
    if (record->contains == 0) {
        return 0;
    }
    char line[REG_LINE_SIZE] = {};
    parseAgain(*record, line);
    const std::string name = textOf(record->variable);
    if (std::count(name.begin(), name.end(), '"') % 2 == 0) {
        (void)std::snprintf(line, sizeof line, "%s\n", text.c_str());
        parseAgain(*record, line);
    }
    return 0;
}

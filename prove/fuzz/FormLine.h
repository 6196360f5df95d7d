// What the targets of the line forms share: one line as the text engine hands it to a form, and what holds for each.
#pragma once

#include <genreg/GenRegText.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "Fuzz.h"
#include "genreg/text/Lines.h"

inline std::string textOf(const char* text) {
    return text != nullptr ? text : "(none)";
}

template <typename Form, typename Record>
class FormLine {
public:
    struct Reading {
        unsigned int rc;
        std::unique_ptr<Record> record;
    };
    struct Writing {
        unsigned int rc;
        std::string line;  // as it goes to the file
    };

    // The first line of the bytes, of which there are some, its continuations and its newline included, no longer than
    // what is parsed.
    FormLine(const std::uint8_t* bytes, std::size_t size, bool joined) : form_("no file", &rc_) {
        claim(rc_ == 0, "the form is made");
        const std::size_t most = std::min<std::size_t>(size, REG_LINE_SIZE - 1);
        std::size_t end = 0;
        while (end < most && (bytes[end] != '\n' || (joined && end > 0 && bytes[end - 1] == '\\'))) {
            ++end;
        }
        line_.assign(reinterpret_cast<const char*>(bytes), std::min(end + 1, most));
    }

    [[nodiscard]] const std::string& line() const { return line_; }
    // As the form sees it: continuations joined, ending in front of a NUL.
    [[nodiscard]] std::string text() { return lines_.text({line_.data(), line_.size()}); }

    // The line of a file, into memory that holds something else already. The text has just its length, so that a look
    // behind its end is seen.
    [[nodiscard]] Reading read(const std::string& line) {
        const char* const joined = lines_.text({line.data(), line.size()});
        const std::size_t length = std::strlen(joined) + 1;
        const std::unique_ptr<char[]> exact(new char[length]);
        std::memcpy(exact.get(), joined, length);
        auto record = std::make_unique<Record>();
        std::memset(static_cast<void*>(record.get()), 0xa5, sizeof(Record));
        const unsigned int rc = Form::ParseLine(record.get(), exact.get());
        return {rc, std::move(record)};
    }

    // The record, written over the text of a line, or as a new one.
    [[nodiscard]] static Writing write(Record& record, const std::string& before = "") {
        const std::unique_ptr<char[]> buffer(new char[REG_LINE_SIZE]());
        std::memcpy(buffer.get(), before.data(), before.size());
        const unsigned int rc = Form::FormatLine(&record, buffer.get());
        claim(::strnlen(buffer.get(), REG_LINE_SIZE) < REG_LINE_SIZE, "the buffer holds an end");
        std::string line = buffer.get();
        line += line.empty() || line.back() != '\n' ? "\n" : "";
        return {rc, line};
    }

    // A search for the record finds the line, of which `stored` was read.
    void claimFound(Record& record, const std::string& line, Record& stored) const {
        claim(lines_.mayMatch(~0UL, {line.data(), line.size()}, &record), "the line is not passed over");
        claim(Form::MatchRecord(~0UL, &stored, &record) == 1, "what was read of it matches the record");
    }

private:
    unsigned int rc_ = 0;
    Form form_;
    genreg::FunctionTrace trace_{genreg::Function::TextGet};
    GenRegTextLines lines_{form_, trace_};
    std::string line_;
};

// Each text lies in the line buffer of its record and ends there.
template <std::size_t SIZE>
void claimInside(const char (&line)[SIZE], std::initializer_list<const char*> texts) {
    for (const char* const text : texts) {
        const bool inside = text == nullptr || (text >= line && text < line + SIZE);
        claim(inside, "a text lies in its record");
        claim(text == nullptr || std::memchr(text, '\0', static_cast<std::size_t>(line + SIZE - text)) != nullptr,
              "and ends in it");
    }
}

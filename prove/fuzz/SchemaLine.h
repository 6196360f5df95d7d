// What the targets of the line schemas share: one line as the text engine hands it to a schema, and what holds for
// each.
#pragma once

#include <genreg/GenRegText.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "genreg/text/Lines.h"

inline std::string textOf(const char* text) {
    return text != nullptr ? text : "(none)";
}

template <typename Schema, typename Record>
class SchemaLine {
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
    SchemaLine(const std::uint8_t* bytes, std::size_t size, bool joined) : schema_("no file", &rc_) {
        claim(rc_ == 0, "the schema is made");
        (void)(joined ? schema_.setFeature(REG_FEATURE_LINE_CONTINUATION) : 0U);
        const std::size_t most = std::min<std::size_t>(size, REG_LINE_SIZE - 1);
        std::size_t end = 0;
        while (end < most && (bytes[end] != '\n' || (joined && end > 0 && bytes[end - 1] == '\\'))) {
            ++end;
        }
        line_.assign(reinterpret_cast<const char*>(bytes), std::min(end + 1, most));
    }

    [[nodiscard]] const std::string& line() const { return line_; }
    // As the schema sees it: continuations joined, ending in front of a NUL.
    [[nodiscard]] std::string text() { return lines_.text({line_.data(), line_.size()}); }

    // The line of a file, into memory that holds something else already. The text has just its length, so that a look
    // behind its end is seen.
    [[nodiscard]] Reading read(const std::string& line, GenRegParseLine parse = Schema::ParseLine) {
        const char* const joined = lines_.text({line.data(), line.size()});
        const std::size_t length = std::strlen(joined) + 1;
        const std::unique_ptr<char[]> exact(new char[length]);
        std::memcpy(exact.get(), joined, length);
        auto record = std::make_unique<Record>();
        std::memset(static_cast<void*>(record.get()), 0xa5, sizeof(Record));
        const unsigned int rc = parse(record.get(), exact.get());
        return {rc, std::move(record)};
    }

    // The record, written over the text of a line, or as a new one.
    [[nodiscard]] static Writing write(Record& record, const std::string& before = "") {
        const std::unique_ptr<char[]> buffer(new char[REG_LINE_SIZE]());
        std::memcpy(buffer.get(), before.data(), before.size());
        const unsigned int rc = Schema::FormatLine(&record, buffer.get());
        claim(::strnlen(buffer.get(), REG_LINE_SIZE) < REG_LINE_SIZE, "the buffer holds an end");
        std::string line = buffer.get();
        line += line.empty() || line.back() != '\n' ? "\n" : "";
        return {rc, line};
    }

    // A search for the record finds the line, of which `stored` was read.
    void claimFound(Record& record, const std::string& line, Record& stored) const {
        claim(lines_.mayMatch(~0UL, {line.data(), line.size()}, &record), "the line is not passed over");
        claim(Schema::MatchRecord(~0UL, &stored, &record) == 1, "what was read of it matches the record");
    }

    // Searches for the key pass over a line only where they would find nothing in it, nor have to tell that it cannot
    // be parsed.
    void claimPassedOverRightly(Record& key) {
        const Reading reading = read(line_);
        for (const unsigned long mask : {0UL, 1UL, 2UL, 3UL, 4UL, 5UL, 7UL, 15UL, ~0UL}) {
            const bool holds = reading.rc != 0 || Schema::MatchRecord(mask, reading.record.get(), &key) == 1;
            claim(!holds || lines_.mayMatch(mask, {line_.data(), line_.size()}, &key), "the line is not passed over");
        }
    }
    // What the line may be taken to hold at first sight: what stands before its signs, more than that, and less.
    [[nodiscard]] std::vector<std::string> namesInSight() {
        std::vector<std::string> names = {"", "a", "\""};
        for (const char* const signs : {" \t\r\n#=:", "\n#=", "\n#:", "\n"}) {
            std::string name = text();
            name = name.substr(0, name.find_first_of(signs));
            const std::size_t from = std::min(name.find_first_not_of(" \t\r"), name.size());
            const std::string bare = name.substr(from, name.find_last_not_of(" \t\r") + 1 - from);
            names.insert(names.end(), {name, bare, bare + "a", bare + " a", bare.substr(0, bare.size() / 2)});
        }
        return names;
    }

    // The record, which was read from the line and then edited, written over it as KeepLines has it: the new text, and
    // the code. What goes to the file for it reads as that text.
    [[nodiscard]] Writing rewrite(Record& record) {
        std::string buffer = text();
        buffer.resize(REG_LINE_SIZE);
        const unsigned int rc = Schema::RewriteLine(&record, buffer.data());
        buffer.resize(::strnlen(buffer.data(), REG_LINE_SIZE));
        claim(buffer.size() < REG_LINE_SIZE, "the buffer holds an end");
        if (rc == 0) {
            const genreg::TextLine raw = {line_.data(), line_.size()};
            const genreg::LinePatch patch = lines_.patch(raw, buffer.c_str());
            std::string bytes = line_.substr(0, patch.front);
            bytes.append(patch.piece, patch.pieceLength).append(line_, patch.tail);
            const bool fits = bytes.size() < REG_LINE_SIZE;
            claim(!fits || ended(lines_.text({bytes.data(), bytes.size()})) == ended(buffer), "it goes to the file");
            claim(ended(buffer) != ended(text()) || bytes == line_, "a line that stays is not touched");
            claim(line_.ends_with(bytes.substr(bytes.size() - (line_.size() - patch.tail))), "what is behind it stays");
        }
        return {rc, ended(buffer)};
    }

    // The line as it is kept: nothing asked, nothing changed, whichever way the record was read.
    void claimStays(std::initializer_list<GenRegParseLine> parses) {
        const std::string before = ended(text());
        for (const GenRegParseLine parse : parses) {
            const Reading same = read(line_, parse);
            const bool returns = textOf(same.record->comment).ends_with('\r');
            const Writing written = rewrite(*same.record);
            claim(written.rc == REG_LINE_TOO_LONG ? before.size() >= REG_LINE_SIZE : written.line == before,
                  "what is not changed stays");
            // Of a carriage return behind it the cleaning makes a dot, which might be meant.
            if (returns) {
                break;
            }
        }
    }

    // The record of the line as it is kept, with its comment replaced and then left out; `holds` is the member that
    // says what the record has, and then says `bareRecord`.
    template <typename Flags>
    void claimOnlyCommentChanges(Record& record, Flags Record::*holds, Flags bareRecord) {
        if (record.comment == nullptr) {
            return;
        }
        const auto comment = [](Record& wanted, char* word) { wanted.comment = word; };
        claimOnlyThatChanges(record.comment, comment, Schema::ParseKeptLine, false);
        record.*holds = bareRecord;
        const Writing bare = rewrite(record);
        const std::string kept = bare.line.substr(0, bare.line.find_first_of("\r\n"));
        claim(bare.rc == 0 && ended(text()).starts_with(kept), "a comment goes, and nothing else");
    }

    // Replaces one field of the record by a word and writes it over the line: refused where it may be, or read back as
    // asked and every byte of the line but the field's as it was.
    template <typename Edit>
    void claimOnlyThatChanges(const std::string& field, const Edit& edit, GenRegParseLine parse, bool mayBeRefused) {
        std::string word = "77";
        const Reading wanted = read(line_, parse);
        edit(*wanted.record, word.data());
        const Writing written = rewrite(*wanted.record);
        const std::string before = ended(text());
        if (written.rc != 0) {
            const bool tooLong = written.rc == REG_LINE_TOO_LONG && before.size() + word.size() + 1 >= REG_LINE_SIZE;
            claim(mayBeRefused || tooLong, "a word goes into the line");
            return;
        }
        if (Schema::MatchWhole(~0UL, read(line_, parse).record.get(), wanted.record.get()) == 1) {
            claim(written.line == before, "what is there already stays as it is written");  // 77 as 77mm, say
            return;
        }
        const Reading again = read(written.line, parse);
        claim(again.rc == 0 && Schema::MatchWhole(~0UL, again.record.get(), wanted.record.get()) == 1,
              "it is read as asked");
        bool found = false;
        for (std::size_t at = written.line.find(word); at != std::string::npos && !found;
             at = written.line.find(word, at + 1)) {
            found = isAround(before, written.line.substr(0, at), written.line.substr(at + word.size()), field);
        }
        claim(found, "nothing but the field differs");
    }

    // With the newline that the engine adds.
    [[nodiscard]] static std::string ended(std::string line) {
        return line.empty() || line.back() != '\n' ? line + "\n" : line;
    }
    // Without blanks.
    [[nodiscard]] static std::string packed(std::string text) {
        std::erase_if(text, [](char c) { return std::strchr(" \t\r", c) != nullptr && c != '\0'; });
        return text;
    }

private:
    // Whether the line is what stands around the word, and the field between. A word in the place of nothing may need a
    // blank before the comment; a comment has blanks on both sides of its sign.
    static bool isAround(const std::string& line, std::string front, std::string back, const std::string& field) {
        const bool both = line.ends_with(back) && line.size() >= front.size() + back.size();
        back.erase(0, !both && back.starts_with(" #") ? 1 : 0);
        if (!line.starts_with(front) && front.ends_with("# ")) {
            front.pop_back();
        }
        if (!line.starts_with(front) && front.ends_with("#")) {
            front.erase(front.size() - 2, 1);
        }
        return line.starts_with(front) && line.ends_with(back) && line.size() >= front.size() + back.size() &&
               packed(line.substr(front.size(), line.size() - front.size() - back.size())).starts_with(packed(field));
    }

    unsigned int rc_ = 0;
    Schema schema_;
    genreg::FunctionTrace trace_{genreg::Function::TextGet};
    genreg::TextLines lines_{schema_, trace_};
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

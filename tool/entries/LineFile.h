// A text registry of the library for editing: its engine and its form, with slots that keep the bytes of a line.
//
// The library's forms write a line anew as a whole and compare a part of it. Here a line is parsed together with its
// text, a rewritten one keeps everything but what is edited, and two lines are equal only when their bytes are.
#pragma once

#include <genreg/GenRegText.h>

#include <algorithm>
#include <cstring>

#include "base/DiskFiles.h"
#include "base/LockPatience.h"
#include "entries/Entries.h"

namespace tool {

// What a form of lines must tell of itself: Schema and Record of the library, and
//   GenRegParseLine parse          that of lines that are kept
//   bool isEntry(const Record&);
//   Entry describe(const Record&)  all but number and raw
//   void makeKey(Record&)          leaves what finds an entry
template <typename Form>
class LineFile final : public Form::Schema, public EntryFile {
    using Schema = typename Form::Schema;

    // The library's record comes first, so that its own functions take this one.
    struct Record {
        typename Form::Record base;
        const EntryEdit* asked;       // of a record to be written
        const EntryEdit* notYet;      // of a key: only lines that are not yet as this edit asks for
        const std::string* expected;  // of a key: only this line
        EntryEdit* result;
        unsigned int parseCode;
        char raw[REG_LINE_SIZE];
    };

public:
    LineFile(const std::string& path, bool severalAllowed) : LineFile(path, severalAllowed, 0) {}

    GenRegFile& engine() override { return *this; }

    std::vector<Entry> read(const std::string& doing) override {
        check(this->OpenScan(), doing);
        std::vector<Entry> entries;
        const auto record = std::make_unique<Record>();
        unsigned int code = 0;
        for (std::size_t number = 0; (code = this->GetNext(0, nullptr, record.get())) == 0; ++number) {
            if (record->parseCode == 0 && Form::isEntry(record->base)) {
                Entry entry = Form::describe(record->base);
                entry.number = number;
                entry.raw = record->raw;
                entries.push_back(std::move(entry));
            }
        }
        check(code == REG_NO_MORE_RECORDS ? 0 : code, doing);
        check(this->CloseScan(), doing);
        readBytes(entries, doing);
        return entries;
    }

    unsigned int add(unsigned long mask, EntryEdit& edit) override {
        const auto record = asked("", edit);
        return record ? this->Add(mask, record.get()) : static_cast<unsigned int>(REG_LINE_TOO_LONG);
    }

    unsigned int change(const EntryKey& key, const Entry& found, EntryEdit& edit) override {
        const auto keyRecord = keyOf(key, found);
        keyRecord->notYet = key.exact ? nullptr : &edit;
        const auto record = asked(found.raw, edit);
        return record ? this->Change(key.mask, keyRecord.get(), record.get())
                      : static_cast<unsigned int>(REG_LINE_TOO_LONG);
    }

    unsigned int remove(const EntryKey& key, const Entry& found) override {
        return this->Delete(key.mask, keyOf(key, found).get());
    }

private:
    // What the records do not tell: the lines' numbers in the file, and whether a NUL byte hides the rest of one.
    void readBytes(std::vector<Entry>& entries, const std::string& doing) const {
        const std::string bytes = readFile(path_, doing);
        const auto lines = fileLines(bytes, (this->features & REG_FEATURE_LINE_CONTINUATION) != 0);
        for (Entry& entry : entries) {
            // The file may be another one by now.
            const bool known = entry.number < lines.size();
            entry.hidesBytes = known && lines[entry.number].bytes.find('\0') != std::string_view::npos;
            entry.setNumber("line", known ? lines[entry.number].number : entry.number + 1);
        }
    }

    static constexpr unsigned long EVERY_FIELD = ~0UL;

    LineFile(const std::string& path, bool severalAllowed, unsigned int code)
        : Schema(path.c_str(), &code), path_(path) {
        if (code != 0) {
            throw libraryFailure(code, path, "use the file");
        }
        waitPatiently(*this, path);
        // The engine puts into the file's bytes what differs, so that continuations stay.
        (void)this->KeepLines(true);
        this->parseLine = parse;
        this->formatLine = format;
        this->matchRecord = match;
        this->getRecordSize = recordSize;
        this->getMaxRecordSize = largestRecordSize;
        if (severalAllowed) {
            (void)this->setFeature(REG_FEATURE_ALLOW_DUPLICATES);
        }
    }

    void check(unsigned int code, const std::string& doing) const {
        if (code != 0) {
            throw libraryFailure(code, path_, doing);
        }
    }

    static unsigned int parse(void* record, const char* line) {
        auto& entry = *static_cast<Record*>(record);
        entry.asked = entry.notYet = entry.result = nullptr;
        entry.expected = nullptr;
        const std::size_t length = std::min(std::strcspn(line, "\n"), sizeof entry.raw - 1);
        std::memcpy(entry.raw, line, length);
        entry.raw[length] = '\0';
        entry.parseCode = Form::parse(&entry.base, line);
        return entry.parseCode;
    }

    static unsigned int match(unsigned long mask, void* record, void* key) {
        const auto& entry = *static_cast<Record*>(record);
        const auto& wanted = *static_cast<Record*>(key);
        if (mask == EVERY_FIELD) {
            const bool equal =
                wanted.asked != nullptr ? wanted.asked->isAsAsked(entry.raw) : std::strcmp(entry.raw, wanted.raw) == 0;
            return equal ? 1 : 0;
        }
        const bool matches = Form::isEntry(entry.base) && Schema::MatchRecord(mask, record, key) == 1 &&
                             (wanted.expected == nullptr || *wanted.expected == entry.raw) &&
                             (wanted.notYet == nullptr || !wanted.notYet->isAsAsked(entry.raw));
        return matches ? 1 : 0;
    }

    // A line with its newline must be shorter than the buffer.
    static bool mayBeWritten(const std::string& text, const EntryEdit& edit) {
        return text.size() + 2 <= REG_LINE_SIZE && edit.readsAsAsked(text);
    }

    static unsigned int format(void* record, char* line) {
        const auto& wanted = *static_cast<Record*>(record);
        if (wanted.asked == nullptr) {
            return REG_RECORD_REFUSED;
        }
        std::string text = wanted.asked->rewrite(std::string_view(line, std::strcspn(line, "\n")));
        if (!mayBeWritten(text, *wanted.asked)) {
            wanted.result->doesNotFit = true;
            return REG_LINE_TOO_LONG;
        }
        text += '\n';
        std::memcpy(line, text.c_str(), text.size() + 1);
        return 0;
    }

    static unsigned int recordSize(void* /*record*/, unsigned long* size) {
        *size = sizeof(Record);
        return 0;
    }
    static unsigned int largestRecordSize(unsigned long* size) { return recordSize(nullptr, size); }

    // The record of the edited line; null when it cannot be written.
    static std::unique_ptr<Record> asked(const std::string& raw, EntryEdit& edit) {
        const std::string text = edit.rewrite(raw);
        auto record = std::make_unique<Record>();
        if (!mayBeWritten(text, edit) || parse(record.get(), text.c_str()) != 0) {
            edit.doesNotFit = true;
            return nullptr;
        }
        Form::makeKey(record->base);
        record->asked = record->result = &edit;
        return record;
    }

    static std::unique_ptr<Record> keyOf(const EntryKey& key, const Entry& found) {
        auto record = std::make_unique<Record>();
        (void)parse(record.get(), found.raw.c_str());
        Form::makeKey(record->base);
        record->expected = key.exact ? &found.raw : nullptr;
        return record;
    }

    std::string path_;
};

}  // namespace tool

// A text registry of the library for editing: its engine and its schema, with slots that keep the bytes of a line.
//
// The library's schemas write a line anew as a whole and compare a part of it. Here a line is parsed together with its
// text, a rewritten one keeps everything but what is edited, and two lines are equal only when their bytes are.
#pragma once

#include <genreg/GenRegText.h>

#include <algorithm>
#include <cstring>

#include "base/DiskFiles.h"
#include "base/LockPatience.h"
#include "entries/EntrySchema.h"

namespace tool {

// What a schema of lines must tell of itself: Schema and Record of the library, and
//   GenRegParseLine parse          that of lines that are kept
//   bool isEntry(const Record&);
//   Entry describe(const Record&)  all but number and raw
//   void makeKey(Record&)          leaves what finds an entry
template <typename Lines>
class LineRegistry final : public Lines::Schema, public EntryFile {
    using Schema = typename Lines::Schema;

    // The library's record comes first, so that its own functions take this one.
    struct Record {
        typename Lines::Record base;
        EntryMarks marks;
        EntryEdit* result;
        unsigned int parseCode;
        char raw[REG_LINE_SIZE];
    };

public:
    LineRegistry(const std::string& path, bool severalAllowed) : LineRegistry(path, severalAllowed, 0) {}

    std::vector<Entry> read(const std::string& doing) override {
        check(this->OpenScan(), doing);
        std::vector<Entry> entries;
        const auto record = std::make_unique<Record>();
        unsigned int code = 0;
        for (std::size_t number = 0; (code = this->GetNext(0, nullptr, record.get())) == 0; ++number) {
            if (record->parseCode == 0 && Lines::isEntry(record->base)) {
                Entry entry = Lines::describe(record->base);
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
        const auto record = asked(edit.layout, edit);
        return record ? attempt([&] { return this->Add(mask, record.get()); })
                      : static_cast<unsigned int>(REG_LINE_TOO_LONG);
    }

    unsigned int change(const EntryKey& key, const Entry& found, EntryEdit& edit) override {
        const auto keyRecord = keyOf(key, found);
        keyRecord->marks.notYet = key.exact ? nullptr : &edit;
        const auto record = asked(found.raw, edit);
        return record ? attempt([&] { return this->Change(key.mask, keyRecord.get(), record.get()); })
                      : static_cast<unsigned int>(REG_LINE_TOO_LONG);
    }

    unsigned int remove(const EntryKey& key, const Entry& found) override {
        const auto keyRecord = keyOf(key, found);
        return attempt([&] { return this->Delete(key.mask, keyRecord.get()); });
    }

    unsigned int begin() override {
        inBatch_ = true;
        return this->BeginBatch();
    }
    unsigned int commit() override { return this->CommitBatch(); }
    [[nodiscard]] Entry describe(const std::string& raw) const override {
        const auto record = std::make_unique<Record>();
        (void)parse(record.get(), raw.c_str());
        Entry entry = Lines::describe(record->base);
        entry.raw = record->raw;
        return entry;
    }

private:
    // In a batch nobody changes anything meanwhile, so the library's own functions may find the line and compare it,
    // which is quick; where they would refuse, those that go by bytes have the last word.
    template <typename Update>
    unsigned int attempt(Update update) {
        if (inBatch_) {
            this->parseLine = keptParse_;
            this->matchRecord = keptMatch_;
            const unsigned int code = update();
            this->parseLine = parse;
            this->matchRecord = match;
            if (code == 0) {
                return code;
            }
        }
        return update();
    }

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

    LineRegistry(const std::string& path, bool severalAllowed, unsigned int code)
        : Schema(path.c_str(), &code), path_(path) {
        if (code != 0) {
            throw libraryFailure(code, path, "use the file");
        }
        waitPatiently(*this, path);
        // The engine puts into the file's bytes what differs, so that continuations stay.
        (void)this->KeepLines(true);
        keptParse_ = this->parseLine;
        keptMatch_ = this->matchRecord;
        this->parseLine = parse;
        this->formatLine = format;
        this->matchRecord = match;
        this->getRecordSize = recordSize;
        this->getMaxRecordSize = largestRecordSize;
        (void)(severalAllowed ? this->setFeature(REG_FEATURE_ALLOW_DUPLICATES)
                              : this->unsetFeature(REG_FEATURE_ALLOW_DUPLICATES));
    }

    void check(unsigned int code, const std::string& doing) const {
        if (code != 0) {
            throw libraryFailure(code, path_, doing);
        }
    }

    static unsigned int parse(void* record, const char* line) {
        auto& entry = *static_cast<Record*>(record);
        entry.marks = {};
        entry.result = nullptr;
        const std::size_t length = std::min(std::strcspn(line, "\n"), sizeof entry.raw - 1);
        std::memcpy(entry.raw, line, length);
        entry.raw[length] = '\0';
        entry.parseCode = Lines::parse(&entry.base, line);
        return entry.parseCode;
    }

    static unsigned int match(unsigned long mask, void* record, void* key) {
        const auto& entry = *static_cast<Record*>(record);
        const auto& wanted = *static_cast<Record*>(key);
        if (mask == EVERY_FIELD) {
            return wanted.marks.equals(entry.raw, wanted.raw) ? 1 : 0;
        }
        const bool matches = Lines::isEntry(entry.base) && Schema::MatchRecord(mask, record, key) == 1;
        return matches && wanted.marks.finds(entry.raw) ? 1 : 0;
    }

    // A line with its newline must be shorter than the buffer, and say what is asked for. Nothing else is ever written.
    static bool mayBeWritten(const std::string& text, const EntryEdit& edit) {
        const auto record = std::make_unique<typename Lines::Record>();
        return text.size() + 2 <= REG_LINE_SIZE && Lines::parse(record.get(), text.c_str()) == 0 &&
               Lines::isEntry(*record) && edit.isShownBy(Lines::describe(*record));
    }

    static unsigned int format(void* record, char* line) {
        const auto& wanted = *static_cast<Record*>(record);
        const EntryEdit* const edit = wanted.marks.asked;
        if (edit == nullptr) {
            return REG_RECORD_REFUSED;
        }
        const std::string_view standing(line, std::strcspn(line, "\n"));
        std::string text = edit->rewrite(standing.empty() ? edit->layout : standing);
        if (text != wanted.raw && !mayBeWritten(text, *edit)) {  // that one was looked at before
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
        Lines::makeKey(record->base);
        record->marks.asked = record->result = &edit;
        return record;
    }

    static std::unique_ptr<Record> keyOf(const EntryKey& key, const Entry& found) {
        auto record = std::make_unique<Record>();
        (void)parse(record.get(), found.raw.c_str());
        Lines::makeKey(record->base);
        record->marks.expected = key.exact ? &found.raw : nullptr;
        return record;
    }

    std::string path_;
    bool inBatch_ = false;
    GenRegParseLine keptParse_ = nullptr;
    GenRegMatchRecord keptMatch_ = nullptr;
};

template <typename Lines>
std::optional<Entry> describeLine(const std::string& text) {
    const auto record = std::make_unique<typename Lines::Record>();
    const bool isEntry =
        text.size() + 1 < REG_LINE_SIZE && Lines::parse(record.get(), text.c_str()) == 0 && Lines::isEntry(*record);
    return isEntry ? std::optional(Lines::describe(*record)) : std::nullopt;
}

template <typename Lines>
std::unique_ptr<EntryFile> openLines(const std::string& path, bool severalAllowed) {
    return std::make_unique<LineRegistry<Lines>>(path, severalAllowed);
}

}  // namespace tool

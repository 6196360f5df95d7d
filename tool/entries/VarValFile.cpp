#include "entries/VarValFile.h"

#include <cstring>
#include <memory>

#include "base/Failure.h"
#include "base/LockPatience.h"
#include "entries/EntryLine.h"

namespace tool {
namespace {

constexpr unsigned long EVERY_FIELD = ~0UL;

unsigned int parse(void* record, const char* line) {
    auto& entry = *static_cast<VarValEntryRecord*>(record);
    entry.edit = nullptr;
    entry.notYet = nullptr;
    std::strncpy(entry.raw, line, sizeof entry.raw - 1);
    entry.raw[sizeof entry.raw - 1] = '\0';
    entry.parseCode = GenRegVarVal::ParseKeptLine(&entry.base, line);
    return entry.parseCode;
}

std::optional<std::string> commentOf(const GenRegVarValRecord& record) {
    return shownComment((record.contains & VARVAL_HAS_COMMENT) != 0 ? record.comment : nullptr);
}

// No words are no comment.
bool hasComment(const GenRegVarValRecord& record, const std::string& wanted) {
    return commentOf(record) == (wanted.empty() ? std::nullopt : std::optional(wanted));
}

bool isAsAsked(const VarValEntryRecord& entry, const VarValEdit& edit) {
    return entry.base.value == edit.value && (!edit.comment || hasComment(entry.base, *edit.comment));
}

// A line that got the new value from somebody else must reach the writing, which refuses it.
bool mayStay(const VarValEntryRecord& entry, const VarValEdit& edit) {
    return edit.written || !edit.expected || entry.base.value == *edit.expected;
}

unsigned int match(unsigned long mask, void* record, void* key) {
    const auto& wanted = *static_cast<VarValEntryRecord*>(key);
    if (wanted.edit == nullptr && wanted.notYet == nullptr) {
        return GenRegVarVal::MatchWhole(mask, record, key);
    }
    const auto& entry = *static_cast<VarValEntryRecord*>(record);
    const bool matches = GenRegVarVal::MatchRecord(mask, record, key) == 1;
    if (mask != EVERY_FIELD) {
        return matches && (wanted.notYet == nullptr || !isAsAsked(entry, *wanted.notYet)) ? 1 : 0;
    }
    return matches && isAsAsked(entry, *wanted.edit) && mayStay(entry, *wanted.edit) ? 1 : 0;
}

// One blank stands before the comment, as in a line that the form writes. False where there is no room for it.
bool settleComment(char* line) {
    const char* const sign = std::strchr(line, '#');
    if (sign == nullptr) {
        return true;
    }
    const std::string comment = sign;
    const std::string_view before = std::string_view(line).substr(0, static_cast<std::size_t>(sign - line));
    const std::string text = std::string(before.substr(0, before.find_last_not_of(" \t\r") + 1)) + " " + comment;
    if (text.size() >= REG_LINE_SIZE) {
        return false;
    }
    std::memcpy(line, text.c_str(), text.size() + 1);
    return true;
}

unsigned int format(void* record, char* line) {
    VarValEdit* edit = static_cast<VarValEntryRecord*>(record)->edit;
    if (edit == nullptr) {
        return REG_RECORD_REFUSED;
    }
    const bool fresh = *line == '\0';
    if (fresh) {
        std::memcpy(line, edit->layout.c_str(), edit->layout.size() + 1);
    }
    GenRegVarValRecord wanted{};
    if (GenRegVarVal::ParseKeptLine(&wanted, line) != 0 || (wanted.contains & VARVAL_HAS_PAIR) == 0) {
        return REG_NO_EQUAL_SIGN;
    }
    if (!fresh && edit->expected && wanted.value != *edit->expected) {
        edit->changedMeanwhile = true;
        return REG_RECORD_REFUSED;
    }
    wanted.variable = edit->variable.data();
    wanted.value = edit->value.data();
    std::string comment = " " + edit->comment.value_or("");
    if (edit->comment && !hasComment(wanted, *edit->comment)) {
        wanted.contains = VARVAL_HAS_PAIR | (edit->comment->empty() ? 0 : VARVAL_HAS_COMMENT);
        wanted.comment = comment.data();
    }
    if (GenRegVarVal::RewriteLine(&wanted, line) != 0 || !settleComment(line)) {
        edit->doesNotFit = true;
        return REG_LINE_TOO_LONG;
    }
    edit->written = true;
    return 0;
}

unsigned int recordSize(void* /*record*/, unsigned long* size) {
    *size = sizeof(VarValEntryRecord);
    return 0;
}

unsigned int largestRecordSize(unsigned long* size) {
    return recordSize(nullptr, size);
}

std::unique_ptr<VarValEntryRecord> recordOf(std::string& variable, std::string& value, VarValEdit* edit) {
    auto record = std::make_unique<VarValEntryRecord>();
    record->base.contains = VARVAL_HAS_PAIR;
    record->base.variable = variable.data();
    record->base.value = value.data();
    record->edit = edit;
    return record;
}

void take(VarValContents& contents, const VarValEntryRecord& record) {
    ++contents.lines;
    if (record.parseCode != 0) {
        ++contents.others;
        return;
    }
    if ((record.base.contains & VARVAL_HAS_PAIR) == 0) {
        ++(record.base.contains == 0 ? contents.blanks : contents.comments);
        return;
    }
    VarValEntry entry;
    entry.line = contents.lines;
    entry.ended = std::strchr(record.raw, '\n') != nullptr;
    entry.variable = record.base.variable;
    entry.value = record.base.value;
    entry.comment = commentOf(record.base);
    entry.raw = record.raw;
    contents.pairs.push_back(std::move(entry));
}

}  // namespace

VarValFile::VarValFile(const std::string& path, bool severalAllowed) : VarValFile(path, severalAllowed, 0) {}

VarValFile::VarValFile(const std::string& path, bool severalAllowed, unsigned int code)
    : GenRegVarVal(path.c_str(), &code), path_(path) {
    if (code != 0) {
        throw libraryFailure(code, path, "use the file");
    }
    waitPatiently(*this, path);
    (void)KeepLines(true);
    parseLine = parse;
    formatLine = format;
    matchRecord = match;
    getRecordSize = recordSize;
    getMaxRecordSize = largestRecordSize;
    if (!severalAllowed) {
        (void)unsetFeature(REG_FEATURE_ALLOW_DUPLICATES);
    }
}

VarValContents VarValFile::read(const std::string& doing) {
    unsigned int code = OpenScan();
    if (code != 0) {
        throw libraryFailure(code, path_, doing);
    }
    VarValContents contents;
    const auto record = std::make_unique<VarValEntryRecord>();
    while ((code = GetNext(0, nullptr, record.get())) == 0) {
        take(contents, *record);
    }
    if (code != REG_NO_MORE_RECORDS) {
        throw libraryFailure(code, path_, doing);
    }
    code = CloseScan();
    if (code != 0) {
        throw libraryFailure(code, path_, doing);
    }
    return contents;
}

unsigned int VarValFile::add(VarValEdit& edit) {
    return Add(VARVAL_MATCH_VARIABLE, recordOf(edit.variable, edit.value, &edit).get());
}

unsigned int VarValFile::change(unsigned long mask, const std::string& key, VarValEdit& edit) {
    std::string value = key;
    const auto keyRecord = recordOf(edit.variable, value, nullptr);
    keyRecord->notYet = isFeatureSet(REG_FEATURE_ALLOW_DUPLICATES) ? &edit : nullptr;
    return Change(mask, keyRecord.get(), recordOf(edit.variable, edit.value, &edit).get());
}

unsigned int VarValFile::remove(unsigned long mask, const std::string& variable, const std::string& key) {
    std::string name = variable;
    std::string value = key;
    return Delete(mask, recordOf(name, value, nullptr).get());
}

}  // namespace tool

#include "VarValFile.h"

#include <cstring>
#include <memory>

#include "Failure.h"

namespace tool {
namespace {

constexpr unsigned long EVERY_FIELD = ~0UL;

unsigned int parse(void* record, const char* line) {
    auto& entry = *static_cast<VarValEntryRecord*>(record);
    entry.edit = nullptr;
    entry.notYet = nullptr;
    std::strncpy(entry.raw, line, sizeof entry.raw - 1);
    entry.raw[sizeof entry.raw - 1] = '\0';
    entry.parseCode = GenRegVarVal::ParseLine(&entry.base, line);
    return entry.parseCode;
}

bool sameComment(const VarValEntryRecord& a, const VarValEntryRecord& b) {
    const auto partsOfA = takeApart(a.raw);
    const auto partsOfB = takeApart(b.raw);
    return partsOfA && partsOfB && partsOfA->comment == partsOfB->comment;
}

bool isAsAsked(const VarValEntryRecord& entry, const VarValEdit& edit) {
    if (entry.base.value != edit.value) {
        return false;
    }
    if (!edit.comment) {
        return true;
    }
    const auto parts = takeApart(entry.raw);
    const auto shown = parts ? parts->shownComment() : std::nullopt;
    return edit.comment->empty() ? !shown : shown == edit.comment;
}

// A line that got the new value from somebody else must reach the writing, which refuses it.
bool mayStay(const VarValEntryRecord& entry, const VarValEdit& edit) {
    return edit.written || !edit.expected || entry.base.value == *edit.expected;
}

unsigned int match(unsigned long mask, void* record, void* key) {
    if (GenRegVarVal::MatchRecord(mask, record, key) != 1) {
        return 0;
    }
    const auto& entry = *static_cast<VarValEntryRecord*>(record);
    const auto& wanted = *static_cast<VarValEntryRecord*>(key);
    if (mask != EVERY_FIELD) {
        return wanted.notYet == nullptr || !isAsAsked(entry, *wanted.notYet) ? 1 : 0;
    }
    const bool equal = wanted.edit != nullptr ? isAsAsked(entry, *wanted.edit) && mayStay(entry, *wanted.edit)
                                              : sameComment(entry, wanted);
    return equal ? 1 : 0;
}

// Whether the line, once written, is read as asked for and the rest of it as before.
bool readsAsAsked(const std::string& text, const VarValEdit& edit, const VarValLine& line) {
    GenRegVarValRecord record{};
    const auto parts = takeApart(text);
    return GenRegVarVal::ParseLine(&record, text.c_str()) == 0 && (record.contains & VARVAL_HAS_PAIR) != 0 &&
           record.variable == edit.variable && record.value == edit.value && parts && parts->comment == line.comment;
}

unsigned int format(void* record, char* line) {
    VarValEdit* edit = static_cast<VarValEntryRecord*>(record)->edit;
    if (edit == nullptr) {
        return REG_RECORD_REFUSED;
    }
    VarValLine parts = edit->layout;
    if (*line != '\0') {
        const auto old = takeApart(line);
        if (!old) {
            return REG_NO_EQUAL_SIGN;
        }
        parts = *old;
        if (edit->expected && parts.value != *edit->expected) {
            edit->changedMeanwhile = true;
            return REG_RECORD_REFUSED;
        }
    } else {
        parts.variable = edit->variable;
    }
    parts.value = edit->value;
    if (edit->comment) {
        parts.setComment(*edit->comment);
    }
    const std::string text = parts.text();
    if (text.size() >= REG_LINE_SIZE || !readsAsAsked(text, *edit, parts)) {
        edit->doesNotFit = true;
        return REG_LINE_TOO_LONG;
    }
    std::memcpy(line, text.c_str(), text.size() + 1);
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
    entry.parts = takeApart(record.raw).value_or(VarValLine{});
    contents.pairs.push_back(std::move(entry));
}

}  // namespace

VarValFile::VarValFile(const std::string& path, bool severalAllowed) : VarValFile(path, severalAllowed, 0) {}

VarValFile::VarValFile(const std::string& path, bool severalAllowed, unsigned int code)
    : GenRegVarVal(path.c_str(), &code), path_(path) {
    if (code != 0) {
        throw libraryFailure(code, path, "use the file");
    }
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

#include "entries/BinVarFile.h"

#include <algorithm>
#include <cstring>

#include "base/LockPatience.h"
#include "records/RegistryBytes.h"

namespace tool {
namespace {

constexpr unsigned long EVERY_FIELD = ~0UL;
constexpr std::size_t IMAGE_SIZE = sizeof(GenRegBinVarValRecord);

// The library's record comes first, so that its own functions take this one.
struct Record {
    GenRegBinVarValRecord base;
    const EntryEdit* asked;       // of a record to be written
    const EntryEdit* notYet;      // of a key: only records that are not yet as this edit asks for
    const std::string* expected;  // of a key: only this record

    [[nodiscard]] std::string_view raw() const { return {reinterpret_cast<const char*>(&base), sizeof base}; }
};

GenRegBinVarValRecord recordOf(std::string_view bytes) {
    GenRegBinVarValRecord record{};
    (void)bytes.copy(reinterpret_cast<char*>(&record), sizeof record);
    return record;
}

// A text from a file may lack its terminator.
std::string textOf(const char (&field)[BINVAR_TEXT_SIZE]) {
    return {field, ::strnlen(field, sizeof field)};
}

void setText(char (&field)[BINVAR_TEXT_SIZE], const std::string& text) {
    if (textOf(field) != text) {
        std::memset(field, 0, sizeof field);
        std::memcpy(field, text.data(), std::min(text.size(), sizeof field - 1));
    }
}

Record asRecord(std::string_view bytes) {
    return {recordOf(bytes), nullptr, nullptr, nullptr};
}

unsigned int match(unsigned long mask, void* record, void* key) {
    const auto& entry = *static_cast<Record*>(record);
    const auto* const wanted = static_cast<Record*>(key);
    if (wanted == nullptr) {
        return 1;  // a scan of everything
    }
    if (mask == EVERY_FIELD) {
        const bool equal =
            wanted->asked != nullptr ? wanted->asked->isAsAsked(entry.raw()) : entry.raw() == wanted->raw();
        return equal ? 1 : 0;
    }
    const bool matches = GenRegBinVarVal::MatchRecord(mask, record, key) == 1 &&
                         (wanted->expected == nullptr || *wanted->expected == entry.raw()) &&
                         (wanted->notYet == nullptr || !wanted->notYet->isAsAsked(entry.raw()));
    return matches ? 1 : 0;
}

unsigned int checkImage(const void* /*image*/, unsigned long length) {
    return length == IMAGE_SIZE ? 0U : static_cast<unsigned int>(REG_RECORD_SIZE_REFUSED);
}

unsigned int unpack(void** buffer) {
    auto& record = *static_cast<Record*>(*buffer);
    record.asked = record.notYet = nullptr;
    record.expected = nullptr;
    return 0;
}

unsigned int pack(void** buffer, void* previousImage) {
    auto& record = *static_cast<Record*>(*buffer);
    if (record.asked != nullptr && previousImage != nullptr) {
        const std::string_view previous(static_cast<const char*>(previousImage), IMAGE_SIZE);
        record.base = recordOf(record.asked->rewrite(previous));
    }
    return 0;
}

bool packsAsItWas(const void* /*image*/, unsigned long /*length*/) {
    return true;
}

unsigned int packedSize(void* /*packed*/, unsigned long* size) {
    *size = IMAGE_SIZE;
    return 0;
}

unsigned int recordSize(void* /*record*/, unsigned long* size) {
    *size = sizeof(Record);
    return 0;
}

unsigned int largestRecordSize(unsigned long* size) {
    return recordSize(nullptr, size);
}

Record keyOf(const EntryKey& key, const Entry& found) {
    Record record = asRecord(found.raw);
    record.expected = key.exact ? &found.raw : nullptr;
    return record;
}

Record askedRecord(std::string_view bytes, const EntryEdit& edit) {
    Record record = asRecord(edit.rewrite(bytes));
    record.asked = &edit;
    return record;
}

}  // namespace

std::string BinVar::rewrite(std::string_view record) const {
    GenRegBinVarValRecord edited = recordOf(record);
    setText(edited.variable, name);
    edited.value = value;
    if (comment) {
        setText(edited.comment, *comment);
    }
    return {reinterpret_cast<const char*>(&edited), sizeof edited};
}

std::string binVarLines(std::string_view bytes) {
    std::string lines;
    for (const RegistryPart& part : takeApart(bytes, false).parts) {
        if (!part.framed || !part.damage.empty()) {
            continue;
        }
        const GenRegBinVarValRecord record = recordOf(part.payload);
        const std::string comment = textOf(record.comment);
        lines += textOf(record.variable) + " = " + std::to_string(record.value);
        lines += (comment.empty() ? "" : " # ") + comment + "\n";
    }
    return lines;
}

BinVarFile::BinVarFile(const std::string& path, bool severalAllowed) : BinVarFile(path, severalAllowed, 0) {}

BinVarFile::BinVarFile(const std::string& path, bool severalAllowed, unsigned int code)
    : GenRegBinVarVal(path.c_str(), &code), path_(path) {
    check(code, "use the file");
    waitPatiently(*this, path);
    matchRecord = match;
    packRecord = pack;
    unpackRecord = unpack;
    getPackedRecordSize = packedSize;
    getRecordSize = recordSize;
    getMaxRecordSize = largestRecordSize;
    useShortcuts(checkImage, nullptr, packsAsItWas);
    features |= REG_FEATURE_PACKED | layoutFeatures(path);
    if (!severalAllowed) {
        (void)unsetFeature(REG_FEATURE_ALLOW_DUPLICATES);
    }
}

void BinVarFile::check(unsigned int code, const std::string& doing) const {
    if (code != 0) {
        throw libraryFailure(code, path_, doing);
    }
}

std::vector<Entry> BinVarFile::read(const std::string& doing) {
    check(OpenScan(), doing);
    std::vector<Entry> entries;
    Record record{};
    unsigned int code = 0;
    while ((code = GetNext(0, nullptr, &record)) == 0) {
        Entry entry;
        entry.raw = record.raw();
        entry.name = textOf(record.base.variable);
        entry.value = std::to_string(record.base.value);
        const std::string comment = textOf(record.base.comment);
        entry.cells = {cell(entry.name), entry.value, cell(comment)};
        putText(entry.members, "name", entry.name);
        entry.members["value"] = record.base.value;
        putText(entry.members, "comment", comment);
        entry.setNumber("record", entries.size() + 1);
        entries.push_back(std::move(entry));
    }
    check(code == REG_NO_MORE_RECORDS ? 0 : code, doing);
    check(CloseScan(), doing);
    return entries;
}

unsigned int BinVarFile::add(unsigned long mask, EntryEdit& edit) {
    Record record = askedRecord({}, edit);
    return Add(mask, &record);
}

unsigned int BinVarFile::change(const EntryKey& key, const Entry& found, EntryEdit& edit) {
    Record keyRecord = keyOf(key, found);
    keyRecord.notYet = key.exact ? nullptr : &edit;
    Record record = askedRecord(found.raw, edit);
    return Change(key.mask, &keyRecord, &record);
}

unsigned int BinVarFile::remove(const EntryKey& key, const Entry& found) {
    Record record = keyOf(key, found);
    return Delete(key.mask, &record);
}

}  // namespace tool

#include "entries/BinVarRegistry.h"

#include <algorithm>
#include <cstring>

#include "base/LockPatience.h"
#include "records/Salvage.h"

namespace tool {
namespace {

constexpr unsigned long EVERY_FIELD = ~0UL;
constexpr std::size_t IMAGE_SIZE = sizeof(GenRegBinVarValRecord);

// The library's record comes first, so that its own functions take this one.
struct Record {
    GenRegBinVarValRecord base;
    EntryMarks marks;

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
    return {recordOf(bytes), {}};
}

unsigned int match(unsigned long mask, void* record, void* key) {
    const auto& entry = *static_cast<Record*>(record);
    const auto* const wanted = static_cast<Record*>(key);
    if (wanted == nullptr) {
        return 1;  // a scan of everything
    }
    if (mask == EVERY_FIELD) {
        return wanted->marks.equals(entry.raw(), wanted->raw()) ? 1 : 0;
    }
    return GenRegBinVarVal::MatchRecord(mask, record, key) == 1 && wanted->marks.finds(entry.raw()) ? 1 : 0;
}

unsigned int checkImage(const void* /*image*/, unsigned long length) {
    return length == IMAGE_SIZE ? 0U : static_cast<unsigned int>(REG_RECORD_SIZE_REFUSED);
}

unsigned int unpack(void** buffer) {
    static_cast<Record*>(*buffer)->marks = {};
    return 0;
}

unsigned int pack(void** buffer, void* previousImage) {
    auto& record = *static_cast<Record*>(*buffer);
    if (record.marks.asked != nullptr && previousImage != nullptr) {
        const std::string_view previous(static_cast<const char*>(previousImage), IMAGE_SIZE);
        record.base = recordOf(record.marks.asked->rewrite(previous));
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
    record.marks.expected = key.exact ? &found.raw : nullptr;
    return record;
}

Record askedRecord(std::string_view bytes, const EntryEdit& edit) {
    Record record = asRecord(edit.rewrite(bytes));
    record.marks.asked = &edit;
    return record;
}

}  // namespace

std::string BinVar::rewrite(std::string_view record) const {
    GenRegBinVarValRecord edited = recordOf(record);
    setText(edited.variable, name);
    edited.value = value.value_or(edited.value);
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

Entry describeVariable(const GenRegBinVarValRecord& record) {
    Entry entry;
    entry.name = textOf(record.variable);
    entry.value = std::to_string(record.value);
    const std::string comment = textOf(record.comment);
    entry.cells = {cell(entry.name), entry.value, cell(comment)};
    putText(entry.members, "name", entry.name);
    entry.members["value"] = record.value;
    putText(entry.members, "comment", comment);
    return entry;
}

BinVarRegistry::BinVarRegistry(const std::string& path, bool severalAllowed)
    : BinVarRegistry(path, severalAllowed, 0) {}

BinVarRegistry::BinVarRegistry(const std::string& path, bool severalAllowed, unsigned int code)
    : GenRegBinVarVal(path.c_str(), &code), path_(path) {
    check(code, "use the file");
    waitPatiently(*this, path);
    features |= layoutFeatures(path);
    if (!severalAllowed) {
        (void)unsetFeature(REG_FEATURE_ALLOW_DUPLICATES);
    }
}

// In a batch nobody changes anything meanwhile, and the library's own functions find the record, which is quick.
void BinVarRegistry::useOwnSlots() {
    if (inBatch_ || matchRecord == match) {
        return;
    }
    matchRecord = match;
    packRecord = pack;
    unpackRecord = unpack;
    getPackedRecordSize = packedSize;
    getRecordSize = recordSize;
    getMaxRecordSize = largestRecordSize;
    useShortcuts(checkImage, nullptr, packsAsItWas);
    features |= REG_FEATURE_PACKED;
}

unsigned int BinVarRegistry::begin() {
    inBatch_ = true;
    return BeginBatch();
}

void BinVarRegistry::check(unsigned int code, const std::string& doing) const {
    if (code != 0) {
        throw libraryFailure(code, path_, doing);
    }
}

Entry BinVarRegistry::describe(const std::string& raw) const {
    Entry entry = describeVariable(recordOf(raw));
    entry.raw = raw;
    return entry;
}

std::vector<Entry> BinVarRegistry::read(const std::string& doing) {
    useOwnSlots();
    check(OpenScan(), doing);
    std::vector<Entry> entries;
    Record record{};
    unsigned int code = 0;
    while ((code = GetNext(0, nullptr, &record)) == 0) {
        Entry entry = describe(std::string(record.raw()));
        entry.setNumber("record", entries.size() + 1);
        entries.push_back(std::move(entry));
    }
    check(code == REG_NO_MORE_RECORDS ? 0 : code, doing);
    check(CloseScan(), doing);
    return entries;
}

unsigned int BinVarRegistry::add(unsigned long mask, EntryEdit& edit) {
    useOwnSlots();
    Record record = askedRecord({}, edit);
    return Add(mask, &record);
}

unsigned int BinVarRegistry::change(const EntryKey& key, const Entry& found, EntryEdit& edit) {
    useOwnSlots();
    Record keyRecord = keyOf(key, found);
    keyRecord.marks.notYet = key.exact ? nullptr : &edit;
    Record record = askedRecord(found.raw, edit);
    return Change(key.mask, &keyRecord, &record);
}

unsigned int BinVarRegistry::remove(const EntryKey& key, const Entry& found) {
    useOwnSlots();
    Record record = keyOf(key, found);
    return Delete(key.mask, &record);
}

}  // namespace tool

#include "RecordDiff.h"

#include <fmt/core.h>
#include <genreg/GlobalReg.h>
#include <genreg/GlobalRegFields.h>
#include <osse/Memory.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "RecordFields.h"
#include "RegistryBytes.h"
#include "Text.h"

namespace tool {
namespace {

constexpr std::size_t LENGTH_SIZE = 4;
constexpr std::size_t MASKS_AT = 4;
constexpr std::size_t ITEMS_AT = 20;
constexpr std::size_t ITEM_LENGTH_SIZE = 2;
constexpr unsigned long ITEMLESS_BIT = 1UL << 63U;

template <typename Number>
Number numberAt(std::string_view bytes, std::size_t at) {
    Number number{};
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

// The image must have passed the library's check.
GlobalRegRecord unpacked(std::string_view image) {
    struct Free {
        void operator()(void* block) const noexcept { (void)ossMemFree(block); }
    };
    std::unique_ptr<void, Free> block(ossMemAlloc(std::max(image.size(), sizeof(GlobalRegRecord))));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(block.get(), image.data(), image.size());
    void* buffer = block.release();
    const unsigned int code = GlobalReg::UnpackRecord(&buffer);
    block.reset(buffer);
    if (code != 0) {
        throw libraryFailure(code, "", "read a record");
    }
    return *static_cast<const GlobalRegRecord*>(block.get());
}

std::map<unsigned long, std::string> laterItems(std::string_view image, unsigned long known) {
    std::map<unsigned long, std::string> items;
    std::size_t at = ITEMS_AT;
    for (unsigned long bits = numberAt<unsigned long>(image, MASKS_AT) & ~ITEMLESS_BIT; bits != 0; bits &= bits - 1) {
        const unsigned long bit = bits & -bits;
        const std::size_t length = numberAt<unsigned short>(image, at);
        if ((known & bit) == 0) {
            items[bit] = image.substr(at + ITEM_LENGTH_SIZE, length);
        }
        at += ITEM_LENGTH_SIZE + length;
    }
    return items;
}

void takeFrame(RecordFile& file, std::size_t offset, std::string_view image) {
    unsigned long damage = 0;
    const unsigned int code = globalRegCheckImage(image.data(), image.size(), &damage);
    const std::size_t at = offset + LENGTH_SIZE + damage;
    if (code == REG_UNKNOWN_RECORD_TYPE) {
        file.unknown.push_back(
            {at, offset, code, fmt::format("its record type is {}", numberAt<unsigned int>(image, 0))});
    } else if (code != 0) {
        file.damaged.push_back({at, offset, code, "a length does not fit the record"});
    } else {
        const GlobalRegRecord record = unpacked(image);
        file.records.push_back({offset, record, laterItems(image, kindOf(record.recordType).known)});
    }
}

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return text;
}

struct FieldChange {
    std::string name;
    std::string before;  // cells
    std::string after;
    Json values;  // "old", "new"
};

struct RecordChange {
    const FoundRecord* before;  // null: inserted
    const FoundRecord* after;   // null: removed
    const FoundRecord& shown;   // the one that is there, the new one of two
    std::vector<FieldChange> fields;
};

// A value that is absent is null.
void putValue(Json& values, const char* key, const GlobalRegRecord& record, const GlobalRegField& field) {
    if (has(record, field)) {
        putField(values, key, record, field);
    } else {
        values[key] = nullptr;
    }
}

std::vector<FieldChange> changedFields(const FoundRecord& before, const FoundRecord& after) {
    std::vector<FieldChange> changes;
    for (const GlobalRegField& field : kindOf(before.record.recordType).fields) {
        if (has(before.record, field) == has(after.record, field) &&
            sameValues(before.record, after.record, field.bit)) {
            continue;
        }
        FieldChange change{field.name, valueCell(before.record, field), valueCell(after.record, field), {}};
        putValue(change.values, "old", before.record, field);
        putValue(change.values, "new", after.record, field);
        changes.push_back(std::move(change));
    }
    std::map<unsigned long, std::string> bits = before.later;
    bits.insert(after.later.begin(), after.later.end());
    for (const auto& [bit, ignored] : bits) {
        const auto itemOf = [bit = bit](const FoundRecord& found) -> std::optional<std::string> {
            const auto item = found.later.find(bit);
            return item == found.later.end() ? std::nullopt : std::optional(hex(item->second));
        };
        const auto old = itemOf(before);
        const auto now = itemOf(after);
        if (old != now) {
            changes.push_back({fmt::format("field {:#x}", bit),
                               old.value_or(std::string(ABSENT)),
                               now.value_or(std::string(ABSENT)),
                               {{"old", old ? Json(*old) : Json(nullptr)}, {"new", now ? Json(*now) : Json(nullptr)}}});
        }
    }
    return changes;
}

std::string keyOf(const FoundRecord& found) {
    const RecordKind& kind = kindOf(found.record.recordType);
    std::string key(kind.name);
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) != 0) {
            key += '\0';
            key += valueText(found.record, field).value_or("");
        }
    }
    return key;
}

// Pairs the records of a key in their order.
std::vector<RecordChange> compareRecords(const RecordFile& before, const RecordFile& after) {
    std::map<std::string, std::vector<const FoundRecord*>> waiting;
    std::for_each(after.records.rbegin(), after.records.rend(),
                  [&](const FoundRecord& found) { waiting[keyOf(found)].push_back(&found); });
    std::vector<RecordChange> changes;
    for (const FoundRecord& old : before.records) {
        auto& candidates = waiting[keyOf(old)];
        if (candidates.empty()) {
            changes.push_back({&old, nullptr, old, {}});
            continue;
        }
        const FoundRecord& now = *candidates.back();
        RecordChange change{&old, &now, now, changedFields(old, now)};
        candidates.pop_back();
        if (!change.fields.empty()) {
            changes.push_back(std::move(change));
        }
    }
    for (const FoundRecord& found : after.records) {
        const auto& candidates = waiting[keyOf(found)];
        if (std::find(candidates.begin(), candidates.end(), &found) != candidates.end()) {
            changes.push_back({nullptr, &found, found, {}});
        }
    }
    return changes;
}

void printWhole(Output& output, const FoundRecord& found) {
    const RecordKind& kind = kindOf(found.record.recordType);
    for (const GlobalRegField& field : kind.fields) {
        if (has(found.record, field) && (kind.keyFields & field.bit) == 0) {
            output.line(fmt::format("    {} = {}", field.name, valueCell(found.record, field)));
        }
    }
    for (const auto& [bit, item] : found.later) {
        output.line(fmt::format("    field {:#x} = {}", bit, hex(item)));
    }
}

void print(Output& output, const RecordChange& change) {
    const bool isChange = change.before != nullptr && change.after != nullptr;
    const FoundRecord& shown = change.shown;
    const std::string_view color = isChange ? "\x1b[33m" : change.before != nullptr ? "\x1b[31m" : "\x1b[32m";
    const char sign = isChange ? '~' : change.before != nullptr ? '-' : '+';
    output.line(fmt::format("{}{} {}{}", output.style.color ? color : "", sign, keyText(shown.record),
                            output.style.color ? "\x1b[0m" : ""));
    for (const FieldChange& field : change.fields) {
        output.line(fmt::format("    {}: {} -> {}", field.name, field.before, field.after));
    }
    if (!isChange) {
        printWhole(output, shown);
    }
}

Json objectOf(const RecordChange& change) {
    const FoundRecord& shown = change.shown;
    if (change.before == nullptr || change.after == nullptr) {
        Json object{{"op", change.before == nullptr ? "insert" : "remove"}};
        object.update(recordObject(shown.record));
        return object;
    }
    Json object{{"op", "change"}};
    object.update(recordObject(shown.record, kindOf(shown.record.recordType).keyFields));
    object["changes"] = Json::array();
    for (const FieldChange& field : change.fields) {
        Json entry{{"field", field.name}};
        entry.update(field.values);
        object["changes"].push_back(std::move(entry));
    }
    return object;
}

}  // namespace

bool isBinary(std::string_view bytes) {
    // A checksum header ends within so many bytes.
    constexpr std::size_t LONGEST_START = 12;
    const std::size_t null = bytes.find('\0');
    return null < LENGTH_SIZE || (null <= LONGEST_START && bytes.substr(0, null).find('\n') == std::string_view::npos);
}

std::vector<BadFrame> RecordFile::bad(bool unknownToo) const {
    std::vector<BadFrame> all = header;
    all.insert(all.end(), damaged.begin(), damaged.end());
    if (unknownToo) {
        all.insert(all.end(), unknown.begin(), unknown.end());
    }
    return all;
}

RecordFile parseRecords(std::string_view bytes) {
    RecordFile file;
    const RegistryLayout layout = layoutOf(bytes);
    if (layout.header && !layout.header->fits()) {
        file.header.push_back({0, 0, REG_CHECKSUM_DIFFERS,
                               fmt::format("the checksum header says {}, and the bytes behind it give {}",
                                           layout.header->stated, layout.header->computed)});
    }
    std::size_t at = layout.start;
    while (at < bytes.size()) {
        const std::size_t left = bytes.size() - at;
        if (left < LENGTH_SIZE) {
            file.damaged.push_back(
                {at, at, REG_FRAME_LENGTH_READ_FAILED, fmt::format("the file ends {} bytes into a length of 4", left)});
            break;
        }
        const std::size_t length = frameLength(bytes, at, layout.bigEndian);
        if (length > left - LENGTH_SIZE) {
            file.damaged.push_back(
                {at, at, REG_FRAME_TRUNCATED,
                 fmt::format("it says {} bytes, and {} are left in the file", length, left - LENGTH_SIZE)});
            break;
        }
        takeFrame(file, at, bytes.substr(at + LENGTH_SIZE, length));
        at += LENGTH_SIZE + length;
    }
    return file;
}

Failure damageFailure(const std::string& path, const std::vector<BadFrame>& frames) {
    const BadFrame& first = frames.front();
    Failure failure;
    failure.kind = "damaged";
    failure.exitStatus = EXIT_DAMAGED;
    failure.code = first.code;
    failure.path = path;
    const std::string count =
        frames.size() == 1 ? "damaged" : fmt::format("damaged in {} places, the first", frames.size());
    const std::string frame = first.frame == first.offset ? "" : fmt::format(" (in the frame at {})", first.frame);
    failure.message = fmt::format("{}: {} at offset {}{}: {}", printable(path), count, first.offset, frame, first.why);
    failure.hint = fmt::format(
        "keep a copy of the file; genreg dump {} shows the damage, genreg diff what a .bkp, .cor or saved one has",
        shellWord(path));
    return failure;
}

bool printRecordDifference(Output& output, const Difference& difference) {
    const RecordFile before = parseRecords(difference.before);
    const RecordFile after = parseRecords(difference.after);
    const std::vector<RecordChange> changes = compareRecords(before, after);
    if (!changes.empty()) {
        output.line("--- " + printable(difference.oldName));
        output.line("+++ " + printable(difference.newName));
    }
    for (const RecordChange& change : changes) {
        print(output, change);
    }
    return !changes.empty();
}

std::vector<Json> recordDifferenceObjects(const Difference& difference) {
    const RecordFile before = parseRecords(difference.before);
    const RecordFile after = parseRecords(difference.after);
    std::vector<Json> objects;
    for (const RecordChange& change : compareRecords(before, after)) {
        objects.push_back(objectOf(change));
    }
    return objects;
}

}  // namespace tool

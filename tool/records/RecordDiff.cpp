#include "records/RecordDiff.h"

#include <fmt/core.h>
#include <genreg/GlobalReg.h>
#include <genreg/GlobalRegFields.h>
#include <osse/Memory.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "base/Text.h"
#include "records/RecordFields.h"
#include "records/RegistryBytes.h"

namespace tool {
namespace {

// The image must have passed the library's check.
FoundRecord foundRecord(std::string_view image) {
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
    return {*static_cast<const GlobalRegRecord*>(block.get()), laterItems(decodeImage(image))};
}

struct FieldChange {
    std::string name;
    std::string before;  // cells
    std::string after;
    Json values;  // "old", "new"; null of an item of a later release, since all of those are one member
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
    for (const GlobalRegField& field : kindOf(before.recordType).fields) {
        if (has(before, field) == has(after, field) && sameValues(before, after, field.bit)) {
            continue;
        }
        FieldChange change{field.name, valueCell(before, field), valueCell(after, field), {}};
        putValue(change.values, "old", before, field);
        putValue(change.values, "new", after, field);
        changes.push_back(std::move(change));
    }
    LaterItems bits = before.later;
    bits.insert(after.later.begin(), after.later.end());
    for (const auto& [bit, ignored] : bits) {
        FieldChange change{laterName(bit), laterCell(before.later, bit), laterCell(after.later, bit), {}};
        if (change.before != change.after) {
            changes.push_back(std::move(change));
        }
    }
    return changes;
}

std::string keyOf(const FoundRecord& found) {
    const RecordKind& kind = kindOf(found.recordType);
    std::string key(kind.name);
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) != 0) {
            key += '\0';
            key += valueText(found, field).value_or("");
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
    const RecordKind& kind = kindOf(found.recordType);
    for (const GlobalRegField& field : kind.fields) {
        if (has(found, field) && (kind.keyFields & field.bit) == 0) {
            output.line(fmt::format("    {} = {}", field.name, valueCell(found, field)));
        }
    }
    for (const auto& [bit, item] : found.later) {
        output.line(fmt::format("    {} = {}", laterName(bit), laterCell(item)));
    }
}

void print(Output& output, const RecordChange& change) {
    const bool isChange = change.before != nullptr && change.after != nullptr;
    const FoundRecord& shown = change.shown;
    const std::string_view color = isChange ? "\x1b[33m" : change.before != nullptr ? "\x1b[31m" : "\x1b[32m";
    const char sign = isChange ? '~' : change.before != nullptr ? '-' : '+';
    output.line(fmt::format("{}{} {}{}", output.style.color ? color : "", sign, keyText(shown),
                            output.style.color ? "\x1b[0m" : ""));
    for (const FieldChange& field : change.fields) {
        output.line(fmt::format("    {}: {} -> {}", field.name, field.before, field.after));
    }
    if (!isChange) {
        printWhole(output, shown);
    }
}

// What the member "unknown" of the record is.
Json laterMember(const FoundRecord& found) {
    Json object = Json::object();
    putLater(object, found.later);
    return object.empty() ? Json(nullptr) : object["unknown"];
}

Json objectOf(const RecordChange& change) {
    const FoundRecord& shown = change.shown;
    if (change.before == nullptr || change.after == nullptr) {
        Json object{{"op", change.before == nullptr ? "insert" : "remove"}};
        object.update(recordObject(shown));
        return object;
    }
    Json object{{"op", "change"}};
    object.update(recordObject(shown, kindOf(shown.recordType).keyFields));
    object["changes"] = Json::array();
    for (const FieldChange& field : change.fields) {
        if (!field.values.is_null()) {
            object["changes"].push_back(
                {{"field", field.name}, {"old", field.values["old"]}, {"new", field.values["new"]}});
        }
    }
    if (change.before->later != change.after->later) {
        object["changes"].push_back(
            {{"field", "unknown"}, {"old", laterMember(*change.before)}, {"new", laterMember(*change.after)}});
    }
    return object;
}

}  // namespace

bool isBinary(std::string_view bytes) {
    constexpr std::size_t LENGTH_SIZE = 4;
    constexpr std::size_t LONGEST_START = 12;  // within which a checksum header ends
    const std::size_t null = bytes.find('\0');
    return null < LENGTH_SIZE || (null <= LONGEST_START && bytes.substr(0, null).find('\n') == std::string_view::npos);
}

RecordFile parseRecords(std::string_view bytes, bool expectGlobal) {
    RecordFile file{takeApart(bytes, expectGlobal), {}};
    for (const RegistryPart& part : file.bytes.parts) {
        if (file.bytes.content == RegistryContent::GLOBAL && part.framed && part.damage.empty()) {
            file.records.push_back(foundRecord(part.payload));
        }
    }
    return file;
}

bool printRecordDifference(Output& output, const Difference& difference) {
    const RecordFile before = parseRecords(difference.before, true);
    const RecordFile after = parseRecords(difference.after, true);
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
    const RecordFile before = parseRecords(difference.before, true);
    const RecordFile after = parseRecords(difference.after, true);
    std::vector<Json> objects;
    for (const RecordChange& change : compareRecords(before, after)) {
        objects.push_back(objectOf(change));
    }
    return objects;
}

Change changeOfRecords(const std::string& path, const std::string& doing, const Json& result) {
    const auto print = [](Output& output, const Difference& difference) {
        (void)printRecordDifference(output, difference);
    };
    return {path, doing, result, {}, print, recordDifferenceObjects, true};
}

}  // namespace tool

// Changes of the global registry, as they are told.
#include <fmt/core.h>

#include <algorithm>
#include <functional>

#include "records/RecordDiff.h"
#include "records/Salvage.h"
#include "watch/ToldChanges.h"

namespace tool {
namespace {

const char* actionOf(const RecordChange& change) {
    return change.before == nullptr ? "add" : change.after == nullptr ? "delete" : "change";
}

Json fieldsOf(const FoundRecord* record) {
    if (record == nullptr) {
        return nullptr;
    }
    Json object = Json::object();
    putFields(object, *record);
    putLater(object, record->later);
    return object;
}

std::string fieldWord(const FoundRecord& record, const FieldChange& change) {
    return change.field != nullptr ? valueWord(record, *change.field) : laterCell(record.later, change.bit);
}

// "instance RVN 9.7.0.2 inst1  startAtBoot: 0 -> 1".
std::string changeText(const RecordChange& change) {
    const FoundRecord& record = change.shown();
    const RecordKind& kind = kindOf(record.recordType);
    std::string text(kind.name);
    std::string values;
    for (const GlobalRegField& field : kind.fields) {
        if (field.key && has(record, field)) {
            text += " " + valueWord(record, field);
        } else if (has(record, field)) {
            values += fmt::format(" {}={}", field.name, valueWord(record, field));
        }
    }
    for (const auto& [bit, bytes] : record.later) {
        values += fmt::format(" {}={}", laterName(bit), laterCell(bytes));
    }
    if (change.isChange()) {
        values.clear();
        for (const FieldChange& field : change.fields) {
            values += fmt::format(" {}: {} -> {}", field.name, fieldWord(*change.before, field),
                                  fieldWord(*change.after, field));
        }
    }
    text += (values.empty() ? "" : " ") + values;
    return change.isChange() ? text : text.substr(0, text.find_last_not_of(' ') + 1);
}

}  // namespace

std::vector<ToldChange> changesOfRecords(std::string_view before, std::string_view after) {
    const std::vector<FoundRecord> oldRecords = takeApart(before, true).records();
    const std::vector<FoundRecord> newRecords = takeApart(after, true).records();
    std::vector<RecordChange> changes = compareRecords(oldRecords, newRecords);
    std::stable_sort(changes.begin(), changes.end(),
                     [](const RecordChange& a, const RecordChange& b) { return std::less<>()(a.after, b.after); });
    std::vector<ToldChange> all;
    for (const RecordChange& change : changes) {
        const RecordKind& kind = kindOf(change.shown().recordType);
        ToldChange told{actionOf(change), std::string(kind.name)};
        putFields(told.key, change.shown(), kind.keyFields);
        told.before = fieldsOf(change.before);
        told.after = fieldsOf(change.after);
        told.text = changeText(change);
        all.push_back(std::move(told));
    }
    return all;
}

}  // namespace tool

#include "records/RecordChanges.h"

#include <fmt/core.h>

#include <algorithm>
#include <functional>

#include "records/RecordDiff.h"
#include "records/Salvage.h"

namespace tool {
namespace {

// Beside the key.
Json fieldsOf(const FoundRecord* record) {
    if (record == nullptr) {
        return nullptr;
    }
    Json object = Json::object();
    putFields(object, *record, ~kindOf(record->recordType).keyFields);
    putLater(object, record->later);
    return object;
}

// shown: the one of the two that is.
ToldChange told(const FoundRecord* before, const FoundRecord* after, const FoundRecord& shown) {
    ToldChange change = toldAbsence(shown);
    change.before = fieldsOf(before);
    change.after = fieldsOf(after);
    change.changed = true;
    return change;
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
    return changesOfRecords(takeApart(before, true).records(), takeApart(after, true).records());
}

std::vector<ToldChange> changesOfRecords(const std::vector<FoundRecord>& before,
                                         const std::vector<FoundRecord>& after) {
    std::vector<RecordChange> changes = compareRecords(before, after);
    std::stable_sort(changes.begin(), changes.end(),
                     [](const RecordChange& a, const RecordChange& b) { return std::less<>()(a.after, b.after); });
    std::vector<ToldChange> all;
    for (const RecordChange& change : changes) {
        all.push_back(told(change.before, change.after, change.shown()));
        all.back().text = changeText(change);
    }
    return all;
}

ToldChange toldRecord(const MadeRecord& made) {
    ToldChange change = told(made.before ? &*made.before : nullptr, made.after ? &*made.after : nullptr,
                             (made.after ? made.after : made.before).value());
    change.changed = made.changed;
    change.operation = made.operation;
    return change;
}

ToldChange toldAbsence(const GlobalRegRecord& key) {
    const RecordKind& kind = kindOf(key.recordType);
    ToldChange change = unchanged(kind.name);
    putFields(change.key, key, kind.keyFields);
    return change;
}

}  // namespace tool

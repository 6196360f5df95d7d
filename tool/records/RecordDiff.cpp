#include "records/RecordDiff.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>

#include "base/Text.h"
#include "records/Salvage.h"

namespace tool {
namespace {

std::string fieldCell(const FoundRecord& record, const FieldChange& change) {
    return change.field != nullptr ? valueCell(record, *change.field) : laterCell(record.later, change.bit);
}

std::vector<FieldChange> changedFields(const FoundRecord& before, const FoundRecord& after) {
    std::vector<FieldChange> changes;
    for (const GlobalRegField& field : kindOf(before.recordType).fields) {
        if (has(before, field) != has(after, field) || !sameValues(before, after, field.bit)) {
            changes.push_back({field.bit, &field, field.name});
        }
    }
    LaterItems bits = before.later;
    bits.insert(after.later.begin(), after.later.end());
    for (const auto& [bit, ignored] : bits) {
        if (laterCell(before.later, bit) != laterCell(after.later, bit)) {
            changes.push_back({bit, nullptr, laterName(bit)});
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
    const FoundRecord& shown = change.shown();
    const std::string_view color = change.isChange() ? "\x1b[33m" : change.before != nullptr ? "\x1b[31m" : "\x1b[32m";
    const char sign = change.isChange() ? '~' : change.before != nullptr ? '-' : '+';
    output.line(fmt::format("{}{} {}{}", output.style.color ? color : "", sign, keyText(shown),
                            output.style.color ? "\x1b[0m" : ""));
    for (const FieldChange& field : change.fields) {
        output.line(fmt::format("    {}: {} -> {}", field.name, fieldCell(*change.before, field),
                                fieldCell(*change.after, field)));
    }
    if (!change.isChange()) {
        printWhole(output, shown);
    }
}

}  // namespace

std::vector<RecordChange> compareRecords(const std::vector<FoundRecord>& before,
                                         const std::vector<FoundRecord>& after) {
    std::map<std::string, std::vector<const FoundRecord*>> waiting;
    std::for_each(after.rbegin(), after.rend(),
                  [&](const FoundRecord& found) { waiting[keyBytes(found)].push_back(&found); });
    std::vector<RecordChange> changes;
    for (const FoundRecord& old : before) {
        auto& candidates = waiting[keyBytes(old)];
        if (candidates.empty()) {
            changes.push_back({&old, nullptr, {}});
            continue;
        }
        const FoundRecord& now = *candidates.back();
        candidates.pop_back();
        if (auto fields = changedFields(old, now); !fields.empty()) {
            changes.push_back({&old, &now, std::move(fields)});
        }
    }
    for (const FoundRecord& found : after) {
        const auto& candidates = waiting[keyBytes(found)];
        if (std::find(candidates.begin(), candidates.end(), &found) != candidates.end()) {
            changes.push_back({nullptr, &found, {}});
        }
    }
    return changes;
}

void printRecordDifference(Output& output, const Difference& difference, const std::vector<RecordChange>& changes) {
    if (!changes.empty()) {
        output.line("--- " + printable(difference.oldName));
        output.line("+++ " + printable(difference.newName));
    }
    for (const RecordChange& change : changes) {
        print(output, change);
    }
}

Change changeOfRecords(const std::string& path, const std::string& doing) {
    const auto print = [](Output& output, const Difference& difference) {
        const auto before = takeApart(difference.before, true).records();
        const auto after = takeApart(difference.after, true).records();
        printRecordDifference(output, difference, compareRecords(before, after));
    };
    return {path, doing, {}, {}, print, true};
}

}  // namespace tool

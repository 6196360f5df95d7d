#include "entries/EntryChanges.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "base/Diff.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "entries/BinVarRegistry.h"
#include "entries/Remarks.h"
#include "records/Salvage.h"

namespace tool {
namespace {

// What a key finds in a file, or a line that none does.
struct Item {
    Entry entry;
    Json key = Json::object();
    std::string identity;  // the same for items of one key; empty for a line that none finds
};

using Items = std::vector<Item>;

// What finds it; of bytes that are no text under the member that tells them.
Json keyOf(const EntrySchema& schema, const Json& members) {
    Json key = Json::object();
    for (const std::string& name : schema.keyMembers) {
        const std::string member = members.contains(name) ? name : name + "Base64";
        key[member] = members[member];
    }
    return key;
}

// The rest of it.
Json fieldsOf(const EntrySchema& schema, const Entry* entry, const Json& key) {
    if (entry == nullptr) {
        return nullptr;
    }
    Json object = Json::object();
    if (entry->number != 0) {
        object[schema.place] = entry->number;
    }
    for (const auto& [name, value] : entry->members.items()) {
        if (name != schema.place && !key.contains(name)) {
            object[name] = value;
        }
    }
    if (schema.hasLines()) {
        putText(object, "text", entry->raw);
    }
    return object;
}

Item itemOf(const EntrySchema& schema, Entry entry) {
    Item item{std::move(entry), {}, {}};
    item.key = keyOf(schema, item.entry.members);
    item.identity = item.key.dump();
    return item;
}

Items itemsOf(const EntrySchema& schema, const std::string& bytes) {
    Items items;
    for (const FileLine& line : fileLines(bytes, schema.continued)) {
        auto entry = line.bytes.size() < REG_LINE_SIZE ? schema.describe(lineText(line, schema.continued))
                                                       : std::optional<Entry>();
        Item item = entry ? itemOf(schema, std::move(*entry)) : Item();
        item.entry.number = line.number;
        item.entry.raw = line.bytes.substr(0, line.bytes.size() - (line.bytes.ends_with('\n') ? 1 : 0));
        items.push_back(std::move(item));
    }
    return items;
}

Items variablesOf(std::string_view bytes) {
    Items items;
    for (const RegistryPart& part : takeApart(bytes, false).parts) {
        if (const auto record = part.damage.empty() ? variableOf(part.payload) : std::nullopt) {
            items.push_back(itemOf(binVarSchema(), describeVariable(*record)));
            items.back().entry.number = items.size();
        }
    }
    return items;
}

std::string wordOf(const Json& value) {
    if (!value.is_string()) {
        return value.is_null() ? std::string(ABSENT) : value.dump();
    }
    const auto text = value.get<std::string>();
    const bool plain = !text.empty() && text != ABSENT && text.find_first_of(" \t\"\\:") == std::string::npos;
    return plain ? printable(text) : tool::quoted(text);
}

// "services http tcp  port: 80 -> 8080".
std::string changeText(const EntrySchema& schema, const Item* before, const Item* after, const Item& shown) {
    std::string text = schema.group;
    for (const auto& [name, value] : shown.key.items()) {
        text += " " + wordOf(value);
    }
    std::string values;
    for (const auto& [name, value] : shown.entry.members.items()) {
        if (shown.key.contains(name)) {
            continue;
        }
        if (before == nullptr || after == nullptr) {
            values += value.is_null() ? "" : fmt::format(" {}={}", name, wordOf(value));
        } else if (!before->entry.members.contains(name) || !(before->entry.members[name] == value)) {
            const Json old = before->entry.members.contains(name) ? before->entry.members[name] : Json();
            values += fmt::format(" {}: {} -> {}", name, wordOf(old), wordOf(value));
        }
    }
    if (values.empty() && before != nullptr && after != nullptr) {
        values = fmt::format(" line: {} -> {}", wordOf(before->entry.raw), wordOf(after->entry.raw));
    }
    return text + (values.empty() ? "" : " ") + values;
}

// shown: the one of the two that is, the later one where both are.
ToldChange told(const EntrySchema& schema, const Item* before, const Item* after, const Item& shown) {
    const bool found = !shown.identity.empty();
    ToldChange change{found ? schema.group : "line"};
    change.key = found ? shown.key : Json{{"line", shown.entry.number}};
    change.before = fieldsOf(schema, before != nullptr ? &before->entry : nullptr, shown.key);
    change.after = fieldsOf(schema, after != nullptr ? &after->entry : nullptr, shown.key);
    change.text = found ? changeText(schema, before, after, shown)
                        : fmt::format("line {}  {}", shown.entry.number, printable(shown.entry.raw));
    return change;
}

using Pair = std::pair<const Item*, const Item*>;

// Those that share a key, in their order; what has no other is alone.
void pairByKey(std::vector<Pair>& pairs, const Items& before, const Items& after) {
    std::map<std::string_view, std::vector<const Item*>> waiting;
    std::for_each(after.rbegin(), after.rend(), [&](const Item& item) { waiting[item.identity].push_back(&item); });
    for (const Item& old : before) {
        if (old.identity.empty()) {
            continue;
        }
        auto& candidates = waiting[old.identity];
        pairs.emplace_back(&old, candidates.empty() ? nullptr : candidates.back());
        if (!candidates.empty()) {
            candidates.pop_back();
        }
    }
    for (const auto& [identity, left] : waiting) {
        for (const Item* const item : identity.empty() ? std::vector<const Item*>() : left) {
            pairs.emplace_back(nullptr, item);
        }
    }
}

// Those that nothing finds, by their order among themselves.
void pairLines(std::vector<Pair>& pairs, const Items& before, const Items& after) {
    const auto pick = [](const Items& items) {
        std::vector<const Item*> picked;
        for (const Item& item : items) {
            if (item.identity.empty()) {
                picked.push_back(&item);
            }
        }
        return picked;
    };
    const auto texts = [](const std::vector<const Item*>& items) {
        std::vector<std::string_view> all;
        for (const Item* const item : items) {
            all.emplace_back(item->entry.raw);
        }
        return all;
    };
    const auto oldLines = pick(before);
    const auto newLines = pick(after);
    for (const Edit& edit : compareLines(texts(oldLines), texts(newLines))) {
        if (edit.kind == Edit::Kind::REMOVE) {
            pairs.emplace_back(oldLines[edit.oldLine], nullptr);
        } else if (edit.kind == Edit::Kind::INSERT) {
            pairs.emplace_back(nullptr, newLines[edit.newLine]);
        }
    }
}

std::vector<ToldChange> changesBetween(const EntrySchema& schema, const Items& before, const Items& after) {
    std::vector<Pair> pairs;
    pairByKey(pairs, before, after);
    pairLines(pairs, before, after);
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
        const auto place = [](const Pair& pair) {
            return pair.second == nullptr ? std::tuple(0, pair.first->entry.number)
                                          : std::tuple(1, pair.second->entry.number);
        };
        return place(a) < place(b);
    });
    std::vector<ToldChange> changes;
    for (const auto& [old, now] : pairs) {
        const bool same = old != nullptr && now != nullptr && old->entry.raw == now->entry.raw &&
                          old->entry.members == now->entry.members;
        const Item* const shown = now != nullptr ? now : old;
        if (!same && shown != nullptr) {
            changes.push_back(told(schema, old, now, *shown));
        }
    }
    return changes;
}

}  // namespace

ToldChange toldEntry(const EntrySchema& schema, const MadeEntry& made) {
    const Entry* const before = made.before ? &*made.before : nullptr;
    const Entry* const after = made.after ? &*made.after : nullptr;
    ToldChange change{schema.group};
    change.key = keyOf(schema, (made.after ? made.after : made.before).value().members);
    change.before = fieldsOf(schema, before, change.key);
    change.after = fieldsOf(schema, after, change.key);
    change.changed = made.changed;
    change.operation = made.operation;
    return change;
}

std::vector<ToldChange> changesOfVariables(std::string_view before, std::string_view after) {
    return changesBetween(binVarSchema(), variablesOf(before), variablesOf(after));
}

std::vector<ToldChange> changesOfLines(const EntrySchema& schema, const std::string& before, const std::string& after) {
    return changesBetween(schema, itemsOf(schema, before), itemsOf(schema, after));
}

}  // namespace tool

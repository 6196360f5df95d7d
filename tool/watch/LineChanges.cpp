// Changes of files of lines and of binary variables, as they are told.
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
#include "watch/ToldChanges.h"

namespace tool {
namespace {

// What a key finds in a file, or a line that none does.
struct Item {
    std::size_t number = 0;  // of the line or the record
    std::string raw;         // the line, less its newline
    Json key = Json::object();
    Json members = Json::object();
    std::string identity;  // the same for items of one key; empty for a line that none finds
};

using Items = std::vector<Item>;

// The member of the name, or of the one that tells bytes which are no text.
std::string memberOf(const Json& members, const std::string& name) {
    return members.contains(name) ? name : name + "Base64";
}

Item itemOf(const EntrySchema& schema, const Json& members) {
    Item item;
    for (const char* const name : schema.key) {
        const std::string member = memberOf(members, name);
        item.key[member] = members[member];
    }
    item.members = members;
    item.identity = item.key.dump();
    return item;
}

Items itemsOf(const EntrySchema& schema, const std::string& bytes) {
    Items items;
    for (const FileLine& line : fileLines(bytes, schema.continued)) {
        const auto entry = line.bytes.size() < REG_LINE_SIZE ? schema.describe(lineText(line, schema.continued))
                                                             : std::optional<Entry>();
        Item item = entry ? itemOf(schema, entry->members) : Item();
        item.number = line.number;
        item.raw = line.bytes.substr(0, line.bytes.size() - (line.bytes.ends_with('\n') ? 1 : 0));
        items.push_back(std::move(item));
    }
    return items;
}

Items variablesOf(std::string_view bytes) {
    Items items;
    for (const RegistryPart& part : takeApart(bytes, false).parts) {
        if (const auto record = part.damage.empty() ? variableOf(part.payload) : std::nullopt) {
            items.push_back(itemOf(binVarSchema(), describeVariable(*record).members));
            items.back().number = items.size();
        }
    }
    return items;
}

// A record has no line; nor has it any bytes beside its fields.
Json fieldsOf(const Item* item, bool isLine) {
    if (item == nullptr) {
        return nullptr;
    }
    Json object = Json::object();
    object[isLine ? "line" : "record"] = item->number;
    object.update(item->members);
    if (isLine) {
        putText(object, "text", item->raw);
    }
    return object;
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
std::string changeText(const std::string& type, const Item* before, const Item* after, const Item& shown) {
    std::string text = type;
    for (const auto& [name, value] : shown.key.items()) {
        text += " " + wordOf(value);
    }
    std::string values;
    for (const auto& [name, value] : shown.members.items()) {
        if (shown.key.contains(name)) {
            continue;
        }
        if (before == nullptr || after == nullptr) {
            values += value.is_null() ? "" : fmt::format(" {}={}", name, wordOf(value));
        } else if (!before->members.contains(name) || !(before->members[name] == value)) {
            const Json old = before->members.contains(name) ? before->members[name] : Json();
            values += fmt::format(" {}: {} -> {}", name, wordOf(old), wordOf(value));
        }
    }
    if (values.empty() && before != nullptr && after != nullptr) {
        values = fmt::format(" line: {} -> {}", wordOf(before->raw), wordOf(after->raw));
    }
    return text + (values.empty() ? "" : " ") + values;
}

// shown: the one of the two that is, the later one where both are.
ToldChange told(const std::string& type, const Item* before, const Item* after, const Item& shown, bool isLine) {
    ToldChange change{before == nullptr ? "add" : after == nullptr ? "delete" : "change", type};
    change.before = fieldsOf(before, isLine);
    change.after = fieldsOf(after, isLine);
    if (shown.identity.empty()) {
        change.type = "line";
        change.key["line"] = shown.number;
        change.text = fmt::format("line {}  {}", shown.number, printable(shown.raw));
    } else {
        change.key = shown.key;
        change.text = changeText(type, before, after, shown);
    }
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
            all.emplace_back(item->raw);
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

std::vector<ToldChange> changesBetween(const std::string& type, const Items& before, const Items& after,
                                       bool areLines) {
    std::vector<Pair> pairs;
    pairByKey(pairs, before, after);
    pairLines(pairs, before, after);
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
        const auto place = [](const Pair& pair) {
            return pair.second == nullptr ? std::tuple(0, pair.first->number) : std::tuple(1, pair.second->number);
        };
        return place(a) < place(b);
    });
    std::vector<ToldChange> changes;
    for (const auto& [old, now] : pairs) {
        const bool same = old != nullptr && now != nullptr && old->raw == now->raw && old->members == now->members;
        const Item* const shown = now != nullptr ? now : old;
        if (!same && shown != nullptr) {
            changes.push_back(told(type, old, now, *shown, areLines));
        }
    }
    return changes;
}

}  // namespace

std::vector<ToldChange> changesOfVariables(std::string_view before, std::string_view after) {
    return changesBetween(binVarSchema().group, variablesOf(before), variablesOf(after), false);
}

std::vector<ToldChange> changesOfLines(const EntrySchema& schema, const std::string& before, const std::string& after) {
    return changesBetween(schema.group, itemsOf(schema, before), itemsOf(schema, after), true);
}

Json changeObject(const ToldChange& change, const std::string& path) {
    Json object{{"operation", "watch"}};
    putText(object, "path", path);
    object["type"] = change.type;
    object.update(change.key);
    object["action"] = change.action;
    object["before"] = change.before;
    object["after"] = change.after;
    object["changed"] = true;
    object["dryRun"] = false;
    return object;
}

}  // namespace tool

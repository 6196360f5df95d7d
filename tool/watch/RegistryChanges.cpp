#include "watch/RegistryChanges.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <set>

#include "records/RecordFields.h"

namespace tool {
namespace {

unsigned long keyMask(unsigned int type) {
    switch (type) {
        case GLOBALREG_INSTANCE:
            return INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;
        case GLOBALREG_SERVICE:
            return SERVICE_SERVICE | SERVICE_VERSION_CODE;
        default:
            return VARIABLE_SERVICE | VARIABLE_NAME;
    }
}

// Texts without what stands behind their end.
std::string valueOf(const RecordItem& item) {
    const bool text = item.field != nullptr && item.field->kind == GLOBALREG_FIELD_TEXT;
    return text ? item.bytes.substr(0, item.bytes.find('\0')) : item.bytes;
}

std::string keyOf(const RecordImage& record) {
    std::string key = recordTypeName(record.type);
    for (const RecordItem& item : record.items) {
        if ((item.bit & keyMask(record.type)) != 0) {
            key += fmt::format("\n{:x}:{}", item.bit, valueOf(item));
        }
    }
    return key;
}

const RecordItem* itemOf(const RecordImage& record, unsigned long bit) {
    const auto found =
        std::find_if(record.items.begin(), record.items.end(), [&](const RecordItem& item) { return item.bit == bit; });
    return found == record.items.end() ? nullptr : &*found;
}

bool isAlike(const RecordItem* a, const RecordItem* b) {
    return a != nullptr && b != nullptr ? valueOf(*a) == valueOf(*b) : a == b;
}

// The bits of the fields that differ, in order.
std::set<unsigned long> differing(const RecordImage& before, const RecordImage& after) {
    std::set<unsigned long> bits;
    for (const RecordImage* record : {&before, &after}) {
        for (const RecordItem& item : record->items) {
            if (!isAlike(itemOf(before, item.bit), itemOf(after, item.bit))) {
                bits.insert(item.bit);
            }
        }
    }
    return bits;
}

std::string nameOf(const RegistryChange& change, unsigned long bit) {
    for (const auto* record : {&change.after, &change.before}) {
        const RecordItem* item = *record ? itemOf(**record, bit) : nullptr;
        if (item != nullptr) {
            return itemName(*item);
        }
    }
    return {};
}

std::string valueText(const RecordItem* item) {
    return item == nullptr ? std::string(ABSENT) : itemText(*item);
}

}  // namespace

RegistryRecords recordsOf(const RegistryBytes& bytes) {
    RegistryRecords records;
    std::map<std::string, int> seen;
    for (const RegistryPart& part : bytes.parts) {
        if (part.framed && part.damage.empty() && bytes.content == RegistryContent::GLOBAL) {
            RecordImage record = decodeImage(part.payload);
            const std::string key = keyOf(record);
            const int before = seen[key]++;
            records.emplace_back(before == 0 ? key : fmt::format("{}\n#{}", key, before), std::move(record));
        }
    }
    return records;
}

std::vector<RegistryChange> changesBetween(const RegistryRecords& before, const RegistryRecords& after) {
    const std::map<std::string, RecordImage> old(before.begin(), before.end());
    const std::map<std::string, RecordImage> now(after.begin(), after.end());
    std::vector<RegistryChange> changes;
    for (const auto& [key, record] : before) {
        if (now.count(key) == 0) {
            changes.push_back({record, std::nullopt});
        }
    }
    for (const auto& [key, record] : after) {
        const auto found = old.find(key);
        if (found == old.end()) {
            changes.push_back({std::nullopt, record});
        } else if (!differing(found->second, record).empty()) {
            changes.push_back({found->second, record});
        }
    }
    return changes;
}

Json changeObject(const RegistryChange& change) {
    Json object{{"action", change.action()}, {"type", recordTypeName(change.record().type)}};
    object["key"] = Json::object();
    for (const RecordItem& item : change.record().items) {
        if ((item.bit & keyMask(change.record().type)) != 0) {
            putItem(object["key"], itemName(item), item);
        }
    }
    object["changed"] = Json::array();
    if (change.before && change.after) {
        for (const unsigned long bit : differing(*change.before, *change.after)) {
            const bool later = (bit & kindOf(change.record().type).known) == 0;
            const Json name = later ? "unknown" : nameOf(change, bit);
            if (object["changed"].empty() || object["changed"].back() != name) {
                object["changed"].push_back(name);
            }
        }
    }
    object["before"] = change.before ? itemsObject(*change.before) : Json(nullptr);
    object["after"] = change.after ? itemsObject(*change.after) : Json(nullptr);
    return object;
}

std::string changeText(const RegistryChange& change) {
    const RecordImage& record = change.record();
    std::string text = fmt::format("{:<7}  {}", change.action(), recordTypeName(record.type));
    for (const auto& [name, value] : keyValues(record)) {
        text += " " + value;
    }
    text += " ";
    if (change.before && change.after) {
        for (const unsigned long bit : differing(*change.before, *change.after)) {
            text += fmt::format(" {}: {} -> {}", nameOf(change, bit), valueText(itemOf(*change.before, bit)),
                                valueText(itemOf(*change.after, bit)));
        }
        return text;
    }
    for (const RecordItem& item : record.items) {
        text += (item.bit & keyMask(record.type)) != 0 ? "" : fmt::format(" {}={}", itemName(item), itemText(item));
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::vector<std::pair<std::string, std::string>> keyValues(const RecordImage& record) {
    std::vector<std::pair<std::string, std::string>> values;
    for (const RecordItem& item : record.items) {
        if ((item.bit & keyMask(record.type)) != 0) {
            values.emplace_back(itemName(item), itemText(item));
        }
    }
    return values;
}

}  // namespace tool

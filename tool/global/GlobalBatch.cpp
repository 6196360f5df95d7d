#include "global/GlobalBatch.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"

namespace tool {
namespace {

const RecordKind& kindNamed(const BatchItem& item, const std::optional<std::string>& name) {
    for (const unsigned int type : {GLOBALREG_SERVICE, GLOBALREG_INSTANCE, GLOBALREG_VARIABLE}) {
        if (name == kindOf(type).name) {
            return kindOf(type);
        }
    }
    throw item.failure(name ? fmt::format("there is no \"type\" {}", cell(*name)) : "it has no \"type\"",
                       "service, instance or variable");
}

const GlobalRegField* fieldOf(const RecordKind& kind, const std::string& name) {
    const auto found = std::find_if(kind.fields.begin(), kind.fields.end(),
                                    [&](const GlobalRegField& field) { return field.name == name; });
    return found == kind.fields.end() ? nullptr : &*found;
}

// Who wrote the texts. The change log has a line for the record; a line break would let it hold another.
enum class Texts { OF_USER, OF_REGISTRY };

void check(const GlobalRegField& field, const std::optional<std::string>& text, Texts texts) {
    if (text) {
        if (texts == Texts::OF_USER) {
            refuseControl(field.name, *text);
        }
        GlobalRegRecord trial = {};
        trial.recordType = GLOBALREG_INSTANCE;
        setField(trial, field, *text);
    }
}

LaterItems takeLater(BatchItem& item, const Json& unknown, const RecordKind& kind) {
    LaterItems later;
    const auto refuse = [&] {
        return item.failure("\"unknown\" is a list of objects with \"bit\" and \"base64\"", "as export prints it");
    };
    if (!unknown.is_array()) {
        throw refuse();
    }
    for (const Json& each : unknown.elements()) {
        const auto isText = [&](const char* name) { return each.contains(name) && each[name].is_string(); };
        if (!each.is_object() || !isText("bit") || !isText("base64")) {
            throw refuse();
        }
        const std::string bit = each.value("bit", "");
        const auto bytes = fromBase64(each.value("base64", "?"));
        unsigned long number = 0;
        const char* const end = bit.data() + bit.size();
        const bool read =
            bit.starts_with("0x") && std::from_chars(bit.data() + 2, end, number, 16).ptr == end && number != 0;
        constexpr std::size_t LONGEST = 0xffff;
        if (!read || (number & (number - 1)) != 0 || (number & (kind.known | 1UL << 63U)) != 0 || !bytes ||
            bytes->size() > LONGEST) {
            throw refuse();
        }
        later[number] = *bytes;
    }
    return later;
}

void takeExpected(AskedChange& asked, const RecordKind& kind) {
    if (const auto value = asked.item.takeText("ifValue")) {
        const GlobalRegField* const field = fieldOf(kind, "value");
        if (field == nullptr) {
            throw asked.item.failure(fmt::format("a {} has no value for \"ifValue\"", kind.name), "ifFields");
        }
        asked.expected.emplace_back(field, value);
    }
    for (const auto& [name, text] : asked.item.takeTexts("ifFields")) {
        const GlobalRegField* const field = fieldOf(kind, name);
        if (field == nullptr) {
            throw asked.item.failure(fmt::format("a {} has no field {}", kind.name, cell(name)), "");
        }
        asked.expected.emplace_back(field, text);
    }
}

AskedChange changeOf(BatchItem item, Texts texts) {
    AskedChange asked{std::move(item), {}, {}, {}, {}};
    const RecordKind& kind = kindNamed(asked.item, asked.item.takeText("type"));
    asked.key.recordType = kind.type;
    std::vector<std::string> names;
    for (const GlobalRegField& field : kind.fields) {
        names.emplace_back(field.name);
        bool isNull = false;
        const auto text = asked.item.takeText(field.name, &isNull);
        if ((kind.keyFields & field.bit) != 0) {
            if (!text || text->empty()) {
                throw asked.item.failure(fmt::format("a {} has to have a {}", kind.name, field.name), "");
            }
            if (texts == Texts::OF_USER) {
                refuseControl("key", *text);
            }
            setField(asked.key, field, *text);
        } else if (text || isNull) {
            check(field, text, texts);
            asked.fields.emplace_back(&field, text);
        }
    }
    takeExpected(asked, kind);
    if (const auto unknown = asked.item.take("unknown")) {
        asked.later = takeLater(asked.item, *unknown, kind);
    }
    if (asked.item.op() == BatchOp::Delete && (!asked.fields.empty() || asked.later)) {
        throw asked.item.failure("a delete has nothing but a key", "\"ifFields\" for what it expects");
    }
    asked.item.refuseRest(names);
    return asked;
}

std::string shown(const std::optional<std::string>& value) {
    return value ? cell(*value) : std::string(ABSENT);
}

}  // namespace

AskedChanges readChanges(const std::string& source) {
    AskedChanges changes;
    readBatch(source, [&](BatchItem item) {
        const BatchItem named = item;
        changes.push_back(named.naming([&] { return changeOf(std::move(item), Texts::OF_USER); }));
    });
    return changes;
}

AskedChange changeOf(const std::string& source, std::size_t number, const Json& record) {
    BatchItem item(source, number, record);
    const BatchItem named = item;
    return named.naming([&] {
        AskedChange asked = changeOf(std::move(item), Texts::OF_REGISTRY);
        if (asked.item.op() != BatchOp::Set || !asked.expected.empty()) {
            throw asked.item.failure("it is no record but a change", "");
        }
        return asked;
    });
}

FoundRecord recordOf(const AskedChange& asked, const std::optional<FoundRecord>& found) {
    FoundRecord record = found && !asked.whole ? *found : FoundRecord{asked.key, {}};
    record.missingFieldMask = found ? found->missingFieldMask : 0;
    for (const auto& [field, text] : asked.fields) {
        if (text) {
            setField(record, *field, *text);
        } else {
            removeField(record, *field);
        }
    }
    if (asked.later || asked.whole) {
        record.later = asked.later.value_or(LaterItems());
    }
    return record;
}

GlobalBatch::GlobalBatch(const Context& context, const std::string& path, bool rehearsal, std::string doing)
    : registry_(context, path, rehearsal), path_(path), doing_(std::move(doing)) {
    const bool exists = judgeFile(path, doing_, false);
    answered(registry_.BeginBatch());
    if (exists) {
        GlobalRegistry(context, path, true).readEach(doing_, [&](const FoundRecord& record) {
            records_.emplace(keyText(record), record);
        });
    }
}

void GlobalBatch::answered(unsigned int code) const {
    if (code != 0) {
        throw libraryFailure(code, path_, doing_);
    }
}

GlobalBatch::Records::iterator GlobalBatch::find(const AskedChange& asked) {
    const auto [first, last] = records_.equal_range(keyText(asked.key));
    if (std::distance(first, last) > 1) {
        throw answer(
            "several", EXIT_CONFLICT, REG_SEVERAL_MATCH, path_,
            fmt::format("there are {} records {}; nothing was changed", std::distance(first, last), keyText(asked.key)),
            "genreg check shows them");
    }
    return first == last ? records_.end() : first;
}

void GlobalBatch::expect(const AskedChange& asked, const FoundRecord& found) const {
    for (const auto& [field, text] : asked.expected) {
        const auto value = valueText(found, *field);
        if (value != text) {
            throw answer("changed", EXIT_CONFLICT, 0, path_,
                         fmt::format("{}: {} is {}, not {}; nothing was changed", keyText(asked.key), field->name,
                                     shown(value), shown(text)),
                         "look at it, then decide anew");
        }
    }
}

void GlobalBatch::make(const AskedChange& asked, const Taker& take) {
    const auto at = find(asked);
    const bool exists = at != records_.end();
    const BatchOp op = asked.item.op();
    MadeRecord made{{}, {}, true, fmt::format("{} {}", kindOf(asked.key.recordType).name, nameOf(op))};
    if (exists && op == BatchOp::Add) {
        throw answer("exists", EXIT_CONFLICT, REG_DUPLICATE, path_,
                     fmt::format("{} is there already; nothing was changed", keyText(asked.key)), "\"op\":\"set\"");
    }
    if (!exists && (op == BatchOp::Delete || !asked.expected.empty())) {
        throw answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path_,
                     fmt::format("there is no {}", keyText(asked.key)), "genreg export");
    }
    if (exists) {
        made.before = at->second;
        expect(asked, at->second);
    }
    if (op == BatchOp::Delete) {
        answered(registry_.remove(at->second));
        records_.erase(at);
        take(made);
        return;
    }
    made.after = recordOf(asked, made.before);
    if (!exists) {
        answered(registry_.add(*made.after, made.after->later));
        records_.emplace(keyText(*made.after), *made.after);
        take(made);
        return;
    }
    const unsigned long fields = (made.before->fieldMask ^ made.after->fieldMask) & kindOf(asked.key.recordType).known;
    made.changed =
        fields != 0 || made.before->later != made.after->later || !sameValues(*made.before, *made.after, ~0UL);
    if (made.changed) {
        answered(registry_.replace(*made.before, *made.after));
        at->second = *made.after;
    }
    take(made);
}

std::size_t GlobalBatch::deleteOthers(const AskedChanges& asked, const Taker& take) {
    std::vector<std::string> kept;
    kept.reserve(asked.size());
    for (const AskedChange& each : asked) {
        kept.push_back(keyText(each.key));
    }
    std::sort(kept.begin(), kept.end());
    std::size_t count = 0;
    for (auto at = records_.begin(); at != records_.end();) {
        if (std::binary_search(kept.begin(), kept.end(), at->first)) {
            ++at;
            continue;
        }
        answered(registry_.remove(at->second));
        const auto kind = kindOf(at->second.recordType).name;
        take({at->second, {}, true, fmt::format("{} delete", kind)});
        at = records_.erase(at);
        ++count;
    }
    return count;
}

bool GlobalBatch::commit() {
    const unsigned int code = registry_.CommitBatch();
    if (code != REG_UNCHANGED) {
        answered(code);
    }
    return code == 0;
}

}  // namespace tool

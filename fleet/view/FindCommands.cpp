#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "base/Text.h"
#include "global/RecordTask.h"
#include "mirror/Times.h"
#include "records/RecordTable.h"
#include "system/System.h"
#include "view/View.h"
#include "view/ViewCommands.h"

namespace fleet {
namespace {

using tool::Json;

struct Wanted {
    const GlobalRegField* field;
    std::string pattern;
};

// FIELD=VALUE; a value that is no pattern may be written as `set` takes it.
Wanted wantedOf(const tool::RecordKind& kind, const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
        throw tool::usageFailure(fmt::format("{} is not FIELD=VALUE", tool::cell(word)), "genreg-fleet find --help");
    }
    Wanted wanted{&tool::fieldNamed(kind, word.substr(0, equals), tool::OfferedFields::ALL), word.substr(equals + 1)};
    if (wanted.pattern.empty() || wanted.pattern.find_first_of("*?[\\") != std::string::npos) {
        return wanted;
    }
    GlobalRegRecord record{};
    record.recordType = kind.type;
    tool::setField(record, *wanted.field, wanted.pattern);
    wanted.pattern = tool::valueText(record, *wanted.field).value_or("");
    return wanted;
}

bool fits(const tool::FoundRecord& record, const std::vector<Wanted>& all) {
    return std::ranges::all_of(all, [&](const Wanted& wanted) {
        const auto value = tool::valueText(record, *wanted.field);
        return value && (*value == wanted.pattern || tool::fitsPattern(wanted.pattern, *value));
    });
}

// Every record of the kind on every host. Damaged values are told. Whether there were such.
bool eachRecordOfAll(
    View& view, const tool::RecordKind& kind,
    const std::function<void(const HostValue& host, const std::string& path, const tool::FoundRecord& record)>& take) {
    bool damaged = false;
    view.listHosts();
    const long long now = secondsNow();
    for (const std::string& id : view.idsByName()) {
        const HostLook look = view.picture.look(id);
        view.remember(look, now);
        damaged = view.tellDamage(look) || damaged;
        if (!look.value) {
            continue;
        }
        for (const MirroredRegistry& registry : look.value->registries) {
            try {
                eachRecord(registry, &kind,
                           [&](const tool::FoundRecord& record) { take(*look.value, registry.path, record); });
            } catch (const tool::Failure& failure) {
                if (failure.exitStatus != tool::EXIT_DAMAGED) {
                    throw;
                }
                view.tellDamage(id, failure.message);
                damaged = true;
            }
        }
    }
    view.saveKnown();
    return damaged;
}

struct FindWords {
    std::string type;
    std::vector<std::string> fields;
};

int find(tool::Context& context, const FindWords& words) {
    const tool::RecordKind& kind = kindFor(words.type);
    std::vector<Wanted> wanted;
    for (const std::string& word : words.fields) {
        wanted.push_back(wantedOf(kind, word));
    }
    View view(context);
    tool::RecordTable table(kind, {"HOST"});
    bool found = false;
    const bool damaged = eachRecordOfAll(
        view, kind, [&](const HostValue& host, const std::string& path, const tool::FoundRecord& record) {
            if (!fits(record, wanted)) {
                return;
            }
            found = true;
            if (!context.output.style.json) {
                table.row(record, {tool::cell(host.hostName)});
                return;
            }
            Json object{{"host", host.id}};
            tool::putText(object, "hostName", host.hostName);
            tool::putText(object, "path", path);
            object.update(tool::recordObject(record));
            context.output.json(object);
        });
    if (!table.empty()) {
        table.print(context.output);
    }
    return damaged ? tool::EXIT_DAMAGED : found ? tool::EXIT_DONE : tool::EXIT_NEGATIVE;
}

tool::Action declareFind(tool::Parser& parser) {
    auto words = std::make_shared<FindWords>();
    parser.required("TYPE", words->type, "service, instance or variable");
    parser.words("FIELD=VALUE", words->fields, "only records with this value, which may be a pattern: *, ?, [...]");
    parser.footer("Exits 1 when no record fits, and 7 when a value is damaged, with what the others hold told.");
    return [words](tool::Context& context) { return find(context, *words); };
}

struct CountWords {
    std::string type;
    std::string field;
};

struct Counted {
    std::size_t records = 0;
    std::set<std::string> hosts{};
};

int count(tool::Context& context, const CountWords& words) {
    const tool::RecordKind& kind = kindFor(words.type);
    const GlobalRegField& field = tool::fieldNamed(kind, words.field, tool::OfferedFields::ALL);
    View view(context);
    std::map<std::optional<std::string>, Counted> values;
    const bool damaged =
        eachRecordOfAll(view, kind, [&](const HostValue& host, const std::string&, const tool::FoundRecord& record) {
            Counted& counted = values[tool::valueText(record, field)];
            ++counted.records;
            counted.hosts.insert(host.id);
        });
    std::vector<std::pair<std::optional<std::string>, Counted>> sorted(values.begin(), values.end());
    std::ranges::stable_sort(sorted, std::greater<>(), [](const auto& each) { return each.second.records; });
    tool::Table table({field.name, "RECORDS", "HOSTS"});
    for (const auto& [value, counted] : sorted) {
        if (!context.output.style.json) {
            table.row({value ? tool::cell(*value) : std::string(tool::ABSENT), fmt::format("{}", counted.records),
                       fmt::format("{}", counted.hosts.size())});
            continue;
        }
        Json object{{"type", kind.name}, {"field", field.name}};
        if (value) {
            tool::putText(object, "value", *value);
        } else {
            object["value"] = nullptr;
        }
        object["records"] = counted.records;
        object["hosts"] = counted.hosts.size();
        context.output.json(object);
    }
    if (!context.output.style.json && !sorted.empty()) {
        table.print(context.output);
    }
    return damaged ? tool::EXIT_DAMAGED : sorted.empty() ? tool::EXIT_NEGATIVE : tool::EXIT_DONE;
}

tool::Action declareCount(tool::Parser& parser) {
    auto words = std::make_shared<CountWords>();
    parser.required("TYPE", words->type, "service, instance or variable");
    parser.required("FIELD", words->field, "one of its fields");
    parser.footer("\"-\" is a field that is absent, and \"\"\"\" one that is empty. Exits 1 when there is no record.");
    return [words](tool::Context& context) { return count(context, *words); };
}

}  // namespace

std::span<const tool::Command> findCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"find", "records of all machines that fit", tool::USES_CONFIG, declareFind},
        {"count", "what values a field has, and on how many machines", tool::USES_CONFIG, declareCount},
    };
    return COMMANDS;
}

}  // namespace fleet

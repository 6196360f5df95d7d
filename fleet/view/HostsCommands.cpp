#include <fmt/core.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "base/Answers.h"
#include "base/Text.h"
#include "mirror/Keys.h"
#include "mirror/Packing.h"
#include "mirror/Times.h"
#include "records/RecordTable.h"
#include "view/View.h"
#include "view/ViewCommands.h"

namespace fleet {
namespace {

using tool::Json;

// A clock of another machine is that far before this one at most; a value that is written later tells nothing.
constexpr long long CLOCKS_APART = 5LL * 60;

struct HostRow {
    HostLook look;
    std::string name;
    std::optional<long long> heard;  // when anything was heard of it last

    [[nodiscard]] bool isAliveNow() const { return look.state == HostState::ALIVE || look.state == HostState::CLASH; }
    [[nodiscard]] std::size_t records() const {
        std::size_t count = 0;
        for (const MirroredRegistry& registry : look.value->registries) {
            count += registry.records.size();
        }
        return count;
    }
};

std::optional<long long> heardOf(const View& view, const HostLook& look, long long now) {
    const KnownHost* const known = view.known.find(look.id);
    std::optional<long long> heard = known == nullptr ? std::nullopt : known->alive;
    const auto written = look.value ? secondsOf(look.value->time) : std::nullopt;
    if (written && *written <= now + CLOCKS_APART) {
        heard = std::max(heard.value_or(*written), *written);
    }
    return heard;
}

// "30s", "5m", "1h", "2d" in seconds.
long long ageOf(const std::string& text) {
    constexpr std::string_view UNITS = "smhd";
    constexpr long long SECONDS[] = {1, 60, 3600, 86400};
    constexpr std::size_t MOST_DIGITS = 9;
    const std::size_t digits = text.find_first_not_of("0123456789");
    const std::size_t unit = digits == std::string::npos ? digits : UNITS.find(text[digits]);
    if (digits == 0 || unit == std::string::npos || digits + 1 != text.size() || digits > MOST_DIGITS) {
        throw tool::usageFailure(fmt::format("--stale {} is no age", tool::cell(text)), "30s, 5m, 1h or 2d");
    }
    return std::stoll(text) * SECONDS[unit];
}

struct HostsWords {
    std::optional<std::string> stale;
    std::string state;
};

// Those that are there and those that were, by their names.
std::vector<HostRow> rowsOf(View& view, const HostsWords& words, long long now) {
    const long long age = words.stale ? ageOf(*words.stale) : 0;
    std::vector<std::string> ids = view.picture.ids();
    for (const auto& [id, ignored] : view.known.hosts()) {
        if (!view.picture.has(id)) {
            ids.push_back(id);
        }
    }
    std::vector<HostRow> rows;
    for (const std::string& id : ids) {
        HostRow row{view.picture.look(id), {}, {}};
        if (row.look.state != HostState::MISSING) {
            view.remember(row.look, now);
        }
        row.name = view.nameOfHost(row.look);
        row.heard = row.isAliveNow() ? std::optional(now) : heardOf(view, row.look, now);
        const bool isStale = !row.heard || (!row.isAliveNow() && now - *row.heard > age);
        if ((words.state.empty() || words.state == nameOf(row.look.state)) && (!words.stale || isStale)) {
            rows.push_back(std::move(row));
        }
    }
    std::ranges::stable_sort(rows, std::less<>(), &HostRow::name);
    return rows;
}

// As many digits as tell all of them apart.
std::size_t digitsApart(const std::vector<HostRow>& rows) {
    constexpr std::size_t FEWEST = 8;
    std::vector<std::string> ids;
    for (const HostRow& row : rows) {
        ids.push_back(row.look.id);
    }
    std::ranges::sort(ids);
    std::size_t digits = FEWEST;
    for (std::size_t i = 1; i < ids.size(); ++i) {
        const auto differs = std::ranges::mismatch(ids[i - 1], ids[i]).in1 - ids[i - 1].begin();
        digits = std::max(digits, static_cast<std::size_t>(differs) + 1);
    }
    return digits;
}

void printRows(tool::Output& output, const std::vector<HostRow>& rows, long long now) {
    const std::size_t digits = digitsApart(rows);
    tool::Table table({"HOST", "ID", "STATE", "HEARD", "SEQUENCE", "RECORDS", "ERRORS"});
    for (const HostRow& row : rows) {
        const auto of = [&](std::size_t count) { return row.look.value ? fmt::format("{}", count) : "-"; };
        const bool sound = row.look.value.has_value();
        table.row({row.name.empty() ? std::string(tool::ABSENT) : tool::cell(row.name), row.look.id.substr(0, digits),
                   std::string(nameOf(row.look.state)),
                   row.isAliveNow() ? "now"
                   : row.heard      ? tool::duration(now - *row.heard) + " ago"
                                    : "-",
                   of(sound ? row.look.value->sequence : 0), of(sound ? row.records() : 0),
                   of(sound ? row.look.value->errors.size() : 0)});
    }
    table.print(output);
}

Json registriesOf(const HostValue& value) {
    Json all = Json::array();
    for (const MirroredRegistry& registry : value.registries) {
        Json told = Json::object();
        tool::putText(told, "path", registry.path);
        told["records"] = registry.records.size();
        all.push_back(std::move(told));
    }
    return all;
}

Json errorsOf(const HostValue& value) {
    Json all = Json::array();
    for (const RegistryError& error : value.errors) {
        Json told = Json::object();
        tool::putText(told, "path", error.path);
        told["kind"] = error.kind;
        tool::putText(told, "message", error.message);
        all.push_back(std::move(told));
    }
    return all;
}

Json rowObject(const HostRow& row) {
    const auto& value = row.look.value;
    Json object{{"id", row.look.id}};
    if (row.name.empty()) {
        object["hostName"] = nullptr;
    } else {
        tool::putText(object, "hostName", row.name);
    }
    object["state"] = nameOf(row.look.state);
    object["heard"] = row.heard ? Json(timeOf(*row.heard)) : Json();
    object["time"] = value ? Json(value->time) : Json();
    object["writer"] = value ? Json(value->writer) : Json();
    object["sequence"] = value ? Json(value->sequence) : Json();
    object["records"] = value ? Json(row.records()) : Json();
    object["registries"] = value ? registriesOf(*value) : Json();
    object["errors"] = value ? errorsOf(*value) : Json();
    object["damage"] = row.look.damage.empty() ? Json() : Json(row.look.damage);
    Json writers = Json::array();
    for (const std::string& writer : row.look.writers) {
        writers.push_back(writer);
    }
    object["clash"] = row.look.writers.empty() ? Json() : writers;
    return object;
}

// What a row alone does not say. Whether a value is damaged.
bool tellOf(View& view, const HostRow& row) {
    const std::string key = view.keyOf(row.look.id);
    std::string writers;
    for (const std::string& writer : row.look.writers) {
        writers += (writers.empty() ? "" : ", ") + writerWords(writer);
    }
    if (!writers.empty()) {
        view.context.output.note(
            "clash", key,
            fmt::format("two machines go by this id ({}): on the clone genreg-fleet enrol --anew, on "
                        "the other one genreg-fleet publish --once --take-over",
                        writers));
    }
    if (!row.look.hasValue && row.look.state == HostState::ALIVE) {
        view.context.output.note("no-value", key, "the host is alive and has no value yet");
    }
    return view.tellDamage(row.look);
}

int emptyStore(View& view) {
    const std::size_t known = view.known.hosts().size();
    view.context.output.note(
        "no-hosts", hostsPrefix(view.settings.prefix),
        known == 0 ? "the store holds no host, and none was known"
                   : fmt::format("the store holds no host, and {} known: was it wiped, or is this another prefix?",
                                 known == 1 ? "one is" : fmt::format("{} are", known)));
    return tool::EXIT_NEGATIVE;
}

int hosts(tool::Context& context, const HostsWords& words) {
    View view(context);
    const long long now = secondsNow();
    view.list();
    const std::vector<HostRow> rows = rowsOf(view, words, now);
    if (context.output.style.json) {
        for (const HostRow& row : rows) {
            context.output.json(rowObject(row));
        }
    } else if (!rows.empty()) {
        printRows(context.output, rows, now);
    }
    int status = tool::EXIT_DONE;
    for (const HostRow& row : rows) {
        status = tellOf(view, row) ? tool::EXIT_DAMAGED : status;
    }
    status = view.tellFull() ? tool::EXIT_WRITE_FAILED : status;
    if (view.picture.empty()) {
        return emptyStore(view);
    }
    view.saveKnown();
    return status;
}

tool::Action declareHosts(tool::Parser& parser) {
    auto words = std::make_shared<HostsWords>();
    parser.option("--stale", "AGE", words->stale, "only those that nothing was heard of for so long: 30s, 5m, 1h, 2d");
    parser.choice("--state", "STATE", {"alive", "silent", "missing", "clash"}, words->state,
                  "only those of this state");
    parser.footer(
        "alive: its publisher runs. silent: there is a value, and nobody keeps it. missing: it was there once.\n"
        "clash: two machines write under its id. Exits 1 when the store holds no host at all, 7 when a value is\n"
        "damaged, with all the others told, and 8 when the store is full: hosts that are well may be silent then.");
    return [words](tool::Context& context) { return hosts(context, *words); };
}

// --- one of them -----------------------------------------------------------------------------------------------------

void printHead(tool::Output& output, const HostLook& look) {
    const HostValue& value = *look.value;
    tool::Table table({"FIELD", "VALUE"});
    table.row({"host", tool::cell(value.hostName)});
    table.row({"id", value.id});
    table.row({"state", std::string(nameOf(look.state))});
    table.row({"time", value.time});
    table.row({"writer", value.writer});
    table.row({"sequence", fmt::format("{}", value.sequence)});
    for (const std::string& nonce : value.tookOver) {
        table.row({"took over from", nonce});
    }
    for (const RegistryError& error : value.errors) {
        table.row({fmt::format("{}", tool::cell(error.path)),
                   fmt::format("{}: {}", tool::cell(error.kind), tool::printable(error.message))});
    }
    table.print(output);
}

void printRegistry(tool::Output& output, const MirroredRegistry& registry) {
    output.line("");
    output.line(fmt::format("{}: {}", tool::cell(registry.path), tool::counted(registry.records.size(), "record")));
    for (const unsigned int type : {GLOBALREG_SERVICE, GLOBALREG_INSTANCE, GLOBALREG_VARIABLE}) {
        tool::RecordTable table(tool::kindOf(type));
        eachRecord(registry, &tool::kindOf(type), [&](const tool::FoundRecord& record) { table.row(record); });
        if (!table.empty()) {
            output.line("");
            output.line(std::string(tool::kindOf(type).name));
            table.print(output);
        }
    }
}

int show(tool::Context& context, const std::string& word) {
    View view(context);
    view.listHosts();
    const std::string id = view.hostFor(word);
    HostLook look = view.picture.look(id);
    look.value = view.valueOf(id);
    (void)view.tellDamage(look);
    if (context.output.style.json) {
        const HostContent content = contentOf(look.value->errors, look.value->registries);
        context.output.json(Json::parse(unpacked(encode(*look.value, content))));
        return tool::EXIT_DONE;
    }
    printHead(context.output, look);
    for (const MirroredRegistry& registry : look.value->registries) {
        printRegistry(context.output, registry);
    }
    return tool::EXIT_DONE;
}

tool::Action declareShow(tool::Parser& parser) {
    auto host = std::make_shared<std::string>();
    parser.required("HOST", *host, "its name, its id, or four digits or more that its id begins with");
    return [host](tool::Context& context) { return show(context, *host); };
}

struct ForgetWords {
    std::string host;
    bool alive = false;
};

int forget(tool::Context& context, const ForgetWords& words) {
    View view(context);
    view.list();
    const std::string id = view.hostFor(words.host);
    const HostLook look = view.picture.look(id);
    const std::string known = view.nameOfHost(look);
    const std::string name = known.empty() ? id : known;
    const bool isAlive = look.state == HostState::ALIVE || look.state == HostState::CLASH;
    if (isAlive && !words.alive) {
        throw tool::answer("alive", tool::EXIT_CONFLICT, 0, name, "the host is alive and would be there again at once",
                           "end its publisher first, or --alive");
    }
    if (!context.options.yes) {
        tool::confirm(name, fmt::format("forget the host {}", id));
    }
    std::int64_t removed = 0;
    askStore(context, view.store, [&] {
        removed += view.store.remove({registryKey(view.settings.prefix, id), aliveKey(view.settings.prefix, id)});
    });
    view.forget(id);
    view.saveKnown();
    if (context.output.style.json) {
        Json object{{"id", id}};
        tool::putText(object, "hostName", known);
        object["removed"] = removed;
        context.output.json(object);
    } else {
        context.output.note("forgotten", name,
                            removed == 0 ? "the store had nothing of it; it is known no more"
                                         : "it is out of the store, and known no more");
    }
    return tool::EXIT_DONE;
}

tool::Action declareForget(tool::Parser& parser) {
    auto words = std::make_shared<ForgetWords>();
    parser.required("HOST", words->host, "its name, its id, or four digits or more that its id begins with");
    parser.flag("--alive", words->alive, "even one whose publisher runs");
    return [words](tool::Context& context) { return forget(context, *words); };
}

}  // namespace

std::span<const tool::Command> hostsCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"hosts", "all machines, and how they stand", tool::USES_CONFIG, declareHosts},
        {"show", "what a machine's registries hold", tool::USES_CONFIG, declareShow},
        {"forget", "take a machine out of the store", tool::USES_CONFIG | tool::USES_YES, declareForget},
    };
    return COMMANDS;
}

}  // namespace fleet

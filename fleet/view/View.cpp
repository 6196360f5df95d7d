#include "view/View.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "global/GlobalBatch.h"
#include "mirror/Keys.h"
#include "mirror/Times.h"

namespace fleet {
namespace {

constexpr std::size_t FEWEST_DIGITS = 4;
constexpr std::size_t MOST_COMPARED = 50000;

std::string fromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string stateFolder() {
    if (const std::string folder = fromEnvironment("XDG_STATE_HOME"); folder.starts_with('/')) {
        return folder + "/genreg-fleet";
    }
    const std::string home = fromEnvironment("HOME");
    return tool::isSuperuser() || home.empty() ? "/var/lib/genreg-fleet" : home + "/.local/state/genreg-fleet";
}

// One for each picture that there is: hosts of another store are not missing from this one.
std::string knownPathOf(const Settings& settings) {
    std::vector<std::string> endpoints = settings.access.endpoints;
    std::ranges::sort(endpoints);
    std::string place = settings.prefix;
    for (const std::string& endpoint : endpoints) {
        place += "\n" + endpoint;
    }
    constexpr std::size_t DIGITS = 16;
    return fmt::format("{}/{}/known", stateFolder(), sha256(place).substr(0, DIGITS));
}

bool isBeginning(const std::string& word) {
    return word.size() >= FEWEST_DIGITS && word.find_first_not_of("0123456789abcdef") == std::string::npos;
}

tool::Failure damagedValue(const std::string& key, const std::string& message) {
    return tool::answer("damaged-value", tool::EXIT_DAMAGED, 0, key, message,
                        "genreg-fleet publish --once on that host writes it anew");
}

}  // namespace

View::View(tool::Context& around)
    : context(around),
      settings(readSettings(around)),
      store(settings.access),
      picture(settings.prefix),
      knownPath_(knownPathOf(settings)) {
    try {
        known.read(knownPath_);
    } catch (const tool::Failure& failure) {
        context.output.note("forgotten", knownPath_, "which hosts were seen before cannot be read: " + failure.message);
    }
}

void View::read() {
    Picture read(settings.prefix);
    head = store.list(hostsPrefix(settings.prefix),
                      [&](StoredValue&& stored) { (void)read.put(stored.key, stored.value); });
    picture = std::move(read);
}

void View::list() {
    askStore(context, store, [&] { read(); });
}

void View::listHosts() {
    list();
    if (picture.empty()) {
        throw tool::answer("no-hosts", tool::EXIT_NEGATIVE, 0, hostsPrefix(settings.prefix), "the store holds no host",
                           "genreg-fleet hosts, which shows those that were known");
    }
}

std::vector<View::Named> View::named() const {
    std::vector<Named> all;
    for (const std::string& id : picture.ids()) {
        all.push_back({id, nameOfHost(picture.look(id))});
    }
    for (const auto& [id, host] : known.hosts()) {
        if (!picture.has(id)) {
            all.push_back({id, host.hostName});
        }
    }
    return all;
}

std::vector<std::string> View::idsByName() const {
    std::vector<Named> all;
    for (const std::string& id : picture.ids()) {
        const KnownHost* const before = known.find(id);
        const bool isNamed = before != nullptr && !before->hostName.empty();
        all.push_back({id, isNamed ? before->hostName : nameOfHost(picture.look(id))});
    }
    std::ranges::sort(all, {}, [](const Named& host) { return std::tie(host.name, host.id); });
    std::vector<std::string> ids;
    for (Named& host : all) {
        ids.push_back(std::move(host.id));
    }
    return ids;
}

std::string View::hostFor(const std::string& word) const {
    if (isHostId(word) && (picture.has(word) || known.find(word) != nullptr)) {
        return word;
    }
    const std::vector<Named> all = named();
    std::vector<std::string> names;
    std::vector<Named> meant;
    for (const Named& each : all) {
        names.push_back(each.name);
        if (each.name == word || (isBeginning(word) && each.id.starts_with(word))) {
            meant.push_back(each);
        }
    }
    if (meant.empty()) {
        const std::string near = tool::nearest(word, names);
        throw tool::answer("not-found", tool::EXIT_NEGATIVE, 0, hostsPrefix(settings.prefix),
                           fmt::format("there is no host {}", tool::cell(word)),
                           near.empty() ? "genreg-fleet hosts" : tool::printable(near));
    }
    if (meant.size() > 1) {
        std::string ids;
        for (const Named& each : meant) {
            ids += (ids.empty() ? "" : ", ") + each.id;
        }
        throw tool::answer("several", tool::EXIT_CONFLICT, 0, hostsPrefix(settings.prefix),
                           fmt::format("{} hosts are called {}: {}", meant.size(), tool::cell(word), ids),
                           "name one by its id");
    }
    return meant.front().id;
}

HostValue View::valueOf(const std::string& id) const {
    HostLook look = picture.look(id);
    if (look.value) {
        return std::move(*look.value);
    }
    if (look.hasValue) {
        throw damagedValue(keyOf(id), look.damage);
    }
    throw tool::answer("not-found", tool::EXIT_NEGATIVE, 0, keyOf(id),
                       look.state == HostState::MISSING ? "the store has nothing of this host any more"
                                                        : "the host is alive and has no value yet",
                       "genreg-fleet hosts");
}

std::string View::nameOfHost(const HostLook& look) const {
    if (look.value) {
        return look.value->hostName;
    }
    const KnownHost* const host = known.find(look.id);
    return host == nullptr ? "" : host->hostName;
}

bool View::tellDamage(const HostLook& look) {
    if (!look.damage.empty()) {
        tellDamage(look.id, look.damage);
    }
    return !look.damage.empty();
}

void View::tellDamage(const std::string& id, const std::string& damage) {
    context.output.note("damaged-value", keyOf(id), damage);
}

bool View::tellFull() {
    if (!picture.hasSilent()) {
        return false;
    }
    constexpr std::int64_t SHORT = 5;  // seconds, should it not be taken back
    try {
        store.revoke(store.grant(SHORT).id);
    } catch (const StoreFailure& failure) {
        if (failure.trouble == Trouble::FULL) {
            context.output.note("store-full", failure.endpoint,
                                "the store is full: hosts are shown as silent that are well, since it grants no lease");
            return true;
        }
        // What else is wrong is no reason for anybody's silence.
    }
    return false;
}

std::string View::keyOf(const std::string& id) const {
    return registryKey(settings.prefix, id);
}

void View::remember(const HostLook& look, long long time) {
    known.remember(look, time);
}

void View::forget(const std::string& id) {
    known.forget(id);
}

void View::saveKnown() {
    try {
        known.write(knownPath_);
    } catch (const tool::Failure& failure) {
        context.output.note("forgotten", knownPath_, failure.message);
    }
}

std::vector<std::string> knownNames(const tool::Context& context) {
    Known known;
    known.read(knownPathOf(readSettings(context)));
    std::vector<std::string> names;
    for (const auto& [id, host] : known.hosts()) {
        names.push_back(host.hostName.empty() ? id : host.hostName);
    }
    return names;
}

std::string placeOf(const std::string& host, const std::string& path) {
    return host + ":" + path;
}

void eachRecord(const MirroredRegistry& registry, const tool::RecordKind* kind,
                const std::function<void(const tool::FoundRecord& record)>& take) {
    std::size_t number = 0;
    for (const tool::Json& record : registry.records) {
        ++number;
        const auto isOf = [&](const tool::RecordKind& wanted) {
            return record.contains("type") && record["type"] == tool::Json(wanted.name);
        };
        if (kind != nullptr && !isOf(*kind)) {
            continue;
        }
        try {
            take(tool::recordOf(tool::changeOf(registry.path, number, record)));
        } catch (tool::Failure& failure) {
            if (failure.exitStatus != tool::EXIT_INVALID) {
                throw;
            }
            failure.kind = "damaged-value";
            failure.exitStatus = tool::EXIT_DAMAGED;
            throw;
        }
    }
}

std::vector<tool::FoundRecord> recordsOf(const MirroredRegistry& registry) {
    if (registry.records.size() > MOST_COMPARED) {
        throw damagedValue(registry.path,
                           fmt::format("it has {} records, more than {}", registry.records.size(), MOST_COMPARED));
    }
    std::vector<tool::FoundRecord> records;
    eachRecord(registry, nullptr, [&](const tool::FoundRecord& record) { records.push_back(record); });
    return records;
}

const RegistryError* unreadAt(const HostValue& value, const std::string& path) {
    const auto is = [&](const RegistryError& error) { return error.path == path || error.kind == "too-large"; };
    const auto found = std::ranges::find_if(value.errors, is);
    return found == value.errors.end() ? nullptr : &*found;
}

void refuseUnread(const HostValue& value, const std::string& path) {
    if (const RegistryError* const error = unreadAt(value, path)) {
        throw tool::answer("unread", tool::EXIT_DAMAGED, 0, placeOf(value.hostName, error->path),
                           "its host could not mirror it: " + tool::printable(error->message),
                           "look at it on that host: genreg check, genreg-fleet status");
    }
}

const MirroredRegistry& registryOf(const HostValue& value, const std::string& path) {
    constexpr std::string_view GLOBAL = "/global.reg";
    std::vector<const MirroredRegistry*> found;
    std::string paths;
    for (const MirroredRegistry& registry : value.registries) {
        paths += (paths.empty() ? "" : ", ") + tool::printable(registry.path);
        if (path.empty() || registry.path == path) {
            found.push_back(&registry);
        }
    }
    if (found.size() > 1) {
        std::erase_if(found, [&](const MirroredRegistry* each) { return !each->path.ends_with(GLOBAL); });
    }
    if (found.size() == 1) {
        return *found.front();
    }
    if (found.empty()) {
        refuseUnread(value, path.empty() && !value.errors.empty() ? value.errors.front().path : path);
    }
    throw tool::answer(paths.empty() || !path.empty() ? "not-found" : "several",
                       paths.empty() || !path.empty() ? tool::EXIT_NEGATIVE : tool::EXIT_CONFLICT, 0, value.hostName,
                       paths.empty()   ? "it mirrors no registry"
                       : !path.empty() ? fmt::format("it mirrors no registry {}", tool::printable(path))
                                       : "it mirrors several registries",
                       paths.empty() ? "genreg-fleet show" : "--path with one of " + paths);
}

const tool::RecordKind& kindFor(const std::string& word) {
    std::vector<std::string> names;
    for (const unsigned int type : {GLOBALREG_SERVICE, GLOBALREG_INSTANCE, GLOBALREG_VARIABLE}) {
        names.emplace_back(tool::kindOf(type).name);
        if (names.back() == word) {
            return tool::kindOf(type);
        }
    }
    const std::string near = tool::nearest(word, names);
    throw tool::usageFailure(fmt::format("there is no TYPE {}", tool::cell(word)),
                             near.empty() ? "service, instance or variable" : near);
}

}  // namespace fleet

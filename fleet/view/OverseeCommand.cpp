// Tells what changes on all machines, as `genreg watch` does of one registry.
#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <set>

#include "base/Text.h"
#include "mirror/Keys.h"
#include "mirror/Times.h"
#include "records/RecordChanges.h"
#include "system/System.h"
#include "view/View.h"
#include "view/ViewCommands.h"

namespace fleet {
namespace {

using tool::Json;

constexpr int LOOK_MILLISECONDS = 300;  // how soon a signal is heard

using Records = std::vector<Json>;

const Records* recordsAt(const HostLook& look, const std::string& path) {
    if (look.value) {
        for (const MirroredRegistry& registry : look.value->registries) {
            if (registry.path == path) {
                return &registry.records;
            }
        }
    }
    return nullptr;
}

// Whether it has something there that cannot be told.
bool isUnreadAt(const HostLook& look, const std::string& path) {
    return look.value ? unreadAt(*look.value, path) != nullptr : look.hasValue;
}

// What is told of a host besides its records.
Json facetsOf(const HostLook& look) {
    Json facets{{"state", nameOf(look.state)}, {"damage", look.damage.empty() ? Json() : Json(look.damage)}};
    Json unread = Json::array();
    if (look.value) {
        for (const RegistryError& error : look.value->errors) {
            unread.push_back(tool::printable(error.path + ": " + error.message));
        }
    }
    facets["unread"] = std::move(unread);
    return facets;
}

std::string facetText(const Json& facet) {
    return facet.is_null() || (facet.is_array() && facet.empty()) ? std::string(tool::ABSENT)
           : facet.is_string()                                    ? facet.get<std::string>()
                                                                  : facet.dump();
}

std::string textOf(const tool::ToldChange& change) {
    std::string text = "host ";
    for (const Json::Member& facet : (change.after.is_null() ? change.before : change.after).items()) {
        const bool both = !change.before.is_null() && !change.after.is_null();
        const std::string now = facetText(facet.value);
        const std::string was = both ? facetText(change.before[facet.key]) : std::string(tool::ABSENT);
        if (both && was != now) {
            text += fmt::format(" {}: {} -> {}", facet.key, was, now);
        } else if (!both && now != tool::ABSENT) {
            text += fmt::format(" {}={}", facet.key, now);
        }
    }
    return text;
}

class Overseer {
public:
    Overseer(View& view, const tool::WatchSignals& signals)
        : view_(view), output_(view.context.output), signals_(signals) {}

    void begin() {
        view_.list();
        lastReached_ = secondsNow();
        for (const std::string& id : view_.picture.ids()) {
            const HostLook look = view_.picture.look(id);
            view_.remember(look, lastReached_);
            (void)view_.tellDamage(look);
        }
        view_.saveKnown();
        output_.note(
            "watching", hostsPrefix(view_.settings.prefix),
            fmt::format("watching {}; ^C or SIGTERM ends it", tool::counted(view_.picture.ids().size(), "host")));
    }

    void run() {
        while (!signals_.endAsked()) {
            try {
                if (mustList_) {
                    listAnew();
                }
                StoreWatch watch(view_.store, hostsPrefix(view_.settings.prefix), view_.head.revision + 1, view_.head);
                tellReached();
                follow(watch);
            } catch (const StoreFailure& failure) {
                take(failure);
            }
        }
        for (const std::string& id : view_.picture.ids()) {
            view_.remember(view_.picture.look(id), lastReached_);
        }
        view_.saveKnown();
    }

private:
    void follow(StoreWatch& watch) {
        while (!signals_.endAsked()) {
            if (const auto news = watch.next(LOOK_MILLISECONDS)) {
                failures_ = 0;
                lastReached_ = secondsNow();
                take(*news);
            }
            signals_.wait(0);
        }
    }

    // What was changed at once is told as one.
    void take(const StoreWatch::News& news) {
        auto at = news.events.begin();
        while (at != news.events.end()) {
            const auto revision = at->now.modRevision;
            const auto end =
                std::find_if(at, news.events.end(), [&](const auto& each) { return each.now.modRevision != revision; });
            std::map<std::string, HostLook> before;
            for (; at != end; ++at) {
                if (const auto key = hostKeyOf(view_.settings.prefix, at->now.key)) {
                    before.try_emplace(key->id, view_.picture.look(key->id));
                    (void)(at->deleted ? view_.picture.erase(at->now.key)
                                       : view_.picture.put(at->now.key, at->now.value));
                }
            }
            for (const auto& [id, look] : before) {
                tell(look, view_.picture.look(id), false);
            }
        }
        view_.head.revision = std::max(view_.head.revision, news.revision);
    }

    void take(const StoreFailure& failure) {
        ++failures_;
        if (failure.trouble == Trouble::COMPACTED || failure.trouble == Trouble::RESET) {
            mustList_ = true;
            output_.note("listed", failure.endpoint,
                         fmt::format("all is read anew: {}", tool::printable(failure.message)));
        } else if (failure.trouble != Trouble::UNREACHED) {
            throw failureOf(failure);
        } else if (!unreached_) {
            unreached_ = true;
            output_.note("unreached", failure.endpoint,
                         fmt::format("the store is not reached any more ({}); it is tried again and again",
                                     tool::printable(failure.message)));
        }
        const std::size_t endpoints = view_.settings.access.endpoints.size();
        if (failures_ >= endpoints) {
            pause(jitter(static_cast<unsigned int>(failures_ - endpoints + 1)));
        }
    }

    void pause(double seconds) const {
        for (int left = static_cast<int>(seconds * 1000); left > 0 && !signals_.endAsked(); left -= LOOK_MILLISECONDS) {
            signals_.wait(std::min(left, LOOK_MILLISECONDS));
        }
    }

    void tellReached() {
        if (unreached_) {
            unreached_ = false;
            output_.note("reached", view_.store.endpoint(), "the store is there again");
        }
    }

    // What became of everything meanwhile. A store without any host is no proof that they are gone.
    void listAnew() {
        const Picture before = view_.picture;
        view_.read();
        mustList_ = false;
        lastReached_ = secondsNow();
        const bool wiped = view_.picture.empty() && !before.empty();
        if (wiped) {
            output_.note("no-hosts", hostsPrefix(view_.settings.prefix),
                         "the store holds no host any more: was it wiped, or is this another one?");
        }
        std::set<std::string> ids;
        for (const Picture* const picture : {&before, static_cast<const Picture*>(&view_.picture)}) {
            for (const std::string& id : picture->ids()) {
                ids.insert(id);
            }
        }
        for (const std::string& id : ids) {
            tell(before.look(id), view_.picture.look(id), wiped);
        }
    }

    // lost: it is not there, and nobody said that it went.
    void tell(const HostLook& before, const HostLook& after, bool lost) {
        const bool was = before.state != HostState::MISSING || lost_.contains(after.id);
        const bool is = after.state != HostState::MISSING || lost;
        if (lost) {
            lost_.insert(after.id);
        } else {
            lost_.erase(after.id);
        }
        if (after.state != HostState::MISSING) {
            view_.remember(after, lastReached_);
        }
        const std::string name = view_.nameOfHost(after);
        tool::ToldChange change{"host"};
        change.before = was ? facetsOf(before) : Json();
        change.after = is ? facetsOf(after) : Json();
        if (!(change.before == change.after)) {
            change.text = textOf(change);
            print(after.id, name, view_.keyOf(after.id), change);
            view_.saveKnown();
            isFull_ =
                after.state == HostState::SILENT ? isFull_ || view_.tellFull() : isFull_ && view_.picture.hasSilent();
        }
        tellRegistries(before, after, name, lost);
    }

    void tellRegistries(const HostLook& before, const HostLook& after, const std::string& name, bool lost) {
        std::map<std::string, Records>& kept = kept_[after.id];
        std::set<std::string> paths;
        for (const auto& [path, ignored] : kept) {
            paths.insert(path);
        }
        for (const HostLook* const look : {&before, &after}) {
            for (std::size_t i = 0; look->value && i < look->value->registries.size(); ++i) {
                paths.insert(look->value->registries[i].path);
            }
        }
        for (const std::string& path : paths) {
            const Records* old = recordsAt(before, path);
            if (old != nullptr) {
                kept.try_emplace(path, *old);
            }
            const auto at = kept.find(path);
            const Records* const now = recordsAt(after, path);
            if (now == nullptr && (lost || isUnreadAt(after, path))) {
                continue;  // until it can be read again, and is held against what is kept
            }
            const bool isKnown = at != kept.end() || !isUnreadAt(before, path);
            const MirroredRegistry was{path, at != kept.end() ? at->second : Records()};
            if (!isKnown || tellRecords(after.id, name, was, {path, now != nullptr ? *now : Records()})) {
                kept.erase(path);
            }
        }
        if (kept.empty()) {
            kept_.erase(after.id);
        }
    }

    // False: what is there now cannot be told from before.
    bool tellRecords(const std::string& id, const std::string& name, const MirroredRegistry& before,
                     const MirroredRegistry& after) {
        if (before.records == after.records) {
            return true;
        }
        std::vector<tool::FoundRecord> now;
        std::string damage;
        if (!isRead(after, now, damage)) {
            view_.tellDamage(id, damage);
            return false;
        }
        std::vector<tool::FoundRecord> was;
        if (isRead(before, was, damage)) {
            for (const tool::ToldChange& change : tool::changesOfRecords(was, now)) {
                print(id, name, after.path, change);
            }
        }
        return true;
    }

    static bool isRead(const MirroredRegistry& registry, std::vector<tool::FoundRecord>& records, std::string& damage) {
        try {
            records = recordsOf(registry);
            return true;
        } catch (const tool::Failure& failure) {
            if (failure.exitStatus != tool::EXIT_DAMAGED) {
                throw;
            }
            damage = failure.message;
            return false;
        }
    }

    void print(const std::string& id, const std::string& name, const std::string& path,
               const tool::ToldChange& change) {
        const std::string time = timeOf(secondsNow());
        if (output_.style.json) {
            Json object{{"time", time}, {"host", id}};
            tool::putText(object, "hostName", name);
            object.update(tool::changeObject(change, view_.context.operation, path, false));
            output_.json(object);
        } else {
            output_.line(fmt::format("{}  {}  {:<7}  {}", time, name.empty() ? id : tool::printable(name),
                                     change.action(), change.text));
        }
        output_.deliver();
    }

    View& view_;
    tool::Output& output_;
    const tool::WatchSignals& signals_;
    bool mustList_ = false;
    bool unreached_ = false;
    bool isFull_ = false;  // and that was told
    std::size_t failures_ = 0;
    long long lastReached_ = 0;
    std::set<std::string> lost_;
    std::map<std::string, std::map<std::string, Records>> kept_;  // by host and path, of what cannot be read now
};

int watch(tool::Context& context) {
    const tool::WatchSignals signals(false);
    View view(context);
    Overseer overseer(view, signals);
    overseer.begin();
    overseer.run();
    return tool::EXIT_DONE;
}

tool::Action declareWatch(tool::Parser& parser) {
    parser.footer(
        "Tells of records that are added, changed or deleted on any machine, and of machines that are new, fall "
        "silent,\n"
        "are forgotten, or whose value is damaged. While the store is not reached it is tried again and again; what\n"
        "happened meanwhile is told then.");
    return [](tool::Context& context) { return watch(context); };
}

}  // namespace

std::span<const tool::Command> overseeCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"watch", "print each change on any machine", tool::USES_CONFIG, declareWatch},
    };
    return COMMANDS;
}

}  // namespace fleet

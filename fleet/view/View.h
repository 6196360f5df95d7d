// What the commands of this room have in common: the store as it is now, what was known of it before, and which host a
// word means.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "base/Command.h"
#include "mirror/Known.h"
#include "mirror/Picture.h"
#include "records/RecordFields.h"
#include "settings/Settings.h"
#include "store/Store.h"

namespace fleet {

class View {
public:
    // Reads the settings and what is known. Throws a Failure.
    explicit View(tool::Context& context);

    // Reads all of the store. Throws a StoreFailure, and nothing has changed then.
    void read();
    // The same for as long as --wait allows. Throws a Failure.
    void list();
    // The same for those who need a host: none at all is a failure.
    void listHosts();

    // The host that a word means: an id, an unambiguous beginning of one, or a name. Throws a Failure: not found (1) or
    // several (5). Hosts that are missing are meant, too.
    [[nodiscard]] std::string hostFor(const std::string& word) const;
    // Its value. Throws a Failure: none (1), damaged (7).
    [[nodiscard]] HostValue valueOf(const std::string& id) const;
    // By its value, or by what is known of it; empty where nothing says it.
    [[nodiscard]] std::string nameOfHost(const HostLook& look) const;

    // All that are there, in the order of their names: those that were known before by the name of that time.
    [[nodiscard]] std::vector<std::string> idsByName() const;

    // Says what is wrong with the host's values, if anything is. Whether something is.
    bool tellDamage(const HostLook& look);
    // The same of a record that is none.
    void tellDamage(const std::string& id, const std::string& damage);
    [[nodiscard]] std::string keyOf(const std::string& id) const;

    // Says so where the store's space is used up, and hosts that are well fall silent because it grants them no lease.
    // Whether it is so.
    bool tellFull();

    // As it stood at that time.
    void remember(const HostLook& look, long long time);
    void forget(const std::string& id);
    // What cannot be kept is said, and that is all.
    void saveKnown();

    tool::Context& context;
    Settings settings;
    Store store;
    Picture picture;
    Known known;
    StoreHead head;  // of the listing

private:
    struct Named {
        std::string id;
        std::string name;
    };
    [[nodiscard]] std::vector<Named> named() const;

    std::string knownPath_;
};

// The names of the hosts that were seen before, and the ids of those without one: without asking the store. Throws a
// Failure.
[[nodiscard]] std::vector<std::string> knownNames(const tool::Context& context);

// Where a host's registry is, for people: "web1:/var/rvn/global.reg".
[[nodiscard]] std::string placeOf(const std::string& host, const std::string& path);

// The records of a registry as they are found in a file, or only those of a kind (null: all). Throws a Failure
// (damaged-value) for what is none.
void eachRecord(const MirroredRegistry& registry, const tool::RecordKind* kind,
                const std::function<void(const tool::FoundRecord& record)>& take);
[[nodiscard]] std::vector<tool::FoundRecord> recordsOf(const MirroredRegistry& registry);
// The host's registry at the path; where none is given its only one, or the global one among several. Throws a Failure:
// there is none (1), it could not be read on its host (7).
[[nodiscard]] const MirroredRegistry& registryOf(const HostValue& value, const std::string& path);
// Why the host has nothing of that registry although there is something; null: it has all of it. A host that has too
// much for a value has nothing of any.
[[nodiscard]] const RegistryError* unreadAt(const HostValue& value, const std::string& path);
// Throws a Failure (7) where there is such a reason.
void refuseUnread(const HostValue& value, const std::string& path);

// Service, instance or variable. Throws a Failure (usage) with the nearest name.
[[nodiscard]] const tool::RecordKind& kindFor(const std::string& word);

}  // namespace fleet

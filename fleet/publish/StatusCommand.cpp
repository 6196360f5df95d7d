// How this machine stands: who it is, what it has, and what the store has of it.
#include <fmt/core.h>

#include "base/Text.h"
#include "mirror/Keys.h"
#include "publish/Export.h"
#include "publish/Ownership.h"
#include "publish/PublishCommands.h"
#include "settings/Identity.h"
#include "settings/Settings.h"

namespace fleet {
namespace {

// What the store has of this machine.
struct Standpoint {
    ClaimedValue value;
    ClaimedAlive alive;
    bool current = false;  // what is here is what is there

    [[nodiscard]] std::string_view state() const {
        if (alive.isMarked() || value.claim == Claim::CLASH || value.claim == Claim::DISPLACED ||
            alive.claim == Claim::CLASH) {
            return "clash";
        }
        return value.claim == Claim::ABSENT ? "missing" : alive.claim == Claim::ABSENT ? "silent" : "alive";
    }

    [[nodiscard]] int exitStatus() const {
        return state() == "clash"              ? tool::EXIT_CONFLICT
               : state() == "alive" && current ? tool::EXIT_DONE
                                               : tool::EXIT_NEGATIVE;
    }
};

Standpoint standpoint(const tool::Context& context, Store& store, const Settings& settings, const Identity& identity,
                      const Exported& exported) {
    Standpoint stands;
    askStore(context, store, [&] {
        const std::string registries = registryKey(settings.prefix, identity.id);
        const std::string alive = aliveKey(settings.prefix, identity.id);
        std::vector<StoredValue> found;
        (void)store.get({registries, alive}, found);
        stands = {};
        for (const StoredValue& each : found) {
            if (each.key == registries) {
                stands.value = claimOn(each, identity);
            } else {
                stands.alive = claimOnAlive(each, identity, {});
            }
        }
    });
    stands.current = stands.value.written.sha256 == exported.content.sha256;
    return stands;
}

tool::Json registriesOf(const Exported& exported) {
    tool::Json list = tool::Json::array();
    for (const MirroredRegistry& registry : exported.registries) {
        tool::Json object = tool::Json::object();
        tool::putText(object, "path", registry.path);
        object["records"] = registry.records.size();
        list.push_back(std::move(object));
    }
    for (const RegistryError& error : exported.errors) {
        tool::Json object = tool::Json::object();
        tool::putText(object, "path", error.path);
        object["kind"] = error.kind;
        object["message"] = error.message;
        list.push_back(std::move(object));
    }
    return list;
}

void tellJson(tool::Output& output, const Settings& settings, const Identity& identity, const Exported& exported,
              long publisher, const Standpoint& stands, const std::string& endpoint) {
    tool::Json object{{"id", identity.id}};
    tool::putText(object, "hostName", settings.hostName);
    object["publisher"] = publisher == 0 ? tool::Json(nullptr) : tool::Json(publisher);
    object["registries"] = registriesOf(exported);
    object["endpoint"] = endpoint;
    object["state"] = stands.state();
    object["sequence"] = stands.value.written.sequence;
    tool::putText(object, "writer", stands.value.written.writer);
    object["time"] = stands.value.time;
    object["current"] = stands.current;
    output.json(object);
}

void tellHere(tool::Output& output, const Settings& settings, const Identity& identity, const Exported& exported,
              long publisher) {
    output.line(fmt::format("host        {} ({})", tool::cell(settings.hostName), identity.id));
    output.line(fmt::format("publisher   {}", publisher == 0 ? "none runs" : fmt::format("pid {}", publisher)));
    for (const MirroredRegistry& registry : exported.registries) {
        output.line(fmt::format("registry    {}: {}", tool::printable(registry.path),
                                tool::counted(registry.records.size(), "record")));
    }
    for (const RegistryError& error : exported.errors) {
        output.line(fmt::format("registry    {}", tool::printable(error.message)));
    }
}

void tellThere(tool::Output& output, const Standpoint& stands, const std::string& endpoint) {
    output.line(fmt::format("store       {}", endpoint));
    output.line(fmt::format("state       {}", stands.state()));
    if (stands.value.claim == Claim::ABSENT) {
        return;
    }
    if (!stands.value.trouble.empty()) {
        output.line(fmt::format("mirrored    {}", tool::printable(stands.value.trouble)));
        return;
    }
    output.line(fmt::format("mirrored    number {} of {}, by {}: {}", stands.value.written.sequence,
                            tool::printable(stands.value.time), tool::cell(stands.value.hostName),
                            stands.current ? "what is here" : "not what is here now"));
}

int status(tool::Context& context) {
    const Settings settings = readSettings(context);
    const Identity identity = readIdentity(settings.stateFolder);
    const Exported exported = Exporter(context, settings).read();
    const long publisher = runningPublisher(settings.stateFolder);
    tool::Output& output = context.output;
    if (!output.style.json) {
        tellHere(output, settings, identity, exported, publisher);
        output.flush();
    }
    Store store(settings.access);
    const Standpoint stands = standpoint(context, store, settings, identity, exported);
    if (output.style.json) {
        tellJson(output, settings, identity, exported, publisher, stands, store.endpoint());
    } else {
        tellThere(output, stands, store.endpoint());
    }
    return stands.exitStatus();
}

}  // namespace

std::span<const tool::Command> statusCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"status", "how this machine stands, here and in the store", tool::USES_CONFIG,
         [](tool::Parser& parser) -> tool::Action {
             parser.footer(
                 "Exits 0 where the machine is alive in the store with what it has now, 5 where another one goes by "
                 "its "
                 "id,\nelse 1.");
             return status;
         }},
    };
    return COMMANDS;
}

}  // namespace fleet

// Who this machine is in the store, and what the store's administrator has to know of it.
#include <fmt/core.h>

#include <memory>

#include "base/DiskFiles.h"
#include "base/Text.h"
#include "mirror/Keys.h"
#include "publish/PublishCommands.h"
#include "settings/Identity.h"
#include "settings/Settings.h"

namespace fleet {
namespace {

void tell(tool::Context& context, const Settings& settings, const Identity& identity, bool changed) {
    tool::Output& output = context.output;
    if (output.style.json) {
        tool::Json object{{"operation", context.operation}, {"id", identity.id}};
        tool::putText(object, "hostName", settings.hostName);
        tool::putText(object, "stateFolder", settings.stateFolder);
        object["changed"] = changed;
        object["dryRun"] = context.options.dryRun;
        output.json(object);
        return;
    }
    output.line(identity.id);
    if (changed && !context.options.dryRun) {
        output.note(
            "enrolled", settings.stateFolder,
            "this is the CN of the machine's certificate, and its user in the store: genreg-fleet setup --print");
    }
}

int enrol(tool::Context& context, bool anew) {
    const Settings settings = readSettings(context);
    const bool isThere = isEnrolled(settings.stateFolder);
    if (isThere && !anew) {
        tell(context, settings, readIdentity(settings.stateFolder), false);
        context.output.note("unchanged", settings.stateFolder, "the machine is enrolled; --anew gives it another id");
        return tool::EXIT_DONE;
    }
    Identity identity;
    identity.id = randomDigits();
    identity.nonce = randomDigits();
    context.wouldChange = true;
    if (!context.options.dryRun) {
        tool::makeFolder(context.output, settings.stateFolder);
        const PublisherLock lock(settings.stateFolder);
        writeIdentity(context.output, settings.stateFolder, identity);
        context.output.changed = true;
    }
    tell(context, settings, identity, true);
    return tool::EXIT_DONE;
}

// Roles: a host writes its two keys, a viewer reads, an operator deletes what hosts have left.
std::string viewerLines(const Settings& settings) {
    return fmt::format(
        "# Once: who reads, and who deletes what a host has left. Their certificates have these names as CN.\n"
        "etcdctl role add genreg-viewer\n"
        "etcdctl role grant-permission genreg-viewer --prefix=true read {0}\n"
        "etcdctl user add genreg-viewer --no-password\n"
        "etcdctl user grant-role genreg-viewer genreg-viewer\n"
        "etcdctl role add genreg-operator\n"
        "etcdctl role grant-permission genreg-operator --prefix=true readwrite {0}\n"
        "etcdctl user add genreg-operator --no-password\n"
        "etcdctl user grant-role genreg-operator genreg-operator",
        tool::shellWord(settings.prefix));
}

std::string hostLines(const Settings& settings, const std::string& id) {
    return fmt::format(
        "# The host {0}: its two keys, and nothing else.\n"
        "etcdctl role add genreg-host-{0}\n"
        "etcdctl role grant-permission genreg-host-{0} readwrite {1}\n"
        "etcdctl role grant-permission genreg-host-{0} readwrite {2}\n"
        "etcdctl user add {0} --no-password\n"
        "etcdctl user grant-role {0} genreg-host-{0}",
        id, tool::shellWord(registryKey(settings.prefix, id)), tool::shellWord(aliveKey(settings.prefix, id)));
}

constexpr char LAST_LINES[] =
    "# Once, at the end: from then on nobody does anything without an identity.\n"
    "etcdctl user add root --no-password\n"
    "etcdctl user grant-role root root\n"
    "etcdctl auth enable";

struct SetupWords {
    bool print = false;
    std::vector<std::string> ids;
};

int setup(tool::Context& context, const SetupWords& words) {
    if (!words.print) {
        throw tool::usageFailure("setup does nothing by itself", "genreg-fleet setup --print, and look at the lines");
    }
    const Settings settings = readSettings(context);
    std::vector<std::string> ids = words.ids;
    if (ids.empty() && isEnrolled(settings.stateFolder)) {
        ids.push_back(readIdentity(settings.stateFolder).id);
    }
    std::vector<std::string> parts{viewerLines(settings)};
    for (const std::string& id : ids) {
        if (!isHostId(id)) {
            throw tool::usageFailure(fmt::format("{} is no id of a host", tool::cell(id)),
                                     "32 hexadecimal digits, as genreg-fleet enrol prints them");
        }
        parts.push_back(hostLines(settings, id));
    }
    parts.emplace_back(LAST_LINES);
    for (const std::string& part : parts) {
        if (context.output.style.json) {
            context.output.json({{"lines", part}});
        } else {
            context.output.line(part);
        }
    }
    return tool::EXIT_DONE;
}

}  // namespace

std::span<const tool::Command> enrolCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"enrol", "give this machine an id of its own, and print it", tool::USES_CONFIG | tool::USES_DRY_RUN,
         [](tool::Parser& parser) -> tool::Action {
             auto anew = std::make_shared<bool>(false);
             parser.flag("--anew", *anew, "another id than it has: what a clone of a machine needs");
             return [anew](tool::Context& context) { return enrol(context, *anew); };
         }},
        {"setup", "print the commands that give hosts and viewers their rights in the store", tool::USES_CONFIG,
         [](tool::Parser& parser) -> tool::Action {
             auto words = std::make_shared<SetupWords>();
             parser.words("ID", words->ids, "hosts; this one when there is none");
             parser.flag("--print", words->print, "print them, for etcdctl; nothing is run");
             return [words](tool::Context& context) { return setup(context, *words); };
         }},
    };
    return COMMANDS;
}

}  // namespace fleet

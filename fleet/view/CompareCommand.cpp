#include <fmt/core.h>

#include <algorithm>
#include <memory>
#include <set>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "global/GlobalBatch.h"
#include "global/GlobalPath.h"
#include "records/RecordChanges.h"
#include "records/RecordDiff.h"
#include "records/Salvage.h"
#include "view/View.h"
#include "view/ViewCommands.h"

namespace fleet {
namespace {

struct Words {
    std::string host;
    std::string other;
    std::optional<std::string> reference;
    std::string path;
};

// A registry as it is compared: of a host, or of this machine.
struct Side {
    std::string place;
    std::vector<tool::FoundRecord> records;
};

struct Pair {
    std::string path;  // of the first one
    Side before;
    Side after;
};

// A registry file, or what export printed of one.
Side referenceSide(const std::string& file) {
    const std::string bytes = tool::readFile(file, "compare");
    Side side{file, {}};
    if (bytes.empty() || tool::isBinary(bytes)) {
        const tool::SalvagedRegistry registry = tool::takeApart(bytes, true);
        if (!registry.isSound()) {
            throw tool::damageFailure(file, registry);
        }
        side.records = registry.records();
        return side;
    }
    for (const tool::AskedChange& asked : tool::readChanges(file)) {
        if (asked.item.op() == tool::BatchOp::Delete) {
            throw asked.item.failure("a reference deletes nothing", "a registry, or what genreg export prints");
        }
        side.records.push_back(tool::recordOf(asked));
    }
    return side;
}

Side sideOf(const HostValue& value, const MirroredRegistry& registry) {
    return {placeOf(value.hostName, registry.path), recordsOf(registry)};
}

// The registry at that path; one that is not mirrored has no records, which is said.
Side sideAt(View& view, const HostValue& value, const std::string& path) {
    const auto is = [&](const MirroredRegistry& registry) { return registry.path == path; };
    const auto found = std::ranges::find_if(value.registries, is);
    if (found != value.registries.end()) {
        return sideOf(value, *found);
    }
    refuseUnread(value, path);
    const std::string place = placeOf(value.hostName, path);
    view.context.output.note("not-mirrored", place, "this host mirrors no such registry");
    return {place, {}};
}

// unread: becomes true where one of the two has a registry that cannot be compared, which is said.
std::vector<Pair> pairsOf(View& view, const Words& words, const HostValue& host, const HostValue& other, bool& unread) {
    const auto hasOne = [](const HostValue& value) { return value.registries.size() == 1 && value.errors.empty(); };
    if (words.path.empty() && hasOne(host) && hasOne(other)) {
        // Copies that are installed in different places are compared all the same.
        const MirroredRegistry& registry = host.registries.front();
        return {{registry.path, sideOf(host, registry), sideOf(other, other.registries.front())}};
    }
    std::set<std::string> paths;
    for (const HostValue* const value : {&host, &other}) {
        for (const RegistryError& error : value->errors) {
            paths.insert(error.path);
        }
        for (const MirroredRegistry& registry : value->registries) {
            paths.insert(registry.path);
        }
    }
    if (!words.path.empty()) {
        (void)registryOf(host, words.path);
        paths = {words.path};
    }
    std::vector<Pair> pairs;
    for (const std::string& path : paths) {
        try {
            pairs.push_back({path, sideAt(view, host, path), sideAt(view, other, path)});
        } catch (const tool::Failure& failure) {
            if (failure.exitStatus != tool::EXIT_DAMAGED) {
                throw;
            }
            unread = true;
            view.context.output.note(failure.kind, path, failure.message);
        }
    }
    return pairs;
}

Pair referencePair(const Words& words, const HostValue& host, const std::string& file) {
    const auto is = [&](const MirroredRegistry& registry) { return registry.path == file; };
    const bool same = words.path.empty() && std::ranges::any_of(host.registries, is);
    const MirroredRegistry& registry = registryOf(host, same ? file : words.path);
    return {registry.path, sideOf(host, registry), referenceSide(file)};
}

bool tellPair(tool::Context& context, const HostValue& host, const Pair& pair) {
    const auto changes = tool::compareRecords(pair.before.records, pair.after.records);
    if (!context.output.style.json) {
        tool::printRecordDifference(context.output, {pair.before.place, pair.after.place, {}, {}}, changes);
        return !changes.empty();
    }
    for (const tool::ToldChange& change : tool::changesOfRecords(pair.before.records, pair.after.records)) {
        tool::Json object{{"host", host.id}};
        tool::putText(object, "hostName", host.hostName);
        tool::putText(object, "other", pair.after.place);
        object.update(tool::changeObject(change, context.operation, pair.path, false));
        context.output.json(object);
    }
    return !changes.empty();
}

int compare(tool::Context& context, const Words& words) {
    if (!words.other.empty() && words.reference) {
        throw tool::usageFailure("diff takes HOST2 or --reference, not both", "genreg-fleet diff --help");
    }
    View view(context);
    view.listHosts();
    const HostValue host = view.valueOf(view.hostFor(words.host));
    std::vector<Pair> pairs;
    bool unread = false;
    if (!words.other.empty()) {
        pairs = pairsOf(view, words, host, view.valueOf(view.hostFor(words.other)), unread);
    } else {
        pairs.push_back(referencePair(words, host, words.reference ? *words.reference : tool::globalFile(context)));
    }
    bool differs = false;
    for (const Pair& pair : pairs) {
        differs = tellPair(context, host, pair) || differs;
    }
    return unread ? tool::EXIT_DAMAGED : differs ? tool::EXIT_NEGATIVE : tool::EXIT_DONE;
}

tool::Action declareDiff(tool::Parser& parser) {
    auto words = std::make_shared<Words>();
    parser.required("HOST", words->host, "its name, its id, or four digits or more that its id begins with");
    parser.optional("HOST2", words->other, "the other one; when there is none, this machine's global registry");
    parser.option("--reference", "FILE", words->reference, "compare with a registry file, or with what export printed");
    parser.option("--path", "PATH", words->path, "only the registry at this place on the host");
    parser.footer(
        "Registries of two hosts are paired by their paths, unless each has but one. What is shown turns the first\n"
        "into the other one: - only on HOST, + only on the other side, ~ fields old -> new. Exits 1 when they differ,\n"
        "and 7 when one of them could not be mirrored.");
    return [words](tool::Context& context) { return compare(context, *words); };
}

}  // namespace

std::span<const tool::Command> compareCommands() {
    static constexpr tool::Command COMMANDS[] = {
        {"diff", "compare a machine with another one, or with a file", tool::USES_CONFIG | tool::USES_REGISTRY,
         declareDiff},
    };
    return COMMANDS;
}

}  // namespace fleet

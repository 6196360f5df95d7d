#include <fmt/core.h>
#include <install/Install.h>

#include "base/DiskFiles.h"
#include "base/Update.h"
#include "global/GlobalCommands.h"
#include "global/GlobalRegistry.h"
#include "records/RecordChanges.h"
#include "records/RecordDiff.h"

namespace tool {
namespace {

constexpr char DOING[] = "bring the fixpack numbers up to date";

unsigned long synchronise(Context& context, const std::string& path, bool rehearsal) {
    GlobalRegistry registry(context, path, rehearsal);
    unsigned long updated = 0;
    const unsigned int code = genregSyncGlobalRegFixpackNumber(&registry, &updated);
    if (code != 0) {
        throw libraryFailure(code, path, DOING);
    }
    return updated;
}

int sync(Context& context) {
    SqleLevelInfo level{};
    (void)sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level);
    const std::string path = globalRegistryPath(context);
    unsigned long updated = 0;
    std::vector<ToldChange> told;
    Change change = changeOfRecords(path, DOING);
    change.make = [&](const std::string& file) {
        const std::string before = readFile(file, DOING);
        updated = synchronise(context, file, file != path);
        told = changesOfRecords(before, readFile(file, DOING));
        return updated != 0;
    };
    change.told = [&] { return told.empty() ? std::vector{unchanged("service")} : told; };
    const int status = carryOut(context, change);
    if (!context.output.style.json) {
        context.output.line(fmt::format("{} service record{} of {} {} to fixpack number {}", updated,
                                        updated == 1 ? "" : "s", level.versionString,
                                        context.options.dryRun ? "would be brought" : "brought", level.fixpackNumber));
    }
    return status;
}

}  // namespace

std::span<const Command> fixpackCommands() {
    static constexpr Command COMMANDS[] = {
        {"fixpack sync", "bring the fixpack numbers of this copy's services up to the running level",
         USES_UPDATE | USES_REGISTRY, [](Parser&) -> Action { return sync; }},
    };
    return COMMANDS;
}

}  // namespace tool

#include <fmt/core.h>
#include <genreg/GlobalReg.h>
#include <install/Install.h>

#include <cerrno>
#include <memory>

#include "Commands.h"
#include "Files.h"
#include "GlobalPath.h"
#include "Text.h"
#include "Update.h"

namespace tool {
namespace {

constexpr char DOING[] = "bring the fixpack numbers up to date";

unsigned long synchronise(Context& context, const std::string& path) {
    GlobalReg registry(false);
    if (context.options.dryRun) {
        (void)registry.unsetFeature(REG_FEATURE_CHANGE_LOG);
        (void)registry.unsetFeature(REG_FEATURE_NOTIFY);
    }
    const LockPatience patience(context, registry, path);
    unsigned long updated = 0;
    const unsigned int code = genregSyncGlobalRegFixpackNumber(&registry, &updated);
    if (code != 0) {
        throw updateFailure(context, code, path, DOING);
    }
    return updated;
}

unsigned long rehearse(Context& context, const std::string& path) {
    const ScratchFolder folder;
    const std::string copy = folder.path() / std::filesystem::path(path).filename();
    std::error_code error;
    if (!std::filesystem::copy_file(path, copy, error)) {
        throw systemFailure(error.value(), path, "copy the file for the rehearsal");
    }
    useGlobalPath(copy);
    return synchronise(context, path);
}

int sync(Context& context) {
    const std::string path = globalFile(context);
    judgeFile(path, DOING, true);
    useGlobalPath(path);
    const unsigned long updated = context.options.dryRun ? rehearse(context, path) : synchronise(context, path);
    SqleLevelInfo level{};
    (void)sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level);
    Output& output = context.output;
    if (output.style.json) {
        Json object{{"operation", context.operation}};
        putText(object, "path", path);
        object["version"] = level.versionString;
        object["fixpack"] = level.fixpackNumber;
        object["updated"] = updated;
        object["dry_run"] = context.options.dryRun;
        output.json(object);
    } else {
        output.line(fmt::format("{} service record{} of {} {} to fixpack number {}", updated, updated == 1 ? "" : "s",
                                level.versionString, context.options.dryRun ? "would be brought" : "brought",
                                level.fixpackNumber));
    }
    return EXIT_DONE;
}

constexpr Command COMMANDS[] = {
    {"fixpack sync", "bring the fixpack numbers of this copy's services up to the running level",
     USES_DRY_RUN | USES_REGISTRY, [](CLI::App&) -> Action { return sync; }},
};

}  // namespace

std::span<const Command> fixpackCommands() {
    return COMMANDS;
}

}  // namespace tool

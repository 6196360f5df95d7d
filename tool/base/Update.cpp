#include "base/Update.h"

#include <fmt/core.h>

#include <fstream>

#include "base/Belongings.h"
#include "base/DiskFiles.h"
#include "base/LockPatience.h"
#include "base/Text.h"

namespace tool {
namespace {

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// Runs the change on a copy of the file, companions left out, and tells what differs then.
Difference rehearse(const Change& change) {
    const ScratchFolder folder;
    std::string name = std::filesystem::path(change.path).filename();
    const std::string copy = folder.path() / name;
    Difference difference{change.path, change.path, {}, {}};
    if (judgeFile(change.path, change.doing, false)) {
        difference.before = readFile(change.path, change.doing);
        std::ofstream stream(copy, std::ios::binary);
        stream << difference.before << std::flush;
        if (!stream) {
            throw systemFailure(errno, copy, "copy the file for the rehearsal");
        }
    }
    try {
        (void)change.make(copy);
    } catch (Failure& failure) {
        // The user knows nothing of the copy.
        replaceAll(failure.message, copy, change.path);
        replaceAll(failure.hint, copy, change.path);
        failure.path = change.path;
        throw;
    }
    difference.after = judgeFile(copy, change.doing, false) ? readFile(copy, change.doing) : std::string();
    return difference;
}

void tell(Context& context, const Change& change, bool changed, const std::optional<Difference>& difference) {
    Output& output = context.output;
    if (!changed) {
        output.note("unchanged", change.path, fmt::format("{}: nothing to change", change.doing));
    } else if (context.options.dryRun) {
        output.note("dry-run", change.path, fmt::format("{}: this would change; nothing was written", change.doing));
    } else {
        output.detail(fmt::format("{}: {}: done", printable(change.path), change.doing));
    }
    if (output.style.json) {
        for (const ToldChange& told : change.told()) {
            output.json(changeObject(told, context.operation, change.path, context.options.dryRun));
        }
    } else if (difference && changed && (!context.options.check || context.options.diff)) {
        change.print(output, *difference);
    }
}

// Refuses to add to a file whose folder is missing, unless it shall be made. The folder that will be made, or nothing.
std::string folderToMake(const Context& context, const Change& change) {
    const bool adds = change.makesFolder || (context.uses & USES_PARENTS) != 0;
    if (judgeFile(change.path, change.doing, false) || !adds) {
        return {};
    }
    std::string folder = folderOf(RegistryFile(change.path).registryPath());
    if (isFolder(folder)) {
        return {};
    }
    if (!change.makesFolder && !context.options.parents) {
        throw missingFolder(folder, change.path, change.doing);
    }
    return folder;
}

// Makes the change, and tells of the folder and the file that are new, and of what a new file lacks.
bool makeInPlace(Context& context, const Change& change, const std::string& newFolder) {
    const bool created = !judgeFile(change.path, change.doing, false);
    const Belongings before = belongingsOf(change.path);
    bool changed = false;
    try {
        changed = change.make(change.path);
    } catch (const Failure&) {
        tellOfFolder(context.output, newFolder);
        throw;
    }
    tellOfFolder(context.output, newFolder);
    context.output.changed = changed;
    if (!created) {
        tellOfLost(context, change.path, before);
    }
    if (created && changed) {
        context.output.note("created", change.path, "the file is new");
    }
    return changed;
}

}  // namespace

RegistryFile::RegistryFile(const std::string& path) {
    const unsigned int code = setRegistryPaths(path.c_str());
    if (code != 0) {
        throw libraryFailure(code, path, "use that path");
    }
    waitPatiently(*this, path);
    (void)GetAndSetRealRegistryPaths();
}

// An update gives the name to a new file; what else the old one is called goes on with the old contents.
void warnOfOtherNames(Context& context, const std::string& path) {
    std::error_code error;
    const auto names = std::filesystem::hard_link_count(path, error);
    if (error || names < 2) {
        return;
    }
    // The backup of a commit that was interrupted is a name too, which the next one takes away.
    const std::uintmax_t own = isSameFile(path, RegistryFile(path).backupPath()) ? 2 : 1;
    if (names > own) {
        context.output.note("hard-link", path,
                            fmt::format("the file has {} other name{} (hard links), which a change leaves with the old "
                                        "contents",
                                        names - own, names - own == 1 ? "" : "s"));
    }
}

void tellOfLost(Context& context, const std::string& path, const Belongings& before) {
    if (const std::string lost = lostBelongings(before, belongingsOf(path)); !lost.empty()) {
        context.output.note("not-kept", path, "the new file could not be given " + lost);
    }
}

int carryOut(Context& context, const Change& change) {
    std::optional<Difference> difference;
    bool changed = true;
    const std::string newFolder = folderToMake(context, change);
    warnOfOtherNames(context, change.path);
    if (context.options.dryRun || context.options.diff) {
        difference = rehearse(change);
        changed = !difference->empty();
    }
    context.output.changed = false;
    if (!context.options.dryRun) {
        changed = makeInPlace(context, change, newFolder);
    }
    context.wouldChange = changed && context.options.dryRun;
    tell(context, change, changed, difference);
    return EXIT_DONE;
}

}  // namespace tool

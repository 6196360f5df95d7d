#include "inspect/Companions.h"

#include <fmt/core.h>

#include <filesystem>

#include "base/DiskFiles.h"
#include "base/Text.h"

namespace tool {
namespace {

// A companion may be a link that somebody planted: it counts as there, wherever it leads.
bool isThere(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

// What a temporary copy that nobody is writing tells. Nothing in it says what cut it short; a disk without room for the
// next version makes one cause far more likely than the others.
std::string leftoverText(const RegistryFile& file) {
    std::error_code error;
    const auto space = std::filesystem::space(file.temporaryPath(), error);
    const auto needed = std::filesystem::file_size(file.registryPath(), error);
    if (!error && space.available < needed) {
        return fmt::format(
            "left by an update that most likely ran out of disk space ({} free, {} needed): free some; "
            "the next update sets it aside as .cor",
            counted(space.available, "byte"), needed);
    }
    return "left by an update that did not end: its writer was interrupted, or the disk was full; the next update sets "
           "it aside as .cor";
}

}  // namespace

std::vector<Companion> companions(const RegistryFile& file, bool held) {
    std::vector<Companion> all{
        {"tmp", file.temporaryPath(),
         held ? "the next version, being written by the holder of the lock" : leftoverText(file)},
        {"bkp", file.backupPath(),
         isSameFile(file.backupPath(), file.registryPath())
             ? "a second name of this version, left by an interrupted commit; the next commit removes it"
             : "an older version, left by a commit that failed; the next commit removes it"},
        {"cor", file.corruptPath(),
         "an unfinished copy set aside; look what is missing (genreg diff), the next update removes it"},
        {"lock file", file.lockFilePath(), "what writers lock; it stays"}};
    std::erase_if(all, [](const Companion& companion) { return !isThere(companion.path); });
    return all;
}

}  // namespace tool

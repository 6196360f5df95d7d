#include "base/PlaceAdvice.h"

#include <fmt/core.h>
#include <genreg/Codes.h>

#include <cerrno>

#include "base/CodeClasses.h"
#include "base/Text.h"
#include "base/Update.h"
#include "system/System.h"

namespace tool {
namespace {

std::string outOfTheWay(const std::string& companion) {
    return fmt::format("move {} out of the way, then repeat", printable(companion));
}

// A lock file that is another's than the file was left by somebody else's change.
std::string adviceForForbiddenLock(const RegistryFile& file) {
    const std::string lock = printable(file.lockFilePath());
    const auto ofLock = ownerOf(file.lockFilePath());
    const auto ofRegistry = ownerOf(file.registryPath());
    if (!ofLock || !ofRegistry) {
        return fmt::format("run it as the owner of the file, or check the permissions of {} and its directory (ls -la)",
                           lock);
    }
    const std::string owner = userName(*ofLock);
    if (ofLock == ofRegistry) {
        return fmt::format("run it as {}, the owner, or check the permissions of {} (ls -la)", owner, lock);
    }
    return fmt::format(
        "its lock file belongs to {}: run it as {}, or let root give it to the owner of the file: "
        "chown --reference={} {}",
        owner, owner, shellWord(file.registryPath()), shellWord(file.lockFilePath()));
}

std::string adviceForLock(int systemError, const RegistryFile& file) {
    const std::string lock = file.lockFilePath();
    switch (systemError) {
        case EACCES:
        case EPERM:
            return adviceForForbiddenLock(file);
        case ELOOP:
            return fmt::format(
                "a link stands in the place of the lock file: look who put it there, and remove {} (ls -l)",
                printable(lock));
        case EISDIR:
            return outOfTheWay(lock);
        case ENAMETOOLONG:
            return "use a shorter name: that of its lock file is 6 characters longer, and the system takes 255";
        default:
            return {};
    }
}

// The backup is a hard link.
std::string adviceForBackup(int systemError, const RegistryFile& file) {
    const std::string& path = file.registryPath();
    switch (systemError) {
        case EEXIST:
        case EISDIR:
            // What is another's, in a folder where only owners move files, was left by a commit that failed there.
            return mayMove(file.backupPath()) ? outOfTheWay(file.backupPath()) : systemAdvice(EPERM);
        case EXDEV:
            return fmt::format(
                "the file is a mount of its own (findmnt {}): unmount it, or mount its directory instead",
                printable(path));
        case EPERM:
        case EOPNOTSUPP:
        case ENOSYS:
            if (const auto attribute = forbiddingAttribute(path)) {
                return fmt::format("an attribute forbids it ({}): {} {}, then repeat", attribute->seenBy,
                                   attribute->undone, printable(path));
            }
            return systemError == EPERM && !mayMove(path)
                       ? std::string()
                       : "keep the file on a file system that makes hard links, which its backup needs";
        default:
            return {};
    }
}

}  // namespace

std::string placeAdvice(unsigned int code, int systemError, const std::string& path) {
    switch (code) {
        case REG_OPEN_LOCK_FAILED:
            return adviceForLock(systemError, RegistryFile(path));
        case REG_BACKUP_FAILED:
            return adviceForBackup(systemError, RegistryFile(path));
        case REG_DELETE_CORRUPT_FAILED:
            return systemError == EISDIR || systemError == ENOTEMPTY ? outOfTheWay(RegistryFile(path).corruptPath())
                                                                     : std::string();
        case REG_PATH_TOO_LONG:
            return "name the file by a shorter path, from its folder say";
        default:
            return {};
    }
}

}  // namespace tool

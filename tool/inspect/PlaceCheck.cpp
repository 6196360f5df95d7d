#include "inspect/PlaceCheck.h"

#include <fmt/core.h>
#include <genreg/Codes.h>

#include <cerrno>
#include <filesystem>

#include "base/CodeClasses.h"
#include "base/DiskFiles.h"
#include "base/PlaceAdvice.h"
#include "base/Text.h"
#include "base/Update.h"
#include "inspect/Companions.h"
#include "inspect/LockReport.h"
#include "system/System.h"

namespace tool {
namespace {

class PlaceCheck {
public:
    PlaceCheck(Findings& findings, const CheckedFile& file)
        : findings_(findings), checked_(file), file_(file.path), folder_(folderOf(file_.registryPath())) {}

    void run(bool rehearse) {
        const bool held = checkLock();
        for (const Companion& companion : companions(file_, held)) {
            checkCompanion(companion, held);
        }
        checkNames();
        const bool free = checkAttributes();
        const bool takesFiles = checkSystem();
        const bool open = checkFolder();
        if (rehearse && free && takesFiles && open) {
            if (const auto failed = rehearseCommit(folder_, checked_.bytes.size())) {
                add(Severity::FAULT, "commit", folder_,
                    fmt::format("an update fails here: cannot {}: {}", failed->step, systemWords(failed->error)),
                    systemAdvice(failed->error));
            }
        }
    }

private:
    void add(Severity severity, const char* kind, const std::string& path, std::string message, std::string hint) {
        findings_.add({severity, kind, path, std::move(message), std::move(hint)});
    }

    [[nodiscard]] std::string word() const { return shellWord(checked_.path); }

    static std::filesystem::file_type typeOf(const std::string& path) {
        std::error_code error;
        return std::filesystem::symlink_status(path, error).type();
    }

    // Whether somebody holds it.
    bool checkLock() {
        using Type = std::filesystem::file_type;
        const std::string lock = file_.lockFilePath();
        const auto advice = [&](int error) { return placeAdvice(REG_OPEN_LOCK_FAILED, error, checked_.path); };
        constexpr std::size_t LONGEST_NAME = 255;
        if (std::filesystem::path(lock).filename().string().size() > LONGEST_NAME) {
            add(Severity::FAULT, "lock-file", lock, "the name is too long for a file: no update gets its lock",
                advice(ENAMETOOLONG));
            return false;
        }
        switch (typeOf(lock)) {
            case Type::not_found:
                return false;
            case Type::regular:
                break;
            case Type::symlink:
                add(Severity::FAULT, "lock-file", lock, "a link stands in its place: no update gets its lock",
                    advice(ELOOP));
                return false;
            default:
                add(Severity::FAULT, "lock-file", lock, "it is no regular file: no update gets its lock",
                    advice(EISDIR));
                return false;
        }
        if (const int error = writeRefused(lock, false)) {
            add(Severity::FAULT, "lock-file", lock,
                fmt::format("{}: no update of this user gets its lock", systemWords(error)), advice(error));
            return false;
        }
        if (!ownerOpens(belongingsOf(lock), belongingsOf(file_.registryPath()))) {
            add(Severity::WARNING, "lock-file", lock, "the owner of the registry cannot open it, and so not change it",
                fmt::format("chown --reference={} {}", shellWord(file_.registryPath()), shellWord(lock)));
        }
        return lockObject(file_)["held"].get<bool>();
    }

    // What an ACL says is for the system to know.
    static bool ownerOpens(const Belongings& lock, const Belongings& registry) {
        constexpr mode_t OWNERS = 0600;
        constexpr mode_t GROUPS = 0060;
        constexpr mode_t OTHERS = 0006;
        const mode_t needed = lock.owner == registry.owner ? OWNERS : lock.group == registry.group ? GROUPS : OTHERS;
        return registry.owner == 0 || lock.attributes.contains("its ACL") || (lock.permissions & needed) == needed;
    }

    void checkCompanion(const Companion& companion, bool held) {
        const std::string name = companion.name;
        const std::string diff = fmt::format("genreg diff {} {}", word(), shellWord(companion.path));
        if (name == "lock file" || (name == "tmp" && held)) {
            return;
        }
        if (typeOf(companion.path) == std::filesystem::file_type::directory) {
            add(name == "tmp" ? Severity::WARNING : Severity::FAULT, "companion", companion.path,
                name == "tmp" ? "a folder stands in the place of the temporary copy; the next update sets it aside"
                              : "a folder stands in its place: updates fail",
                fmt::format("move {} out of the way", printable(companion.path)));
            return;
        }
        if (name == "bkp") {
            const bool same = isSameFile(companion.path, file_.registryPath());
            add(same ? Severity::NOTE : Severity::WARNING, "companion", companion.path, companion.meaning,
                same ? "" : diff);
            return;
        }
        add(name == "tmp" ? Severity::WARNING : Severity::NOTE, "companion", companion.path, companion.meaning,
            name == "tmp" ? diff + " shows what was not written" : diff);
    }

    void checkNames() {
        std::error_code error;
        const auto names = std::filesystem::hard_link_count(file_.registryPath(), error);
        const std::uintmax_t own = isSameFile(file_.backupPath(), file_.registryPath()) ? 2 : 1;
        if (!error && names > own) {
            add(Severity::WARNING, "hard-link", checked_.path,
                fmt::format("it has {} (hard links), which an update leaves with the old contents",
                            counted(names - own, "other name")),
                fmt::format("find -H {} -xdev -samefile {} shows them", shellWord(folder_), word()));
        }
    }

    // Each of the three: whether a rehearsal tells more.
    bool checkAttributes() {
        bool free = true;
        for (const std::string& path : {file_.registryPath(), folder_}) {
            if (const auto attribute = forbiddingAttribute(path)) {
                free = false;
                add(Severity::FAULT, "attribute", path,
                    fmt::format("an attribute ({}) forbids that it be replaced: updates fail", attribute->seenBy),
                    fmt::format("{} {}", attribute->undone, shellWord(path)));
            }
        }
        return free;
    }

    bool checkSystem() {
        const auto place = placeOf(file_.registryPath());
        if (!place) {
            return true;
        }
        const std::string& path = checked_.path;
        if (place->ofNetwork) {
            add(Severity::WARNING, "network", path,
                "it lies on a network file system: locks, syncs and renames mean what the server makes of them",
                "keep it on a file system of this machine, and have one machine alone write it until then");
        }
        if (place->isMount) {
            add(Severity::FAULT, "mount", path, "the file is a mount of its own and cannot be replaced: updates fail",
                placeAdvice(REG_BACKUP_FAILED, EXDEV, path));
        }
        if (place->readOnly) {
            add(Severity::FAULT, "read-only", path, "its file system is read-only: updates fail", systemAdvice(EROFS));
            return false;
        }
        if (place->withoutLinks) {
            add(Severity::FAULT, "no-links", path,
                "its file system makes no hard links, which the backup of an update is: updates fail",
                "keep the file on a file system that makes hard links");
        }
        if (place->room < checked_.bytes.size() || !place->takesFiles) {
            add(Severity::FAULT, "full", path,
                fmt::format("there is no room for the next version: {} free{}, {} needed", counted(place->room, "byte"),
                            place->takesFiles ? "" : ", and no file more", checked_.bytes.size()),
                systemAdvice(ENOSPC));
            return false;
        }
        return !place->withoutLinks;
    }

    bool checkFolder() {
        if (const int error = writeRefused(folder_, true); error != 0 && error != EROFS) {
            add(Severity::FAULT, "folder", folder_,
                fmt::format("{}: this user cannot put the next version beside the file, and so not change it",
                            systemWords(error)),
                systemAdvice(error));
            return false;
        }
        if (!folderLetsMove(file_.registryPath())) {
            add(Severity::FAULT, "folder", folder_,
                "only the owner of a file may replace it in this folder: updates of this user fail",
                systemAdvice(EPERM));
            return false;
        }
        return true;
    }

    Findings& findings_;
    const CheckedFile& checked_;
    const RegistryFile file_;
    const std::string folder_;
};

}  // namespace

void checkPlace(Findings& findings, const CheckedFile& file, bool rehearse) {
    PlaceCheck(findings, file).run(rehearse);
}

}  // namespace tool

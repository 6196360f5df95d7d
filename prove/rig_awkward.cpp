// Awkward places: where an update cannot be made it fails with a code that says why, the registry stands as it was and
// can still be read, and the same update succeeds once the obstacle is gone; where it can be made it is made, and
// nothing else is touched.
//
// Each place is tried with an add and a change, on text and binary registries, verified, direct, stamped and appended
// in place. Some places take root: users other than its own, mounts, attributes. Those are skipped, with the reason,
// where there is none.
#include <fcntl.h>
#include <genreg/Cause.h>
#include <genreg/Codes.h>
#include <genreg/Constants.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>

#include "prove/support/AwkwardPlaces.h"
#include "prove/support/Cases.h"
#include "prove/support/DiskImage.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "prove/support/SchemaFace.h"
#include "prove/support/Shared.h"

namespace {

using prove::AwkwardPlace;
using prove::bytesOf;
using prove::Cases;
using prove::Folder;
using prove::hex;
using prove::Kind;
using prove::openSchema;
using prove::putBytes;
using prove::SchemaRegistry;
using prove::Shared;

constexpr unsigned long VERIFIED = REG_FEATURE_DEFERRED_COMMIT;
constexpr Kind KINDS[] = {{"text, verified", false, VERIFIED},
                          {"text", false, 0},
                          {"text, adds in place", false, REG_FEATURE_ALLOW_DUPLICATES},
                          {"binary, verified, checksum", true, VERIFIED | REG_FEATURE_CHECKSUM_HEADER},
                          {"binary, adds in place", true, REG_FEATURE_ALLOW_DUPLICATES}};

struct Update {
    const char* name;
    unsigned int (*run)(SchemaRegistry& registry);
};

constexpr Update UPDATES[] = {{"add",
                               [](SchemaRegistry& registry) {
                                   return registry.add({"gamma", 3, "three"});
                               }},
                              {"change", [](SchemaRegistry& registry) {
                                   return registry.change({"beta", 22, "two"});
                               }}};

bool inPlace(const Kind& kind, const Update& update) {
    return &update == &UPDATES[0] && (kind.features & REG_FEATURE_ALLOW_DUPLICATES) != 0;
}

struct Outcome {
    unsigned int rc = 0;
    unsigned int cause = 0;
};

// The update by a child that has gone through `inside`; nothing when the child died.
std::optional<Outcome> attempt(const Kind& kind, const std::string& path, const AwkwardPlace& place,
                               const Update& update) {
    const Shared<Outcome> outcome;
    const auto code = prove::inChild([&] {
        const auto registry = openSchema(kind, path);
        place.inside(path);
        outcome->rc = update.run(*registry);
        GenRegCause cause = {};
        genregLastCause(&cause);
        outcome->cause = outcome->rc == 0 ? 0 : cause.code;
        return 0U;
    });
    return code ? std::optional(*outcome) : std::nullopt;
}

class Places {
public:
    Places(Cases& cases, const Folder& folder) : cases_(cases), folder_(folder) {}

    void tryAll(const AwkwardPlace& place) {
        for (const Kind& kind : KINDS) {
            for (const Update& update : UPDATES) {
                if (!(place.onlyReplacing && inPlace(kind, update)) && !tryOne(place, kind, update)) {
                    return;
                }
            }
        }
    }

    // A registry of two records, the lock file beside it as a first update leaves it.
    [[nodiscard]] static std::string layOut(const Kind& kind, const std::string& path) {
        const auto registry = openSchema(kind, path);
        const bool good = registry->add({"alpha", 1, "one"}) == 0 && registry->add({"beta", 2, ""}) == 0;
        return good ? bytesOf(path).value_or("") : "";
    }

    // What the update makes of that registry where nothing is awkward.
    [[nodiscard]] std::string expected(const Kind& kind, const Update& update) const {
        const Folder plain(true);
        const std::string path = plain.file("plain");
        (void)layOut(kind, path);
        (void)update.run(*openSchema(kind, path));
        return bytesOf(path).value_or("");
    }

private:
    // False when the place cannot be made here.
    bool tryOne(const AwkwardPlace& place, const Kind& kind, const Update& update) {
        folder_.empty();
        (void)::chmod(folder_.path().c_str(), 0755);
        const std::string path = folder_.file("settings");
        const std::string before = layOut(kind, path);
        const std::string wanted = expected(kind, update);
        const std::string what = place.name + ", " + kind.name + ", " + update.name;
        if (const std::string missing = place.prepare(path); !missing.empty()) {
            place.mend(path);
            cases_.skip(place.name, missing);
            return false;
        }
        const std::string access = prove::accessOf(path);
        const auto outcome = attempt(kind, path, place, update);
        const std::string told = !outcome ? "the process died" : hex(outcome->rc) + " for " + hex(outcome->cause);
        const std::string after = bytesOf(path).value_or("(gone)");
        if (place.causes.empty()) {
            (void)cases_.check(outcome && outcome->rc == 0, what + ": refused, " + told);
            (void)cases_.check(after == wanted, what + ": the update is not there");
        } else {
            (void)cases_.check(outcome && outcome->rc != 0 && place.causes.count(outcome->cause) != 0,
                               what + ": " + told);
            (void)cases_.check(after == before, what + ": the registry is not what it was");
        }
        (void)cases_.check(prove::accessOf(path) == access, what + ": mode or owner are not what they were");
        const auto read = prove::inChild([&] {
            const auto registry = openSchema(kind, path);
            place.inside(path);
            prove::Row row;
            const unsigned int rc = registry->get("alpha", &row);
            return rc != 0 || row.value == 1 ? rc : 1U;
        });
        (void)cases_.check(read == 0U, what + ": cannot be read, " + (read ? hex(*read) : "the process died"));
        place.mend(path);
        if (!place.causes.empty()) {
            const unsigned int rc = update.run(*openSchema(kind, path));
            (void)cases_.check(rc == 0 && bytesOf(path) == wanted, what + ": once mended, " + hex(rc));
        }
        const std::string harm = prove::harmDone(folder_.path());
        (void)cases_.check(harm.empty(), what + ": " + harm);
        prove::leaveAwkwardPlace(folder_.path());
        return true;
    }

    Cases& cases_;
    const Folder& folder_;
};

// Places that are no more awkward than others, with something wrong about each.
void controls(Cases& cases, Places& rig) {
    const auto show = [&](const char* words, const AwkwardPlace& place) {
        cases.control(words, [&] { rig.tryAll(place); });
    };
    AwkwardPlace easy = {"control"};
    easy.causes = {REG_OPEN_LOCK_FAILED};
    show("add: 0x00000000", easy);
    show("the registry is not what it was", easy);
    AwkwardPlace locked = prove::lockedPlace();
    show("refused, 0x", locked);
    show("the update is not there", locked);
    locked.causes = {REG_RENAME_FAILED};
    show(" for 0x900001da", locked);
    show("once mended, 0x", locked);
    for (const auto& [words, place] : prove::harmfulPlaces()) {
        show(words, place);
    }
    AwkwardPlace deadly = {"control"};
    deadly.inside = [](const std::string& /*path*/) { std::abort(); };
    show("the process died", deadly);
}

// --- names ---------------------------------------------------------------------------------------------------------

void names(Cases& cases) {
    const Folder folder(true);
    for (const Kind& kind : KINDS) {
        for (const std::size_t length : {249UL, 250UL, 255UL}) {
            const std::string what = std::string(kind.name) + ", a name of " + std::to_string(length);
            const std::string path = folder.file(std::string(length, 'n'));
            const std::string before = Places::layOut(kind, folder.file("settings"));
            (void)putBytes(path, before);
            const auto registry = openSchema(kind, path);
            const unsigned int rc = UPDATES[1].run(*registry);
            GenRegCause cause = {};
            genregLastCause(&cause);
            prove::Row row;
            (void)cases.check(registry->get("alpha", &row) == 0 && row.value == 1, what + ": cannot be read");
            if (length == 249) {
                (void)cases.check(rc == 0 && bytesOf(path) != before, what + ": " + hex(rc));
            } else {
                (void)cases.check(rc == REG_LOCK_FAILED && cause.code == REG_OPEN_LOCK_FAILED, what + ": " + hex(rc));
                (void)cases.check(bytesOf(path) == before, what + ": the registry is not what it was");
                (void)cases.check(prove::namesIn(folder.path()).size() == 3, what + ": left strange files");
            }
            folder.empty();
        }
        for (const std::size_t length : {1016UL, 1017UL, 1018UL}) {
            const std::string what = std::string(kind.name) + ", a path of " + std::to_string(length);
            const std::string path = prove::deepFolder(folder.path(), "settings", length) + "/settings";
            unsigned int rc = 0;
            const auto registry = openSchema(kind, path, &rc);
            if (length == 1018) {
                (void)cases.check(path.size() == length && rc == REG_PATH_TOO_LONG, what + ": " + hex(rc));
            } else {
                (void)cases.check(path.size() == length && rc == 0 && !Places::layOut(kind, path).empty() &&
                                      UPDATES[0].run(*registry) == 0 && UPDATES[1].run(*registry) == 0,
                                  what + ": refused");
                (void)cases.check(
                    prove::namesIn(prove::folderOf(path)) == std::vector<std::string>{".settings.lock", "settings"},
                    what + ": left strange files");
            }
            folder.empty();
        }
    }
}

// --- new lock files ------------------------------------------------------------------------------------------------

// A registry of that owner, group and mode, updated first by somebody else, and the lock file that this leaves.
struct LockFileCase {
    uid_t owner;
    gid_t group;
    mode_t mode;
    mode_t umask;
    uid_t writer;  // with the group of the registry among its own
    uid_t lockOwner;
    mode_t lockMode;
};

constexpr uid_t OWNER = 4201;
constexpr uid_t MEMBER = 4202;
constexpr gid_t GROUP = 4300;

constexpr LockFileCase LOCK_FILES[] = {
    {OWNER, GROUP, 0644, 022, 0, OWNER, 0644},   {OWNER, GROUP, 0640, 022, 0, OWNER, 0640},
    {OWNER, GROUP, 0600, 0, 0, OWNER, 0600},     {OWNER, GROUP, 0664, 022, 0, OWNER, 0664},
    {OWNER, GROUP, 0660, 077, 0, OWNER, 0660},   {OWNER, GROUP, 0666, 022, 0, OWNER, 0666},
    {0, GROUP, 0640, 077, 0, 0, 0600},           {OWNER, GROUP, 0660, 022, MEMBER, MEMBER, 0660},
    {MEMBER, 0, 0640, 022, MEMBER, MEMBER, 0600}};

std::optional<unsigned int> updateAs(const Kind& kind, const std::string& path, const Update& update, uid_t user,
                                     mode_t mask) {
    return prove::inChild([&] {
        (void)::umask(mask);
        const gid_t groups[] = {GROUP};
        if (user != 0 && (::setgroups(1, groups) != 0 || ::setgid(user) != 0 || ::setuid(user) != 0)) {
            return 1U;
        }
        return update.run(*openSchema(kind, path));
    });
}

void newLockFiles(Cases& cases) {
    if (::geteuid() != 0) {
        cases.skip("the owner of a new lock file", "takes root");
        return;
    }
    const Folder folder(true);
    const std::string path = folder.file("settings");
    const std::string lock = prove::Companions(path).lock;
    for (const LockFileCase& tried : LOCK_FILES) {
        for (const Kind& kind : KINDS) {
            folder.empty();
            (void)Places::layOut(kind, path);
            (void)::remove(lock.c_str());
            (void)::chmod(folder.path().c_str(), 0777);
            (void)!::chown(path.c_str(), tried.owner, tried.group);
            (void)::chmod(path.c_str(), tried.mode);
            const std::string what = std::string("the lock file of ") + prove::accessOf(path) + ", " + kind.name +
                                     ", updated by " + std::to_string(tried.writer);
            const auto rc = updateAs(kind, path, UPDATES[1], tried.writer, tried.umask);
            (void)cases.check(rc == 0U, what + ": " + (rc ? hex(*rc) : "died"));
            struct stat left = {};
            (void)cases.check(::stat(lock.c_str(), &left) == 0 && left.st_uid == tried.lockOwner &&
                                  (left.st_mode & 07777) == tried.lockMode,
                              what + ": " + prove::accessOf(lock));
            const auto own = updateAs(kind, path, UPDATES[0], tried.owner, tried.umask);
            (void)cases.check(own == 0U, what + ": its owner is locked out, " + (own ? hex(*own) : "died"));
        }
    }
}

// --- forks ---------------------------------------------------------------------------------------------------------

// A child that lives on; gone with the object.
class Bystander {
public:
    Bystander() : child_(::fork()) {
        if (child_ == 0) {
            (void)::alarm(60);
            for (;;) {
                (void)::pause();
            }
        }
    }
    ~Bystander() {
        (void)::kill(child_, SIGKILL);
        (void)::waitpid(child_, nullptr, 0);
    }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

private:
    pid_t child_;
};

void forks(Cases& cases) {
    constexpr unsigned long TRY = REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT;
    for (const Kind& kind : KINDS) {
        const Folder folder(true);
        const std::string path = folder.file("settings");
        const std::string what = std::string(kind.name) + ", a fork while locked: ";
        (void)Places::layOut(kind, path);
        const auto registry = openSchema(kind, path);
        const auto other = [&] { return prove::inChild([&] { return openSchema(kind, path)->lock(TRY); }); };
        (void)cases.check(registry->lock(TRY) == 0, what + "the lock was not to be had");
        {
            const Bystander child;
            (void)cases.check(other() == REG_LOCK_HELD, what + "the parent's lock is gone");
            (void)cases.check(registry->unlock() == 0 && other() == 0U, what + "the child holds the lock");
        }
        // The one who locked dies; a child that it left behind holds nothing.
        pid_t left = 0;
        const Shared<pid_t> leftBehind;
        (void)prove::inChild([&] {
            const auto dying = openSchema(kind, path);
            const unsigned int rc = dying->lock(TRY);
            left = ::fork();
            if (left == 0) {
                (void)::alarm(60);
                (void)::pause();
            }
            *leftBehind = left;
            return rc;
        });
        (void)cases.check(other() == 0U, what + "the lock outlived its owner");
        if (*leftBehind > 0) {
            (void)::kill(*leftBehind, SIGKILL);
        }
        if ((kind.features & VERIFIED) != 0) {
            std::optional<Bystander> child;
            registry->beforeVerify([&] { child.emplace(); });
            (void)cases.check(UPDATES[1].run(*registry) == 0 && child.has_value(), what + "the update in hand failed");
            const auto next = prove::inChild([&] { return UPDATES[0].run(*openSchema(kind, path)); }, 5);
            (void)cases.check(next == 0U, what + "the next update waits for the child");
        }
    }
}

// --- what is no registry -------------------------------------------------------------------------------------------

void strangers(Cases& cases) {
    for (const Kind& kind : KINDS) {
        const Folder folder(true);
        const auto refused = [&](const std::string& name, const std::string& path,
                                 const std::set<unsigned int>& causes) {
            for (const Update& update : UPDATES) {
                const auto outcome = attempt(kind, path, AwkwardPlace{}, update);
                (void)cases.check(outcome && outcome->rc != 0 && causes.count(outcome->cause) != 0,
                                  std::string(kind.name) + ", " + name + ", " + update.name + ": " +
                                      (outcome ? hex(outcome->rc) + " for " + hex(outcome->cause) : "died or hung"));
            }
        };
        (void)::mkdir(folder.file("folder").c_str(), 0755);
        refused("a folder", folder.file("folder"), {REG_OPEN_FILE_FAILED});
        (void)::mkfifo(folder.file("pipe").c_str(), 0644);
        refused("a pipe", folder.file("pipe"), {REG_OPEN_FILE_FAILED});
        (void)::symlink("circle2", folder.file("circle1").c_str());
        (void)::symlink("circle1", folder.file("circle2").c_str());
        refused("a circle of links", folder.file("circle1"), {REG_OPEN_FILE_FAILED, REG_OPEN_LOCK_FAILED});
    }
}

void noHardLinks(Cases& cases) {
    cases.skip("a file system without hard links", "none that can be made here; a filter of system calls stands in");
}

void deadlySignal(Cases& cases) {
    // Left to the program: without it SIGXFSZ ends the process, and the file-size limit loses nothing either.
    for (const Kind& kind : KINDS) {
        const Folder folder(true);
        const std::string path = folder.file("settings");
        const std::string before = Places::layOut(kind, path);
        AwkwardPlace place = {"a file-size limit, its signal deadly"};
        place.inside = [](const std::string& file) { prove::limitFileSize(file, false); };
        for (const Update& update : UPDATES) {
            const std::string what = place.name + ", " + kind.name + ", " + update.name;
            (void)cases.check(!attempt(kind, path, place, update), what + ": the signal did not come");
            (void)cases.check(bytesOf(path) == before, what + ": the registry is not what it was");
        }
        (void)cases.check(UPDATES[1].run(*openSchema(kind, path)) == 0,
                          std::string(kind.name) + ": no update after it");
    }
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("awkward", argc, argv);
    const bool ownMounts = prove::DiskImage::mountPrivately();
    const Folder folder(false);
    Places rig(cases, folder);
    cases.expectAtLeast(1'200);
    controls(cases, rig);
    for (const AwkwardPlace& place : prove::awkwardPlaces(ownMounts)) {
        rig.tryAll(place);
    }
    names(cases);
    newLockFiles(cases);
    forks(cases);
    strangers(cases);
    deadlySignal(cases);
    noHardLinks(cases);
    return cases.finish();
}

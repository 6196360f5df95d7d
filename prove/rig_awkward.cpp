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
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <set>

#include "prove/support/Cases.h"
#include "prove/support/Clients.h"
#include "prove/support/Folder.h"
#include "prove/support/Image.h"
#include "prove/support/Place.h"
#include "prove/support/Shared.h"

namespace {

using prove::bytesOf;
using prove::Cases;
using prove::Client;
using prove::Companions;
using prove::Folder;
using prove::hex;
using prove::Kind;
using prove::openClient;
using prove::putBytes;
using prove::run;
using prove::Shared;

constexpr unsigned long VERIFIED = REG_FEATURE_DEFERRED_COMMIT;
constexpr Kind KINDS[] = {{"text, verified", false, VERIFIED},
                          {"text", false, 0},
                          {"text, adds in place", false, REG_FEATURE_ALLOW_DUPLICATES},
                          {"binary, verified, checksum", true, VERIFIED | REG_FEATURE_CHECKSUM_HEADER},
                          {"binary, adds in place", true, REG_FEATURE_ALLOW_DUPLICATES}};

constexpr uid_t NOBODY = 65534;
// As long as the note in a lock file, so that its length does not tell them apart.
const std::string VICTIM(128, 'v');

struct Update {
    const char* name;
    unsigned int (*run)(Client& client);
};

constexpr Update UPDATES[] = {{"add",
                               [](Client& client) {
                                   return client.add({"gamma", 3, "three"});
                               }},
                              {"change", [](Client& client) {
                                   return client.change("beta", {"beta", 22, "two"});
                               }}};

bool inPlace(const Kind& kind, const Update& update) {
    return &update == &UPDATES[0] && (kind.features & REG_FEATURE_ALLOW_DUPLICATES) != 0;
}

// Whether the update replaces the file, which takes a link and a rename.
bool replaces(const Kind& kind, const Update& update) {
    return !inPlace(kind, update);
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

struct Outcome {
    unsigned int rc = 0;
    unsigned int cause = 0;
};

// A place, and what is to be expected of it.
struct Awkward {
    const char* name;
    // Makes the place awkward; what is missing for it, or nothing.
    std::function<std::string(const std::string& path)> prepare = [](const std::string&) { return std::string(); };
    // What the updating process does to itself first.
    std::function<void(const std::string& path)> inside = [](const std::string&) {};
    // Takes the obstacle away.
    std::function<void(const std::string& path)> mend = [](const std::string&) {};
    // The innermost causes of which one is to be told; none: the update succeeds.
    std::set<unsigned int> causes = {};
    // Which updates it concerns.
    std::function<bool(const Kind& kind, const Update& update)> concerns = [](const Kind&, const Update&) {
        return true;
    };
    bool readable = true;
};

// The update by a child that has gone through `inside`; nothing when the child died.
std::optional<Outcome> attempt(const Kind& kind, const std::string& path, const Awkward& place, const Update& update) {
    const Shared<Outcome> outcome;
    const auto code = prove::inChild([&] {
        const auto client = openClient(kind, path);
        place.inside(path);
        outcome->rc = update.run(*client);
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

    void tryAll(const Awkward& place) {
        for (const Kind& kind : KINDS) {
            for (const Update& update : UPDATES) {
                if (place.concerns(kind, update) && !tryOne(place, kind, update)) {
                    return;
                }
            }
        }
    }

    // A registry of two records, the lock file beside it as a first update leaves it.
    [[nodiscard]] static std::string layOut(const Kind& kind, const std::string& path) {
        const auto client = openClient(kind, path);
        const bool good = client->add({"alpha", 1, "one"}) == 0 && client->add({"beta", 2, ""}) == 0;
        return good ? bytesOf(path).value_or("") : "";
    }

    // What the update makes of that registry where nothing is awkward.
    [[nodiscard]] std::string expected(const Kind& kind, const Update& update) const {
        const Folder plain(true);
        const std::string path = plain.file("plain");
        (void)layOut(kind, path);
        (void)update.run(*openClient(kind, path));
        return bytesOf(path).value_or("");
    }

private:
    // False when the place cannot be made here.
    bool tryOne(const Awkward& place, const Kind& kind, const Update& update) {
        folder_.empty();
        (void)::chmod(folder_.path().c_str(), 0755);
        const std::string path = folder_.file("settings");
        const std::string before = layOut(kind, path);
        const std::string wanted = expected(kind, update);
        const std::string what = std::string(place.name) + ", " + kind.name + ", " + update.name;
        if (const std::string missing = place.prepare(path); !missing.empty()) {
            place.mend(path);
            cases_.skip(place.name, missing);
            return false;
        }
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
        if (place.readable) {
            const auto read = prove::inChild([&] {
                const auto client = openClient(kind, path);
                place.inside(path);
                prove::Entry entry;
                const unsigned int rc = client->get("alpha", &entry);
                return rc != 0 || entry.value == 1 ? rc : 1U;
            });
            (void)cases_.check(read == 0U, what + ": cannot be read, " + (read ? hex(*read) : "the process died"));
        }
        const auto victim = bytesOf(folderOf(path) + "/victim");
        (void)cases_.check(!victim || *victim == VICTIM, what + ": another's file was written");
        place.mend(path);
        if (!place.causes.empty()) {
            const unsigned int rc = update.run(*openClient(kind, path));
            (void)cases_.check(rc == 0 && bytesOf(path) == wanted, what + ": once mended, " + hex(rc));
        }
        const std::vector<std::string> names = prove::namesIn(folder_.path());
        (void)cases_.check(std::all_of(names.begin(), names.end(), isKnown), what + ": left strange files");
        (void)::umount2(folder_.path().c_str(), MNT_DETACH);  // where the place was a file system of its own
        return true;
    }

    static bool isKnown(const std::string& name) {
        static const std::set<std::string> KNOWN = {"settings",     ".settings.lock", ".settings.bkp", "settings.tmp",
                                                    "settings.cor", "victim",         "filler"};
        return KNOWN.count(name) != 0;
    }

    Cases& cases_;
    const Folder& folder_;
};

// --- the process ---------------------------------------------------------------------------------------------------

std::string needsRoot() {
    return ::geteuid() == 0 ? "" : "takes root";
}

void becomeNobody() {
    if (::setgid(NOBODY) != 0 || ::setuid(NOBODY) != 0) {
        std::abort();
    }
}

// Refuses both calls that make hard links, as a file system without them does.
void refuseLinks() {
    const sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 1, 0),
#ifdef SYS_link
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_link, 0, 1),
#else
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 0, 1),
#endif
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program = {static_cast<unsigned short>(std::size(filter)), const_cast<sock_filter*>(filter)};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        std::abort();
    }
}

void limitFileSize(const std::string& path, bool ignoreSignal) {
    (void)::signal(SIGXFSZ, ignoreSignal ? SIG_IGN : SIG_DFL);
    const rlim_t size = bytesOf(path).value_or("").size();
    const rlimit limit = {size > 4 ? size - 4 : 0, RLIM_INFINITY};
    (void)::setrlimit(RLIMIT_FSIZE, &limit);
}

void processPlaces(Places& rig) {
    Awkward user = {"an ordinary user's own folder"};
    user.prepare = [](const std::string& path) {
        const bool given = ::chown(folderOf(path).c_str(), NOBODY, NOBODY) == 0 &&
                           ::chown(path.c_str(), NOBODY, NOBODY) == 0 &&
                           ::chown(Companions(path).lock.c_str(), NOBODY, NOBODY) == 0;
        return given ? "" : needsRoot();
    };
    user.inside = [](const std::string&) { becomeNobody(); };
    user.mend = [](const std::string& path) { (void)::chown(folderOf(path).c_str(), 0, 0); };
    rig.tryAll(user);

    Awkward foreign = {"an ordinary user in root's folder"};
    foreign.prepare = [](const std::string&) { return needsRoot(); };
    foreign.inside = user.inside;
    foreign.causes = {REG_OPEN_LOCK_FAILED};
    rig.tryAll(foreign);

    Awkward mask = {"umask 077"};
    mask.inside = [](const std::string&) { (void)::umask(077); };
    rig.tryAll(mask);

    Awkward closed = {"closed descriptors 0 to 2"};
    closed.inside = [](const std::string&) {
        for (const int descriptor : {0, 1, 2}) {
            (void)::close(descriptor);
        }
    };
    rig.tryAll(closed);

    Awkward limited = {"a file-size limit, its signal ignored"};
    limited.inside = [](const std::string& path) { limitFileSize(path, true); };
    limited.causes = {REG_CLOSE_TMP_FAILED, REG_COPY_WRITE_FAILED, REG_RECORD_WRITE_FAILED, REG_CLOSE_FILE_FAILED,
                      REG_SEEK_END_FAILED};
    rig.tryAll(limited);

    Awkward unlinked = {"no hard links (refused by a filter of system calls)"};
    unlinked.inside = [](const std::string&) { refuseLinks(); };
    unlinked.causes = {REG_BACKUP_FAILED};
    unlinked.concerns = replaces;
    rig.tryAll(unlinked);
}

// --- the folder and the file ---------------------------------------------------------------------------------------

void folderPlaces(Places& rig) {
    Awkward closed = {"a read-only folder"};
    closed.prepare = [](const std::string& path) {
        (void)::chmod(Companions(path).lock.c_str(), 0666);
        (void)::chmod(path.c_str(), 0666);
        (void)::chmod(folderOf(path).c_str(), 0555);
        return needsRoot();
    };
    closed.inside = [](const std::string&) { becomeNobody(); };
    closed.mend = [](const std::string& path) {
        (void)::chmod(folderOf(path).c_str(), 0755);
        (void)::chmod(path.c_str(), 0644);
    };
    closed.causes = {REG_OPEN_TMP_FAILED};
    closed.concerns = replaces;
    rig.tryAll(closed);

    // In a sticky folder everybody may create, and only the owner may replace.
    Awkward sticky = closed;
    sticky.name = "another's registry in a sticky folder";
    sticky.prepare = [](const std::string& path) {
        (void)::chmod(Companions(path).lock.c_str(), 0666);
        (void)::chmod(path.c_str(), 0666);
        (void)::chmod(folderOf(path).c_str(), 01777);
        return needsRoot();
    };
    sticky.causes = {REG_RENAME_FAILED, REG_BACKUP_FAILED, REG_OPEN_LOCK_FAILED, REG_SET_PERMISSIONS_FAILED};
    rig.tryAll(sticky);

    for (const char* flag : {"+i", "+a"}) {
        Awkward fixed = {*(flag + 1) == 'i' ? "an immutable file" : "an append-only file"};
        fixed.prepare = [flag](const std::string& path) {
            return run({"chattr", flag, path}) == 0 ? "" : "chattr does not work here";
        };
        fixed.mend = [flag](const std::string& path) { (void)run({"chattr", flag[1] == 'i' ? "-i" : "-a", path}); };
        fixed.causes = {REG_BACKUP_FAILED, REG_OPEN_FILE_FAILED};
        fixed.concerns = [flag](const Kind& kind, const Update& update) {
            return flag[1] == 'i' || replaces(kind, update);
        };
        rig.tryAll(fixed);
    }

    Awkward bound = {"a bind-mounted registry file"};
    bound.prepare = [](const std::string& path) {
        return ::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0 ? "" : "no mounts here";
    };
    bound.mend = [](const std::string& path) { (void)::umount(path.c_str()); };
    bound.causes = {REG_BACKUP_FAILED};
    bound.concerns = replaces;
    rig.tryAll(bound);

    // The registry and its companions move onto a small file system of their own, which something else fills.
    Awkward full = {"a full disk"};
    full.prepare = [](const std::string& path) {
        const std::string bytes = bytesOf(path).value_or("");
        if (::mount("none", folderOf(path).c_str(), "tmpfs", 0, "size=16k,mode=755") != 0) {
            return "no mounts here";
        }
        (void)putBytes(path, bytes);
        (void)putBytes(Companions(path).lock, "");
        (void)putBytes(folderOf(path) + "/filler", std::string(65536, 'x'));
        return "";
    };
    full.mend = [](const std::string& path) { (void)::remove((folderOf(path) + "/filler").c_str()); };
    full.causes = {REG_CLOSE_TMP_FAILED, REG_COPY_WRITE_FAILED, REG_RECORD_WRITE_FAILED, REG_SEEK_END_FAILED};
    // A few bytes more in place need no further page; what runs full there is tried by a file-size limit.
    full.concerns = replaces;
    rig.tryAll(full);
}

// --- companions that somebody planted ------------------------------------------------------------------------------

void plantedPlaces(Places& rig) {
    using Path = std::string Companions::*;
    const std::pair<const char*, Path> companions[] = {{"temporary copy", &Companions::copy},
                                                       {"set-aside copy", &Companions::corrupt},
                                                       {"backup", &Companions::backup},
                                                       {"lock file", &Companions::lock}};
    for (const auto& [companion, member] : companions) {
        for (const bool hard : {false, true}) {
            const std::string name = std::string(hard ? "a hard link" : "a link") + " planted as the " + companion;
            Awkward planted = {name.c_str()};
            const Path where = member;
            planted.prepare = [where, hard](const std::string& path) {
                const std::string victim = folderOf(path) + "/victim";
                const std::string plant = Companions(path).*where;
                (void)putBytes(victim, VICTIM);
                (void)::remove(plant.c_str());
                const int made =
                    hard ? ::link(victim.c_str(), plant.c_str()) : ::symlink(victim.c_str(), plant.c_str());
                return made == 0 ? "" : "the link could not be planted";
            };
            rig.tryAll(planted);
        }
        const std::string name = std::string("a folder in place of the ") + companion;
        Awkward folder = {name.c_str()};
        const Path where = member;
        folder.prepare = [where](const std::string& path) {
            const std::string plant = Companions(path).*where;
            (void)::remove(plant.c_str());
            return ::mkdir(plant.c_str(), 0755) == 0 ? "" : "the folder could not be made";
        };
        folder.mend = [where](const std::string& path) { (void)::rmdir((Companions(path).*where).c_str()); };
        folder.concerns = replaces;
        if (member == &Companions::corrupt) {
            folder.causes = {REG_DELETE_CORRUPT_FAILED};
        } else if (member == &Companions::backup) {
            folder.causes = {REG_BACKUP_FAILED};
        } else if (member == &Companions::lock) {
            folder.causes = {REG_OPEN_LOCK_FAILED};
        }
        rig.tryAll(folder);
    }
}

// --- names ---------------------------------------------------------------------------------------------------------

// A folder of such a depth that a file named "settings" in it has a path of so many characters.
std::string deepFolder(const Folder& folder, std::size_t length) {
    std::string path = folder.path();
    while (path.size() + sizeof "/settings" - 1 < length) {
        const std::size_t left = length - path.size() - (sizeof "/settings" - 1);
        path += "/" + std::string(left > 201 ? 100 : left - 1, 'd');
        (void)::mkdir(path.c_str(), 0755);
    }
    return path;
}

void names(Cases& cases) {
    const Folder folder(true);
    for (const Kind& kind : KINDS) {
        for (const std::size_t length : {249UL, 250UL, 255UL}) {
            const std::string what = std::string(kind.name) + ", a name of " + std::to_string(length);
            const std::string path = folder.file(std::string(length, 'n'));
            const std::string before = Places::layOut(kind, folder.file("settings"));
            (void)putBytes(path, before);
            const auto client = openClient(kind, path);
            const unsigned int rc = UPDATES[1].run(*client);
            GenRegCause cause = {};
            genregLastCause(&cause);
            prove::Entry entry;
            (void)cases.check(client->get("alpha", &entry) == 0 && entry.value == 1, what + ": cannot be read");
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
            const std::string path = deepFolder(folder, length) + "/settings";
            unsigned int rc = 0;
            const auto client = openClient(kind, path, &rc);
            if (length == 1018) {
                (void)cases.check(path.size() == length && rc == REG_PATH_TOO_LONG, what + ": " + hex(rc));
            } else {
                (void)cases.check(path.size() == length && rc == 0 && !Places::layOut(kind, path).empty() &&
                                      UPDATES[0].run(*client) == 0 && UPDATES[1].run(*client) == 0,
                                  what + ": refused");
                (void)cases.check(
                    prove::namesIn(folderOf(path)) == std::vector<std::string>{".settings.lock", "settings"},
                    what + ": left strange files");
            }
            folder.empty();
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
        const auto client = openClient(kind, path);
        const auto other = [&] { return prove::inChild([&] { return openClient(kind, path)->lock(TRY); }); };
        (void)cases.check(client->lock(TRY) == 0, what + "the lock was not to be had");
        {
            const Bystander child;
            (void)cases.check(other() == REG_LOCK_HELD, what + "the parent's lock is gone");
            (void)cases.check(client->unlock() == 0 && other() == 0U, what + "the child holds the lock");
        }
        // The one who locked dies; a child that it left behind holds nothing.
        pid_t left = 0;
        const Shared<pid_t> leftBehind;
        (void)prove::inChild([&] {
            const auto dying = openClient(kind, path);
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
            client->beforeVerify([&] { child.emplace(); });
            (void)cases.check(UPDATES[1].run(*client) == 0 && child.has_value(), what + "the update in hand failed");
            const auto next = prove::inChild([&] { return UPDATES[0].run(*openClient(kind, path)); }, 5);
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
                const auto outcome = attempt(kind, path, Awkward{}, update);
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
        Awkward place = {"a file-size limit, its signal deadly"};
        place.inside = [](const std::string& file) { limitFileSize(file, false); };
        for (const Update& update : UPDATES) {
            const std::string what = std::string(place.name) + ", " + kind.name + ", " + update.name;
            (void)cases.check(!attempt(kind, path, place, update), what + ": the signal did not come");
            (void)cases.check(bytesOf(path) == before, what + ": the registry is not what it was");
        }
        (void)cases.check(UPDATES[1].run(*openClient(kind, path)) == 0,
                          std::string(kind.name) + ": no update after it");
    }
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("awkward", argc, argv);
    if (!prove::Image::mountPrivately()) {
        cases.skip("bind mounts and full disks", "the rig gets no mounts of its own");
    }
    const Folder folder(false);
    Places rig(cases, folder);
    processPlaces(rig);
    folderPlaces(rig);
    plantedPlaces(rig);
    names(cases);
    forks(cases);
    strangers(cases);
    deadlySignal(cases);
    noHardLinks(cases);
    return cases.finish();
}

#include "AwkwardPlaces.h"

#include <fcntl.h>
#include <genreg/Codes.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "Folder.h"
#include "Place.h"

namespace prove {
namespace {

constexpr uid_t NOBODY = 65534;
// As long as the note in a lock file, so that its length does not tell them apart.
const std::string VICTIM(128, 'v');

constexpr const char* NO_MOUNTS = "the rig gets no mounts of its own";

std::string needsRoot() {
    return ::geteuid() == 0 ? "" : "takes root";
}

void filterCalls(const sock_filter* filter, unsigned short length) {
    const sock_fprog program = {length, const_cast<sock_filter*>(filter)};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
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
    filterCalls(filter, std::size(filter));
}

// Refuses an open that could create the file but would take another's, as the system does, even to root, in a sticky
// folder of everybody's (fs.protected_regular). Stdio's own opens of devices, which truncate, are let through.
void refuseLooseCreation() {
    const sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 4),
                                  BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
                                  BPF_STMT(BPF_ALU | BPF_AND | BPF_K, O_CREAT | O_EXCL | O_TRUNC),
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, O_CREAT, 0, 1),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    filterCalls(filter, std::size(filter));
}

}  // namespace

void refuseAttributes() {
    const sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fsetxattr, 0, 1),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOTSUP),
                                  BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    filterCalls(filter, std::size(filter));
}

namespace {

void processPlaces(std::vector<AwkwardPlace>& places) {
    AwkwardPlace user = {"an ordinary user's own folder"};
    user.prepare = [](const std::string& path) {
        const bool given = ::chown(folderOf(path).c_str(), NOBODY, NOBODY) == 0 &&
                           ::chown(path.c_str(), NOBODY, NOBODY) == 0 &&
                           ::chown(Companions(path).lock.c_str(), NOBODY, NOBODY) == 0;
        return given ? "" : needsRoot();
    };
    user.inside = [](const std::string&) { becomeNobody(); };
    user.asNobody = true;
    user.mend = [](const std::string& path) { (void)::chown(folderOf(path).c_str(), 0, 0); };
    places.push_back(user);

    AwkwardPlace foreign = {"an ordinary user in root's folder"};
    foreign.prepare = [](const std::string&) { return needsRoot(); };
    foreign.inside = user.inside;
    foreign.asNobody = true;
    foreign.causes = {REG_OPEN_LOCK_FAILED};
    places.push_back(foreign);

    AwkwardPlace mask = {"umask 077"};
    mask.inside = [](const std::string&) { (void)::umask(077); };
    places.push_back(mask);

    AwkwardPlace closed = {"closed descriptors 0 to 2"};
    closed.inside = [](const std::string&) {
        for (const int descriptor : {0, 1, 2}) {
            (void)::close(descriptor);
        }
    };
    closed.silent = true;
    places.push_back(closed);

    AwkwardPlace limited = {"a file-size limit"};
    limited.inside = [](const std::string& path) { limitFileSize(path, true); };
    limited.causes = {REG_CLOSE_TMP_FAILED, REG_COPY_WRITE_FAILED, REG_RECORD_WRITE_FAILED, REG_CLOSE_FILE_FAILED,
                      REG_SEEK_END_FAILED};
    places.push_back(limited);

    AwkwardPlace unlinked = {"no hard links (refused by a filter of system calls)"};
    unlinked.inside = [](const std::string&) { refuseLinks(); };
    unlinked.causes = {REG_BACKUP_FAILED};
    unlinked.onlyReplacing = true;
    places.push_back(unlinked);

    AwkwardPlace guarded = {"a sticky folder of everybody's (a filter of system calls stands in)"};
    guarded.inside = [](const std::string&) { refuseLooseCreation(); };
    places.push_back(guarded);
}

void folderPlaces(std::vector<AwkwardPlace>& places) {
    AwkwardPlace closed = {"a read-only folder"};
    closed.prepare = [](const std::string& path) {
        (void)::chmod(Companions(path).lock.c_str(), 0666);
        (void)::chmod(path.c_str(), 0666);
        (void)::chmod(folderOf(path).c_str(), 0555);
        return needsRoot();
    };
    closed.inside = [](const std::string&) { becomeNobody(); };
    closed.asNobody = true;
    closed.mend = [](const std::string& path) {
        (void)::chmod(folderOf(path).c_str(), 0755);
        (void)::chmod(path.c_str(), 0644);
    };
    closed.causes = {REG_OPEN_TMP_FAILED};
    closed.onlyReplacing = true;
    places.push_back(closed);

    // In a sticky folder everybody may create, and only the owner may replace.
    AwkwardPlace sticky = closed;
    sticky.name = "another's registry in a sticky folder";
    sticky.prepare = [](const std::string& path) {
        (void)::chmod(Companions(path).lock.c_str(), 0666);
        (void)::chmod(path.c_str(), 0666);
        (void)::chmod(folderOf(path).c_str(), 01777);
        return needsRoot();
    };
    sticky.causes = {REG_RENAME_FAILED, REG_BACKUP_FAILED, REG_OPEN_LOCK_FAILED, REG_SET_PERMISSIONS_FAILED};
    places.push_back(sticky);

    for (const char* flag : {"+i", "+a"}) {
        AwkwardPlace fixed = {*(flag + 1) == 'i' ? "an immutable file" : "an append-only file"};
        fixed.hidden = true;
        fixed.prepare = [flag](const std::string& path) {
            return run({"chattr", flag, path}) == 0 ? "" : "chattr does not work here";
        };
        fixed.mend = [flag](const std::string& path) { (void)run({"chattr", flag[1] == 'i' ? "-i" : "-a", path}); };
        fixed.causes = {REG_BACKUP_FAILED, REG_OPEN_FILE_FAILED};
        fixed.onlyReplacing = flag[1] == 'a';
        places.push_back(fixed);
    }
}

void mountedPlaces(std::vector<AwkwardPlace>& places, bool ownMounts) {
    AwkwardPlace bound = {"a bind-mounted registry file"};
    bound.hidden = true;
    bound.prepare = [ownMounts](const std::string& path) {
        if (!ownMounts) {
            return NO_MOUNTS;
        }
        return ::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0 ? "" : "no file is mounted here";
    };
    bound.mend = [](const std::string& path) { (void)::umount(path.c_str()); };
    bound.causes = {REG_BACKUP_FAILED};
    bound.onlyReplacing = true;
    places.push_back(bound);

    // The registry and its companions move onto a small file system of their own, which something else fills.
    AwkwardPlace full = {"a full disk"};
    full.prepare = [ownMounts](const std::string& path) {
        if (!ownMounts) {
            return NO_MOUNTS;
        }
        const std::string bytes = bytesOf(path).value_or("");
        if (::mount("none", folderOf(path).c_str(), "tmpfs", 0, "size=16k,mode=755") != 0) {
            return "no tmpfs is mounted here";
        }
        (void)putBytes(path, bytes);
        (void)putBytes(Companions(path).lock, "");
        (void)putBytes(folderOf(path) + "/filler", std::string(65536, 'x'));
        return "";
    };
    full.mend = [](const std::string& path) { (void)::remove((folderOf(path) + "/filler").c_str()); };
    full.causes = {REG_CLOSE_TMP_FAILED, REG_COPY_WRITE_FAILED, REG_RECORD_WRITE_FAILED, REG_SEEK_END_FAILED};
    // A few bytes more in place need no further page; what runs full there is tried by a file-size limit.
    full.onlyReplacing = true;
    places.push_back(full);
}

void lockFileIsNone(AwkwardPlace& place) {
    place.causes = {REG_OPEN_LOCK_FAILED};
    place.mend = [](const std::string& path) { (void)::remove(Companions(path).lock.c_str()); };
}

void plantedPlaces(std::vector<AwkwardPlace>& places) {
    AwkwardPlace loose = {"a link to nothing planted as the lock file"};
    loose.prepare = [](const std::string& path) {
        const std::string plant = Companions(path).lock;
        (void)::remove(plant.c_str());
        return ::symlink((folderOf(path) + "/made").c_str(), plant.c_str()) == 0 ? "" : "the link could not be planted";
    };
    lockFileIsNone(loose);
    places.push_back(loose);

    using Path = std::string Companions::*;
    const std::pair<const char*, Path> companions[] = {{"temporary copy", &Companions::copy},
                                                       {"set-aside copy", &Companions::corrupt},
                                                       {"backup", &Companions::backup},
                                                       {"lock file", &Companions::lock}};
    for (const auto& [companion, member] : companions) {
        for (const bool hard : {false, true}) {
            AwkwardPlace planted = {std::string(hard ? "a hard link" : "a link") + " planted as the " + companion};
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
            if (member == &Companions::lock && !hard) {
                lockFileIsNone(planted);
            }
            places.push_back(planted);
        }
        AwkwardPlace folder = {std::string("a folder in place of the ") + companion};
        const Path where = member;
        folder.prepare = [where](const std::string& path) {
            const std::string plant = Companions(path).*where;
            (void)::remove(plant.c_str());
            return ::mkdir(plant.c_str(), 0755) == 0 ? "" : "the folder could not be made";
        };
        folder.mend = [where](const std::string& path) { (void)::rmdir((Companions(path).*where).c_str()); };
        folder.onlyReplacing = true;
        if (member == &Companions::corrupt) {
            folder.causes = {REG_DELETE_CORRUPT_FAILED};
        } else if (member == &Companions::backup) {
            folder.causes = {REG_BACKUP_FAILED};
        } else if (member == &Companions::lock) {
            folder.causes = {REG_OPEN_LOCK_FAILED};
        }
        places.push_back(folder);
    }
}

}  // namespace

std::vector<AwkwardPlace> awkwardPlaces(bool ownMounts) {
    std::vector<AwkwardPlace> places;
    processPlaces(places);
    folderPlaces(places);
    mountedPlaces(places, ownMounts);
    plantedPlaces(places);
    return places;
}

AwkwardPlace lockedPlace() {
    AwkwardPlace locked = {"control"};
    locked.prepare = [](const std::string& path) {
        const std::string lock = Companions(path).lock;
        return ::remove(lock.c_str()) == 0 && ::mkdir(lock.c_str(), 0755) == 0 ? "" : "no folder";
    };
    return locked;
}

std::vector<std::pair<const char*, AwkwardPlace>> harmfulPlaces() {
    const auto harmful = [](const std::function<void(const std::string& path)>& harm) {
        AwkwardPlace place = {"control"};
        place.inside = harm;
        return place;
    };
    return {{"mode or owner", harmful([](const std::string& path) { (void)::chmod(path.c_str(), 0600); })},
            {"another's file was written",
             harmful([](const std::string& path) { (void)putBytes(folderOf(path) + "/victim", "x"); })},
            {"cannot be read", harmful([](const std::string& path) { (void)::remove(path.c_str()); })}};
}

void leaveAwkwardPlace(const std::string& folder) {
    (void)::umount2(folder.c_str(), MNT_DETACH);
}

std::string harmDone(const std::string& folder) {
    static const std::set<std::string> KNOWN = {"settings",     ".settings.lock", ".settings.bkp", "settings.tmp",
                                                "settings.cor", "victim",         "filler"};
    const std::vector<std::string> names = namesIn(folder);
    const auto strange = std::find_if(names.begin(), names.end(), [](const auto& n) { return KNOWN.count(n) == 0; });
    if (strange != names.end()) {
        return "left " + *strange;
    }
    const auto victim = bytesOf(folder + "/victim");
    return victim && *victim != VICTIM ? "another's file was written" : "";
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

void becomeNobody() {
    if (::setgid(NOBODY) != 0 || ::setuid(NOBODY) != 0) {
        std::abort();
    }
}

void limitFileSize(const std::string& path, bool ignoreSignal) {
    (void)::signal(SIGXFSZ, ignoreSignal ? SIG_IGN : SIG_DFL);
    const rlimit limit = {bytesOf(path).value_or("").size() / 4, RLIM_INFINITY};
    (void)::setrlimit(RLIMIT_FSIZE, &limit);
}

std::string deepFolder(const std::string& parent, const std::string& name, std::size_t length) {
    std::string path = parent;
    while (path.size() + 1 + name.size() < length) {
        const std::size_t left = length - path.size() - 1 - name.size();
        path += "/" + std::string(left > 201 ? 100 : left - 1, 'd');
        (void)::mkdir(path.c_str(), 0755);
    }
    return path;
}

}  // namespace prove

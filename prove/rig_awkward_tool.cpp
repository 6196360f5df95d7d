// The tool in awkward places: where a change cannot be made it exits as its table says, names the file, the reason and
// a remedy, and the registry stands as it was; once the remedy is applied the same command succeeds. Where it can be
// made it is made without a word, and nothing else is touched.
//
// Each place is tried with an add, a change and a removal on files of all five schemas; --quick takes the change and
// two schemas. What takes root, or mounts of its own, is skipped where there is none, with the reason.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <set>

#include "prove/support/AwkwardPlaces.h"
#include "prove/support/Cases.h"
#include "prove/support/DiskImage.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "prove/support/Stepper.h"
#include "prove/support/ToolRun.h"
#include "tests/support/BuiltTool.h"
#include "tests/support/Ways.h"

namespace {

using prove::AwkwardPlace;
using prove::bytesOf;
using prove::Cases;
using prove::Complaint;
using prove::Folder;
using prove::putBytes;
using prove::ToolRun;
using prove::Words;

// Exit statuses of the tool.
constexpr int UNREADABLE = 3;
constexpr int LOCKED = 4;
constexpr int INVALID = 6;
constexpr int WRITE_FAILED = 8;

// Where no call of the system's own tells of the attributes of a file, nobody can say which one forbids it.
constexpr const char* NOT_IMMUTABLE = CARRIES_ATTRIBUTES ? "chattr -i " : "hard links";
constexpr const char* NOT_APPEND_ONLY = CARRIES_ATTRIBUTES ? "chattr -a " : "hard links";

// What a user is to be told in each place where a change cannot be made.
const std::map<std::string, Complaint> COMPLAINTS = {
    {"an ordinary user in root's folder", {UNREADABLE, "permission denied", "check the permissions of "}},
    {"a file-size limit", {WRITE_FAILED, "not replaced: file too large", "ulimit -f"}},
    {"no hard links (refused by a filter of system calls)", {WRITE_FAILED, "not replaced", "hard links"}},
    {"a read-only folder", {WRITE_FAILED, "permission denied; the file was not replaced", "as the owner of the file"}},
    {"another's registry in a sticky folder", {WRITE_FAILED, "not replaced", "as the owner of the file"}},
    {"an immutable file", {WRITE_FAILED, "not replaced: operation not permitted", NOT_IMMUTABLE}},
    {"an append-only file", {WRITE_FAILED, "not replaced: operation not permitted", NOT_APPEND_ONLY}},
    {"a bind-mounted registry file", {WRITE_FAILED, "not replaced", "findmnt "}},
    {"a full disk", {WRITE_FAILED, "not replaced: no space left", "free some space"}},
    {"a folder in place of the set-aside copy", {WRITE_FAILED, "not replaced", "settings.cor out of the way"}},
    {"a folder in place of the backup", {WRITE_FAILED, "not replaced", ".settings.bkp out of the way"}},
    {"a link planted as the lock file", {UNREADABLE, "lock file", ".settings.lock (ls -l)"}},
    {"a link to nothing planted as the lock file", {UNREADABLE, "lock file", ".settings.lock (ls -l)"}},
    {"a folder in place of the lock file", {UNREADABLE, "lock file", ".settings.lock out of the way"}}};

// The commands for one schema of file; FILE stands for its path.
struct Schema {
    const char* name;
    Words alpha, beta;  // what it is made of
    Words updates[3];   // an add, a change, a removal
    Words look;         // for what alpha holds
    const char* answer;
    bool global = false;
};

const Schema SCHEMAS[] = {{"varval",
                           {"varval", "add", "FILE", "alpha", "1"},
                           {"varval", "add", "FILE", "beta", "2", "--comment", "two"},
                           {{"varval", "add", "FILE", "gamma", "3"},
                            {"varval", "set", "FILE", "beta", "22"},
                            {"varval", "delete", "FILE", "beta"}},
                           {"varval", "get", "FILE", "alpha"},
                           "1\n"},
                          {"global registry",
                           {"--registry", "FILE", "variable", "set", "svc", "alpha", "value=1"},
                           {"--registry", "FILE", "variable", "set", "svc", "beta", "value=2"},
                           {{"--registry", "FILE", "variable", "set", "svc", "gamma", "value=3"},
                            {"--registry", "FILE", "variable", "set", "svc", "beta", "value=22"},
                            {"--registry", "FILE", "variable", "remove", "svc", "beta"}},
                           {"--registry", "FILE", "variable", "get", "svc", "alpha"},
                           "value         1\n",
                           true},
                          {"binvar",
                           {"binvar", "add", "FILE", "alpha", "1"},
                           {"binvar", "add", "FILE", "beta", "2"},
                           {{"binvar", "add", "FILE", "gamma", "3"},
                            {"binvar", "set", "FILE", "beta", "22"},
                            {"binvar", "delete", "FILE", "beta"}},
                           {"binvar", "get", "FILE", "alpha"},
                           "1\n"},
                          {"services",
                           {"services", "add", "FILE", "alpha", "101/tcp"},
                           {"services", "add", "FILE", "beta", "102/tcp", "two", "zwei"},
                           {{"services", "add", "FILE", "gamma", "103/udp"},
                            {"services", "set", "FILE", "beta", "202/tcp"},
                            {"services", "delete", "FILE", "beta"}},
                           {"services", "get", "FILE", "alpha"},
                           "101/tcp\n"},
                          {"inittab",
                           {"inittab", "add", "FILE", "al", "2", "once", "/bin/alpha"},
                           {"inittab", "add", "FILE", "be", "3", "wait", "/bin/beta a:b"},
                           {{"inittab", "add", "FILE", "ga", "4", "off", "/bin/gamma"},
                            {"inittab", "set", "FILE", "be", "3", "off", "/bin/beta"},
                            {"inittab", "delete", "FILE", "be"}},
                           {"inittab", "get", "FILE", "al"},
                           "2:once:/bin/alpha\n"}};
const Schema& PLAIN = SCHEMAS[0];
const char* const UPDATE_NAMES[] = {"add", "change", "removal"};
constexpr int CHANGE = 1;

// --- running it ----------------------------------------------------------------------------------------------------

ToolRun genreg(
    const Words& words, const std::string& path, const std::function<void()>& inside = [] {}) {
    Words named = words;
    for (std::string& word : named) {
        word = word == "FILE" ? path : word;
    }
    return prove::runTool(BUILT_TOOL, named, inside);
}

Words with(const char* option, const Words& words) {
    Words all = {option};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

// A file of two records, made by the tool, and its lock file; its bytes.
std::string layOut(const Schema& schema, const std::string& path) {
    const bool good = genreg(schema.alpha, path).status == 0 && genreg(schema.beta, path).status == 0;
    return good ? bytesOf(path).value_or("") : "";
}

// The global registry has places that are the machine's own: its change log, and the monitor that it wakes. They are
// hidden from this process and its children. False when that takes mounts that cannot be had.
bool hideTheMachine(bool ownMounts) {
    for (const char* const place : {"/tmp/globalreg.debug", "/var/rvn/.fmcd.lock"}) {
        const bool there = ::access(place, F_OK) == 0;
        if (there && (!ownMounts || ::mount("/dev/null", place, nullptr, MS_BIND, nullptr) != 0)) {
            return false;
        }
    }
    return ownMounts;
}

// --- the places that the library is tried in as well ---------------------------------------------------------------

class Places {
public:
    Places(Cases& cases, bool ownMounts)
        : cases_(cases),
          folder_(false),
          hidden_(hideTheMachine(ownMounts)),
          nobodyRuns_(::geteuid() != 0 || genreg({"--help"}, "", prove::becomeNobody).status == 0) {
        if (!hidden_) {
            cases_.skip("the global registry", "the rig cannot hide the change log and the monitor of this machine");
        }
    }

    // Places that are no more awkward than others, with something wrong about each.
    void controls() {
        const auto show = [&](const char* words, const AwkwardPlace& place) {
            cases_.control(words, [&] { (void)tryOne(place, PLAIN, CHANGE); });
        };
        AwkwardPlace easy = {"a file-size limit"};
        easy.causes = {1};
        show("exit 0, not 8", easy);
        show("the file is not what it was", easy);
        AwkwardPlace locked = prove::lockedPlace();
        show("change: genreg: ", locked);
        locked.name = "an immutable file";
        locked.causes = {1};
        show("exit 3, not 8", locked);
        show("once mended, genreg: ", locked);
        for (const auto& [words, place] : prove::harmfulPlaces()) {
            show(words, place);
        }
    }

    void tryAll(const AwkwardPlace& place) {
        if (!place.causes.empty() && COMPLAINTS.count(place.name) == 0) {
            (void)cases_.check(false, place.name + ": what a user is to be told of it is not written down");
            return;
        }
        if (place.asNobody && !nobodyRuns_) {
            cases_.skip(place.name, "another user cannot run the tool where it was built");
            return;
        }
        for (const Schema& schema : SCHEMAS) {
            for (int update = 0; update < 3; ++update) {
                const bool left = cases_.quick() && (update != CHANGE || &schema > &SCHEMAS[1]);
                if (!left && (hidden_ || !schema.global) && !tryOne(place, schema, update)) {
                    return;
                }
            }
        }
    }

private:
    // What the update makes of the file where nothing is awkward.
    const std::string& expected(const Schema& schema, int update) {
        std::string& bytes = expected_[{&schema, update}];
        if (bytes.empty()) {
            const Folder plain(true);
            const std::string path = plain.file("settings");
            (void)layOut(schema, path);
            (void)genreg(schema.updates[update], path);
            bytes = bytesOf(path).value_or("");
        }
        return bytes;
    }

    // False when the place cannot be made here.
    bool tryOne(const AwkwardPlace& place, const Schema& schema, int update) {
        folder_.empty();
        (void)::chmod(folder_.path().c_str(), 0755);
        const std::string path = folder_.file("settings");
        const std::string before = layOut(schema, path);
        const std::string what = place.name + ", " + schema.name + ", " + UPDATE_NAMES[update];
        (void)cases_.check(!before.empty() && before != expected(schema, update), what + ": the tool does nothing");
        if (const std::string lacking = place.prepare(path); !lacking.empty()) {
            place.mend(path);
            cases_.skip(place.name, lacking);
            return false;
        }
        const std::string access = prove::accessOf(path);
        const auto inside = [&] { place.inside(path); };
        const ToolRun run = genreg(schema.updates[update], path, inside);
        if (place.causes.empty()) {
            (void)cases_.check(run.status == 0 && bytesOf(path) == expected(schema, update), what + ": " + run.err);
        } else {
            checkRefusal(place, schema.updates[update], path, what, run);
            (void)cases_.check(bytesOf(path) == before, what + ": the file is not what it was");
        }
        (void)cases_.check(prove::accessOf(path) == access, what + ": mode or owner are not what they were");
        const ToolRun look = genreg(schema.look, path, inside);
        const bool seen = look.status == 0 && look.out.find(schema.answer) != std::string::npos;
        (void)cases_.check(place.silent ? look.status == WRITE_FAILED : seen, what + ": cannot be read, " + look.err);
        place.mend(path);
        if (!place.causes.empty()) {
            const ToolRun again = genreg(schema.updates[update], path);
            (void)cases_.check(again.status == 0 && bytesOf(path) == expected(schema, update),
                               what + ": once mended, " + again.err);
        }
        const std::string harm = prove::harmDone(folder_.path());
        (void)cases_.check(harm.empty(), what + ": " + harm);
        prove::leaveAwkwardPlace(folder_.path());
        return true;
    }

    void checkRefusal(const AwkwardPlace& place, const Words& update, const std::string& path, const std::string& what,
                      const ToolRun& run) {
        const Complaint& complaint = COMPLAINTS.at(place.name);
        const std::string wrong = prove::wrongWith(run, path, complaint);
        (void)cases_.check(wrong.empty(), what + ": " + wrong);
        const ToolRun json = genreg(with("--json", update), path, [&] { place.inside(path); });
        const std::string wrongObject = prove::wrongWithJson(json, path, complaint);
        (void)cases_.check(wrongObject.empty(), what + ", --json: " + wrongObject);
        if (place.name == "a full disk" && bytesOf(path + ".tmp")) {
            const ToolRun status = genreg({"status", "FILE"}, path);
            (void)cases_.check(status.out.find("ran out of disk space") != std::string::npos, what + ": " + status.out);
        }
    }

    Cases& cases_;
    const Folder folder_;
    const bool hidden_;
    const bool nobodyRuns_;
    std::map<std::pair<const Schema*, int>, std::string> expected_;
};

// --- names ---------------------------------------------------------------------------------------------------------

void names(Cases& cases) {
    const Folder folder(true);
    const std::string before = layOut(PLAIN, folder.file("settings"));
    const auto tryName = [&](const std::string& path, const Complaint& complaint, bool readable) {
        const std::string what = "a name of " + std::to_string(path.size() - prove::folderOf(path).size() - 1) +
                                 ", a path of " + std::to_string(path.size());
        const bool there = putBytes(path, before);
        const ToolRun run = genreg(PLAIN.updates[CHANGE], path);
        const std::string wrong =
            complaint.status == 0 ? (run.status == 0 ? "" : run.err) : prove::wrongWith(run, path, complaint);
        (void)cases.check(wrong.empty(), what + ": " + wrong);
        (void)cases.check(!there || (bytesOf(path) == before) == (complaint.status != 0), what + ": the file is wrong");
        (void)cases.check((genreg(PLAIN.look, path).out == PLAIN.answer) == readable, what + ": is read wrongly");
    };
    const std::string inFolder = folder.path() + "/";
    tryName(inFolder + std::string(249, 'n'), {}, true);
    for (const std::size_t length : {250UL, 255UL}) {
        tryName(inFolder + std::string(length, 'n'), {UNREADABLE, "file name too long", "shorter name"}, true);
    }
    tryName(inFolder + std::string(256, 'n'), {UNREADABLE, "file name too long", "shorter name"}, false);
    tryName(prove::deepFolder(folder.path(), "file", 1017) + "/file", {}, true);
    const std::string deep = prove::deepFolder(folder.path(), "file", 1018);
    tryName(deep + "/file", {INVALID, "longer than 1,017 characters", "from its folder"}, false);
    // As it was told to be done.
    const ToolRun near = genreg(PLAIN.updates[CHANGE], "file", [&] { (void)::chdir(deep.c_str()); });
    (void)cases.check(near.status == 0 && bytesOf(deep + "/file") != before, "from the deep folder: " + near.err);
}

// --- the tool's own streams ----------------------------------------------------------------------------------------

void closedStreams(Cases& cases, const Folder& folder, const std::set<int>& closed) {
    std::string what = "closed descriptors";
    for (const int descriptor : closed) {
        what += " " + std::to_string(descriptor);
    }
    const bool answers = closed.count(STDOUT_FILENO) == 0;
    const bool speaks = closed.count(STDERR_FILENO) == 0;
    const auto inside = [&] {
        for (const int descriptor : closed) {
            (void)::close(descriptor);
        }
    };
    const auto refused = [&](const Words& command, const std::string& path, const Complaint& complaint) {
        const ToolRun run = genreg(command, path, inside);
        const std::string& named = complaint.status == WRITE_FAILED ? "standard output" : path;
        const bool silent = run.status == complaint.status && run.out.empty() && run.err.empty();
        const std::string wrong = speaks ? prove::wrongWith(run, named, complaint) : silent ? "" : "not silent";
        (void)cases.check(wrong.empty(), what + ": " + wrong);
    };
    const std::string path = folder.file("settings");
    const std::string before = layOut(PLAIN, path);
    const Words rehearsal = with("-q", with("--dry-run", PLAIN.updates[CHANGE]));
    refused(PLAIN.look, folder.file("nothing"), {UNREADABLE, "no such file", "path"});
    if (answers) {
        (void)cases.check(genreg(PLAIN.look, path, inside).out == PLAIN.answer, what + ": no answer");
        (void)cases.check(genreg(rehearsal, path, inside).status == 0, what + ": no rehearsal");
    } else {
        const Complaint unheard = {WRITE_FAILED, "cannot write the result: bad file descriptor", "descriptor open"};
        refused(PLAIN.look, path, unheard);
        refused(rehearsal, path, unheard);
    }
    (void)cases.check(bytesOf(path) == before, what + ": the file is not what it was");
    const ToolRun changed = genreg(PLAIN.updates[CHANGE], path, inside);
    (void)cases.check(changed.status == 0 && bytesOf(path) != before, what + ", a change: " + changed.err);
    (void)cases.check(prove::namesIn(folder.path()).size() == 2, what + ": left strange files");
}

// Some file systems tell of a full disk no earlier than at the last close of what was written, which is made to fail.
void lastClose(Cases& cases, const Folder& folder) {
    if (!prove::canFailCalls()) {
        cases.skip("the last close of standard output", "this system lets no process make another's calls fail");
        return;
    }
    const std::string path = folder.file("settings");
    (void)layOut(PLAIN, path);
    const std::string out = folder.file("out");
    const std::string err = folder.file("err");
    // Fails the close of that number; how many there are.
    const auto look = [&](unsigned long failing, int* status) {
        unsigned long closes = 0;
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t child, const prove::SystemCall& call) {
            const bool ofOutput = call.number == SYS_close && prove::descriptorPath(child, call.arguments[0]) == out;
            closes += ofOutput ? 1 : 0;
            return ofOutput && closes == failing ? prove::Verdict{prove::Verdict::Kind::Fail, ENOSPC}
                                                 : prove::Verdict{};
        };
        const prove::StepResult result = prove::step(
            [&] {
                for (const auto& [file, descriptor] : {std::pair(&out, STDOUT_FILENO), {&err, STDERR_FILENO}}) {
                    const int opened = ::open(file->c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
                    (void)::dup2(opened, descriptor);
                }
                prove::beginPart();
                return ::execl(BUILT_TOOL.c_str(), "genreg", "varval", "get", path.c_str(), "alpha", nullptr);
            },
            hooks);
        *status = result.exitCode;
        return closes;
    };
    int status = -1;
    const unsigned long closes = look(0, &status);
    (void)cases.check(status == 0 && closes > 0 && bytesOf(out) == PLAIN.answer, "a look-up that is watched fails");
    (void)look(closes, &status);
    (void)cases.check(status == WRITE_FAILED && bytesOf(err).value_or("").find("standard output") != std::string::npos,
                      "the last close of standard output: exit " + std::to_string(status));
    folder.empty();
}

void streams(Cases& cases) {
    const Folder folder(true);
    const std::set<int> CLOSED[] = {{0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
    for (const auto& closed : CLOSED) {
        closedStreams(cases, folder, closed);
        folder.empty();
    }
    const std::string path = folder.file("settings");
    for (const auto& [command, status] : {std::pair(PLAIN.look, UNREADABLE), std::pair(PLAIN.updates[0], 0)}) {
        const ToolRun mute = genreg(command, path, [] {
            const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
            (void)::dup2(full, STDERR_FILENO);
        });
        (void)cases.check(mute.status == status, "words on a full device: exit " + std::to_string(mute.status));
    }
    folder.empty();
    lastClose(cases, folder);
}

// --- locks ---------------------------------------------------------------------------------------------------------

// A command that the tool runs under the lock, not told of it, and what it leaves behind: when it is over the lock is
// nobody's.
void locks(Cases& cases) {
    const Folder folder(true);
    const std::string path = folder.file("settings");
    const std::string before = layOut(PLAIN, path);
    const Words update = with("--wait", with("0", PLAIN.updates[CHANGE]));
    const auto holding = [&](const std::string& command) {
        return genreg({"lock", "run", "FILE", "--", "/bin/sh", "-c", command}, path);
    };
    std::string words = "'" + BUILT_TOOL + "'";
    for (const std::string& word : update) {
        words += " " + (word == "FILE" ? path : word);
    }
    const ToolRun within = holding("unset GENREG_HELD_LOCKS; exec " + words);
    const Complaint held = {LOCKED, "is locked by pid ", "genreg lock status "};
    const std::string wrong = prove::wrongWith(within, path, held);
    (void)cases.check(wrong.empty(), "a change under another's lock: " + wrong);
    (void)cases.check(bytesOf(path) == before, "a change under another's lock: the file is not what it was");

    const std::string left = folder.file("left");
    const ToolRun leaving = holding("/bin/sleep 60 > /dev/null 2>&1 & echo $! > '" + left + "'");
    const pid_t child = std::atoi(bytesOf(left).value_or("0").c_str());
    (void)cases.check(leaving.status == 0 && child > 0 && ::kill(child, 0) == 0, "a child is left: " + leaving.err);
    const ToolRun after = genreg(update, path);
    (void)cases.check(after.status == 0 && bytesOf(path) != before,
                      "a child that was left holds the lock: " + after.err);
    if (child > 0) {
        (void)::kill(child, SIGKILL);
    }
}

// --- what others lose ----------------------------------------------------------------------------------------------

// Whoever may not give a file away makes it his own by an update, and is told so; what can be kept is kept.
void belongings(Cases& cases) {
    const Folder folder(false);
    const std::string path = folder.file("settings");
    (void)layOut(PLAIN, path);
    if (::geteuid() != 0 || genreg({"--help"}, "", prove::becomeNobody).status != 0) {
        cases.skip("another's file in everybody's folder", "takes root, and a tool that others may run");
        return;
    }
    (void)::chmod(folder.path().c_str(), 0777);
    (void)::chmod(path.c_str(), 0666);
    const bool tied = CARRIES_ATTRIBUTES && ::setxattr(path.c_str(), "user.origin", "here", 4, 0) == 0;
    if (!CARRIES_ATTRIBUTES) {
        cases.skip("what is tied to a file", "takes a system that says what ACLs and attributes are");
    }
    const ToolRun own = genreg(PLAIN.updates[0], path);
    (void)cases.check(own.status == 0 && own.err.empty(), "an update by the owner: " + own.err);
    (void)::remove(prove::Companions(path).lock.c_str());
    const ToolRun run = genreg(PLAIN.updates[CHANGE], path, prove::becomeNobody);
    const bool told =
        run.err.find("its owner root") != std::string::npos && run.err.find("its group") != std::string::npos;
    (void)cases.check(run.status == 0 && told && run.err.find("origin") == std::string::npos,
                      "an update by another: " + run.err);
    char value[8] = "";
    (void)cases.check(!tied || ::getxattr(path.c_str(), "user.origin", value, sizeof value) == 4,
                      "an update by another: what was tied to the file is gone");
    // The lock file that this left is nobody's; the one who made it is named.
    (void)::chmod(prove::Companions(path).lock.c_str(), 0600);
    (void)!::chown(prove::Companions(path).lock.c_str(), 0, 0);
    const std::string wrong = prove::wrongWith(genreg(PLAIN.updates[CHANGE], path, prove::becomeNobody), path,
                                               {UNREADABLE, "permission denied", "its lock file belongs to root"});
    (void)cases.check(wrong.empty(), "another's lock file: " + wrong);
    if (tied) {
        const ToolRun untied = genreg(PLAIN.updates[2], path, prove::refuseAttributes);
        (void)cases.check(untied.status == 0 && untied.err.find("the attribute user.origin") != std::string::npos,
                          "an update where no attribute can be given: " + untied.err);
    }
}

// --- what is no registry -------------------------------------------------------------------------------------------

void strangers(Cases& cases) {
    const Folder folder(true);
    const auto refused = [&](const std::string& name, const std::string& reason, const std::string& remedy) {
        for (const Schema& schema : SCHEMAS) {
            for (const Words& command : {schema.updates[CHANGE], schema.look}) {
                const std::string path = folder.file(name);
                const std::string wrong = prove::wrongWith(genreg(command, path), path, {UNREADABLE, reason, remedy});
                (void)cases.check(wrong.empty(), std::string(schema.name) + ", " + name + ": " + wrong);
            }
        }
    };
    (void)::mkdir(folder.file("folder").c_str(), 0755);
    refused("folder", "is a directory", "inside the directory");
    (void)::mkfifo(folder.file("pipe").c_str(), 0644);
    refused("pipe", "no regular file", "name a regular file");
    (void)::symlink("circle2", folder.file("circle1").c_str());
    (void)::symlink("circle1", folder.file("circle2").c_str());
    refused("circle1", "symbolic links", "circle");
    (void)cases.check(prove::namesIn(folder.path()).size() == 4, "what is no registry: left strange files");
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("awkward_tool", argc, argv);
    const bool ownMounts = prove::DiskImage::mountPrivately();
    cases.expectAtLeast(cases.quick() ? 360 : 2'100);
    Places rig(cases, ownMounts);
    rig.controls();
    for (const AwkwardPlace& place : prove::awkwardPlaces(ownMounts)) {
        rig.tryAll(place);
    }
    names(cases);
    streams(cases);
    locks(cases);
    belongings(cases);
    strangers(cases);
    return cases.finish();
}

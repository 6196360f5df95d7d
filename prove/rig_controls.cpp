// Controls: everything in support/ that looks at something and judges it is shown what is good and what is bad, and
// must tell the one from the other. The checkers that are one rig's own are shown theirs by that rig.
#include <fcntl.h>
#include <genreg/Codes.h>
#include <osse/Errors.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "platform/System.h"
#include "prove/fuzz/Fuzz.h"
#include "prove/support/AwkwardPlaces.h"
#include "prove/support/Blame.h"
#include "prove/support/Cases.h"
#include "prove/support/Crowd.h"
#include "prove/support/DiskModel.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "prove/support/Rig.h"
#include "prove/support/SchemaFace.h"
#include "prove/support/Shared.h"
#include "prove/support/Stepper.h"
#include "prove/support/ToolRun.h"

namespace {

using prove::bytesOf;
using prove::Cases;
using prove::Folder;
using prove::putBytes;
using prove::Scenario;

// What is wrong here may be the counting itself, so the exit code does not hang on it alone.
class Controls {
public:
    explicit Controls(Cases& cases) : cases_(cases) {}

    void expect(bool holds, const std::string& what) {
        good_ = good_ && holds;
        (void)cases_.check(holds, what);
    }
    [[nodiscard]] bool good() const noexcept { return good_; }

    void counting();
    void children();
    void places();
    void steps();
    void blame();
    void disks();
    void crowds();
    void scans();
    void complaints();

private:
    Cases& cases_;
    bool good_ = true;
};

// --- counting ------------------------------------------------------------------------------------------------------

int exitOf(const std::function<int()>& body) {
    (void)std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)::dup2(nowhere, STDOUT_FILENO);
        (void)::dup2(nowhere, STDERR_FILENO);
        ::_exit(body());
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Controls::counting() {
    char name[] = "rig";
    char* words[] = {name, nullptr};
    const auto cases = [&](const std::function<void(Cases&)>& count) {
        return exitOf([&] {
            Cases counted("control", 1, words);
            count(counted);
            return counted.finish();
        });
    };
    const auto rig = [&](const std::function<void(prove::Rig&)>& count) {
        return exitOf([&] {
            prove::Rig counted("control", 1, words);
            counted.begin("one");
            count(counted);
            return counted.finish();
        });
    };
    expect(cases([](Cases& c) { (void)c.check(true, ""); }) == 0, "a good case is a failure");
    expect(cases([](Cases& c) { (void)c.check(false, ""); }) == 1, "a bad case is no failure");
    expect(cases([](Cases& c) { c.add(3, 1); }) == 1, "a failure counted elsewhere is none");
    expect(cases([](Cases&) {}) == 1, "nothing tried is no failure");
    const auto twoOfThree = [](Cases& c) {
        c.expectAtLeast(3);
        c.add(2, 0);
    };
    expect(cases(twoOfThree) == 1, "fewer cases than there are at least are no failure");
    const auto skipping = [&](Cases& c) {
        twoOfThree(c);
        c.skip("the third", "it is not here");
    };
    expect(cases(skipping) == 0, "a part skipped with its reason is a failure");
    const auto control = [&](bool seen, const std::string& said) {
        return cases([&](Cases& c) {
            c.add(1, 0);
            c.control("a lock", [&] { (void)c.check(!seen, said); });
        });
    };
    expect(control(true, "left a lock") == 0, "a control that was caught is a failure");
    expect(control(false, "") == 1, "a control that nobody caught is no failure");
    expect(control(true, "left a file") == 1, "a control caught for something else is no failure");
    expect(rig([](prove::Rig& r) { (void)r.check(true, ""); }) == 0, "what holds is a failure");
    expect(rig([](prove::Rig& r) { (void)r.check(false, ""); }) == 1, "what does not hold is no failure");
    expect(exitOf([] {
               claim(false, "");
               return 0;
           }) == -1,
           "a claim of a fuzz target that does not hold goes on");
    expect(exitOf([] {
               claim(true, "");
               return 0;
           }) == 0,
           "a claim of a fuzz target that holds stops it");
}

// --- children ------------------------------------------------------------------------------------------------------

void Controls::children() {
    const auto isolated = [&](const std::function<void(unsigned long, prove::Tally&)>& body) {
        const prove::Shared<unsigned long> seen;
        char name[] = "rig";
        char* words[] = {name, nullptr};
        const int code = exitOf([&] {
            Cases counted("control", 1, words);
            prove::runIsolated(
                counted, 3,
                [&](unsigned long at, prove::Tally& tally) {
                    *seen += 1UL << at;
                    body(at, tally);
                },
                [](unsigned long at) { return std::to_string(at); });
            return counted.finish();
        });
        return std::pair(code, *seen);
    };
    const auto good = [](unsigned long, prove::Tally& tally) { (void)tally.check(true, ""); };
    expect(isolated(good) == std::pair(0, 7UL), "three good bodies are not three");
    const auto bad = [](unsigned long at, prove::Tally& tally) { (void)tally.check(at != 1, ""); };
    expect(isolated(bad) == std::pair(1, 7UL), "a bad body among three passes");
    const auto dies = [](unsigned long at, prove::Tally& tally) {
        (void)tally.check(true, "");
        if (at == 1) {
            ::_exit(3);
        }
    };
    expect(isolated(dies) == std::pair(1, 7UL), "the death of a child passes, or ends the others");
    expect(prove::inChild([] { return 5U; }) == 5U, "a child's code is lost");
    expect(!prove::inChild([]() -> unsigned int { std::abort(); }), "the death of a child has a code");
}

// --- places --------------------------------------------------------------------------------------------------------

const Scenario& scenarioNamed(const std::vector<Scenario>& list, const std::string& name) {
    for (const Scenario& scenario : list) {
        if (scenario.name == name) {
            return scenario;
        }
    }
    std::abort();
}

void Controls::places() {
    using prove::Claim;
    using prove::State;
    const Folder folder(true);
    const std::vector<Scenario> updates = prove::updates();
    const Scenario& add = scenarioNamed(updates, "text add deferred");
    const prove::Place place(folder.file("place"), add);
    place.layOut();
    const std::string before = bytesOf(place.registry()).value_or("");
    const auto stateWith = [&](const std::string& bytes) {
        (void)putBytes(place.registry(), bytes);
        return prove::stateOf(place, add);
    };
    expect(stateWith(before) == State::Old, "old contents are not old");
    expect(stateWith(before + "delta = 4\n") == State::New, "new contents are not new");
    expect(stateWith(before + "delta = 5\n") == State::Other, "other contents of the new length pass");
    expect(stateWith(std::string(before.size(), '#')) == State::Other, "other contents of the old length pass");
    expect(stateWith(before.substr(1)) == State::Other && stateWith("") == State::Other, "lost contents pass");
    (void)::remove(place.registry().c_str());
    expect(prove::stateOf(place, add) == State::Other, "a registry that is gone passes");

    const std::string path = place.lock();
    (void)putBytes(path, "");
    expect(prove::isFree(path, Claim::Exclusive), "a lock that nobody has is not free");
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    using Lock = platform::FileLock;
    for (const Lock kind : {Lock::Shared, Lock::Exclusive}) {
        (void)platform::lockWholeFile(descriptor, kind, false);
        expect(!prove::isFree(path, Claim::Exclusive), "a lock that somebody has is free");
        expect(prove::isFree(path, Claim::Shared) == (kind == Lock::Shared), "a shared lock is taken for the other");
    }
    (void)::close(descriptor);

    const Folder awkward(true);
    (void)putBytes(awkward.file("settings"), "");
    expect(prove::harmDone(awkward.path()).empty(), "a registry alone is harm");
    (void)putBytes(awkward.file("victim"), "written");
    expect(!prove::harmDone(awkward.path()).empty(), "a victim that was written passes");
    (void)::remove(awkward.file("victim").c_str());
    (void)putBytes(awkward.file("stranger"), "");
    expect(!prove::harmDone(awkward.path()).empty(), "a strange file passes");
}

// --- steps ---------------------------------------------------------------------------------------------------------

void Controls::steps() {
    if (!prove::canFailCalls()) {
        cases_.skip("steps", "only on x86-64, and where a process may trace its child");
        return;
    }
    const Folder folder(true);
    const std::string path = folder.file("file");
    const std::string other = folder.file("other");
    const int wrote = ENOSPC;
    const auto body = [&] {
        prove::beginPart();
        const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        const bool failed = ::write(descriptor, "x", 1) == -1 && errno == wrote;
        (void)::fchmod(descriptor, 0600);
        (void)::ftruncate(descriptor, 0);
        (void)::fsync(descriptor);
        (void)::linkat(AT_FDCWD, path.c_str(), AT_FDCWD, other.c_str(), 0);
        (void)::rename(other.c_str(), path.c_str());
        (void)::unlink(other.c_str());
        (void)::close(descriptor);
        prove::endPart();
        return failed ? 1 : 0;
    };
    const std::string all = "openat write fchmod ftruncate fsync linkat rename unlink close ";
    for (const bool fails : {false, true}) {
        (void)::remove(path.c_str());
        std::string names;
        std::string written = "?";
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t child, const prove::SystemCall& call) {
            const std::string name = prove::callName(call.number);
            names += name + " ";
            written =
                name == "fchmod" ? bytesOf(prove::descriptorPath(child, call.arguments[0])).value_or("") : written;
            return fails && name == "write" ? prove::Verdict{prove::Verdict::Kind::Fail, wrote} : prove::Verdict{};
        };
        const prove::StepResult result = prove::step(body, hooks);
        expect(names == all && result.calls == 9 && result.ended, "not every call is stopped at: " + names);
        expect(result.exitCode == (fails ? 1 : 0), "the error of a call does not reach it");
        expect(written == (fails ? "" : "x"), "a call that is to fail is carried out, or one that is not is not");
    }
    prove::StepHooks deadly;
    deadly.entry = [&](pid_t, const prove::SystemCall& call) {
        const bool here = prove::callName(call.number) == "linkat";
        return here ? prove::Verdict{prove::Verdict::Kind::Kill} : prove::Verdict{};
    };
    const prove::StepResult killed = prove::step(body, deadly);
    expect(killed.killed && !killed.ended && !bytesOf(other), "a call at which the child is killed is carried out");
}

// --- blame ---------------------------------------------------------------------------------------------------------

void Controls::blame() {
    using prove::Subject;
    char name[] = "rig";
    char* words[] = {name, nullptr};
    const auto judged = [&](Subject subject, const char* call, int error, const GenRegCause& cause) {
        return exitOf([&] {
                   prove::Rig rig("control", 1, words);
                   rig.begin("one");
                   prove::judgeBlame(rig, {subject}, call, error, cause);
                   return rig.finish();
               }) == 0;
    };
    GenRegCause cause = {};
    cause.code = REG_COPY_WRITE_FAILED;
    cause.platformCode = ossErrorMapSystem(EIO);
    expect(judged(Subject::Copy, "write", EIO, cause), "the right blame is wrong");
    expect(!judged(Subject::Copy, "fsync", EIO, cause), "another call may take the blame");
    expect(!judged(Subject::Registry, "write", EIO, cause), "another file may take the blame");
    expect(!judged(Subject::Copy, "write", ENOSPC, cause), "another error may be told");
    cause.code = REG_RENAME_FAILED;
    expect(!judged(Subject::Copy, "write", EIO, cause), "another step may take the blame");
    cause.code = 0;
    expect(!judged(Subject::Copy, "write", EIO, cause), "no blame passes");
}

// --- disks ---------------------------------------------------------------------------------------------------------

// Two files of four bytes are made in a folder, in one step; then one of the three is synced.
void Controls::disks() {
    const auto outcomes = [](const std::string& synced) {
        const Folder folder(true);
        prove::DiskModel model(folder.path(), "a", false);
        (void)putBytes(folder.file("a"), "aaaa");
        (void)putBytes(folder.file("b"), "bbbb");
        model.look();
        model.synced(prove::lookAt(folder.path()).names[synced]);
        if (synced == ".") {
            struct stat status = {};
            (void)::stat(folder.path().c_str(), &status);
            model.synced(status.st_ino);
        }
        std::string text;
        bool nothing = false;
        bool lostA = false;
        bool lostB = false;
        for (const prove::Tree& tree : model.possible()) {
            nothing = nothing || tree.names.empty();
            for (const auto& [name, inode] : tree.names) {
                const std::string& bytes = tree.contents.at(inode);
                lostA = lostA || (name == "a" && bytes != "aaaa");
                lostB = lostB || (name == "b" && bytes != "bbbb");
            }
        }
        text += nothing ? "names " : "";
        text += lostA ? "a " : "";
        text += lostB ? "b " : "";
        return text;
    };
    expect(outcomes("none") == "names a b ", "what nobody synced may not get lost: " + outcomes("none"));
    expect(outcomes("a") == "names b ", "the sync of a file keeps more than its bytes: " + outcomes("a"));
    expect(outcomes(".") == "a b ", "the sync of a folder keeps more than its names: " + outcomes("."));
}

// --- crowds and scans ----------------------------------------------------------------------------------------------

void Controls::crowds() {
    using prove::Change;
    using prove::crowdRow;
    const prove::Shared<prove::Journal> journal;
    // Name 0 written by change 1, name 1 by change 2; change 3 removes name 0, change 4 is not made.
    const std::pair<int, bool> changes[] = {{0, false}, {1, false}, {0, true}, {2, false}};
    for (unsigned int number = 1; number <= 4; ++number) {
        Change& change = journal->changes[number];
        change.name = static_cast<unsigned char>(changes[number - 1].first);
        change.removes = changes[number - 1].second;
        change.state = number == 4 ? Change::NotMade : Change::Made;
    }
    journal->begun = journal->settled = 4;
    const auto fits = [&](const std::vector<unsigned int>& names, unsigned int from, unsigned int to) {
        prove::Snapshot snapshot;
        std::copy(names.begin(), names.end(), snapshot.values[0]);
        return snapshot.fits(*journal, 0, from, to);
    };
    expect(fits({1, 2}, 0, 4) && fits({1, 2}, 2, 2) && fits({0, 2}, 4, 4), "a moment that was does not fit");
    expect(!fits({1, 0}, 2, 4), "a moment before the scan fits");
    expect(!fits({0, 2}, 0, 2), "a moment after the scan fits");
    expect(!fits({0, 0, 4}, 0, 4) && !fits({0, 2, 4}, 0, 4), "a moment that never was fits");

    const auto reads = [](const prove::Rows& rows) {
        prove::Snapshot snapshot;
        std::string wrong;
        return snapshot.read(rows, &wrong);
    };
    const prove::Row whole = crowdRow(1, 2, 3);
    prove::Row half = whole;
    half.value = 4;
    expect(reads({whole, crowdRow(1, 3, 3)}), "whole records are none");
    expect(!reads({half}), "half a record passes for a whole one");
    expect(!reads({whole, whole}), "a name that is there twice passes");
    expect(!reads({{"stranger", 1, ""}}), "a name that is nobody's passes");
}

// Gives one row and then a code.
class OneRow final : public prove::SchemaRegistry {
public:
    OneRow(unsigned int end, unsigned int closed) : end_(end), closed_(closed) {}
    unsigned int add(const prove::Row& /*row*/) override { return 0; }
    unsigned int change(const prove::Row& /*row*/) override { return 0; }
    unsigned int remove(const std::string& /*name*/) override { return 0; }
    unsigned int get(const std::string& /*name*/, prove::Row* /*row*/) override { return 0; }
    unsigned int openScan() override { return 0; }
    unsigned int next(prove::Row* /*row*/) override { return given_++ == 0 ? 0 : end_; }
    unsigned int closeScan() override { return closed_; }
    unsigned int lock(unsigned long /*flags*/) override { return 0; }
    unsigned int unlock() override { return 0; }
    void expectHeader() override {}
    void beforeVerify(std::function<void()> /*action*/) override {}

private:
    unsigned int end_;
    unsigned int closed_;
    int given_ = 0;
};

void Controls::scans() {
    const auto scanned = [](unsigned int end, unsigned int closed) {
        OneRow registry(end, closed);
        prove::Rows rows;
        return registry.read(&rows);
    };
    expect(scanned(REG_NO_MORE_RECORDS, 0) == 0, "a whole scan is none");
    expect(scanned(REG_READ_FAILED, 0) == REG_READ_FAILED, "a scan that broke off passes for whole");
    expect(scanned(REG_NO_MORE_RECORDS, REG_CLOSE_FILE_FAILED) == REG_CLOSE_FILE_FAILED, "a failed close is lost");
}

// --- what the tool says --------------------------------------------------------------------------------------------

void Controls::complaints() {
    const prove::Complaint expected = {8, "disk is full", "free some"};
    const std::string message = "genreg: /a/file: the disk is full\n  try: free some space   [0x900001d0]\n";
    const std::string object =
        "{\"schema\":1,\"kind\":\"write\",\"exit\":8,\"code\":\"0x900001d0\",\"operation\":\"varval "
        "set\",\"path\":\"/a/file\",\"message\":\"the disk is full\",\"hint\":\"free some space\"}\n";
    const auto tell = [&](const char* what, const prove::ToolRun& good, auto judge) {
        const std::string label = what;
        expect(judge(good).empty(), label + ": what a user is to be told is wrong: " + judge(good));
        prove::ToolRun run = good;
        run.status = 3;
        expect(!judge(run).empty(), label + ": another exit status passes");
        for (const char* part : {"/a/file", "full", "free", "0x9", "\n"}) {
            run = good;
            run.err.erase(run.err.find(part), std::string(part).size());
            expect(!judge(run).empty(), label + ": nobody misses " + part);
        }
        run = good;
        run.err += run.err;
        expect(!judge(run).empty(), label + ": twice passes for once");
    };
    tell("a message", {8, "", message}, [&](const auto& run) { return prove::wrongWith(run, "/a/file", expected); });
    tell("an object", {8, "", object}, [&](const auto& run) { return prove::wrongWithJson(run, "/a/file", expected); });
    expect(!prove::wrongWith({8, "a result", message}, "/a/file", expected).empty(), "a failure has a result");
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("controls", argc, argv);
    cases.expectAtLeast(70);
    Controls controls(cases);
    controls.counting();
    controls.children();
    controls.places();
    controls.steps();
    controls.blame();
    controls.disks();
    controls.crowds();
    controls.scans();
    controls.complaints();
    return cases.finish() == 0 && controls.good() ? 0 : 1;
}

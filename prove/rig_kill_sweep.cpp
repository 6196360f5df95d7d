// Sudden death: every update is killed at the entry of each of its system calls, once for each.
//
// After each death a checker of the rig's own finds the registry byte for byte as it was before or as it was to become,
// its locks free and no file that is not one of its companions; a reader sees those records; the next update succeeds,
// and the copy that the dead one left has been set aside. Before that a reader has looked in at every one of the calls.
//
// Two more outcomes are as described: an empty registry where none was before; and, where records are appended in place
// under a checksum header, new records under the old header, which the next open reports.
#include <genreg/Codes.h>
#include <sys/syscall.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "support/Blame.h"
#include "support/Careless.h"
#include "support/Place.h"
#include "support/Rig.h"
#include "support/Stepper.h"

namespace {

using prove::Claim;
using prove::codeText;
using prove::Contents;
using prove::Place;
using prove::Rows;
using prove::Scenario;
using prove::State;

struct Counts {
    unsigned long old = 0;
    unsigned long fresh = 0;
    unsigned long empty = 0;
    unsigned long misfits = 0;
    unsigned long readersWaiting = 0;
    unsigned long reads = 0;
};

class Sweep {
public:
    explicit Sweep(prove::Rig& rig) : rig_(rig) {}

    void run(const Scenario& scenario) {
        const Place place(rig_.scratch() + "/place", scenario);
        const unsigned long failedBefore = rig_.failed();
        const std::size_t calls = walk(scenario, place);
        for (std::size_t n = 0; n < calls; ++n) {
            killAt(scenario, place, n);
        }
        abandon(scenario, place);
        rig_.tell(scenario.name + ": " + std::to_string(calls) + " calls, " +
                  std::to_string(rig_.failed() - failedBefore) + " failed");
    }

    void controls() {
        using prove::Vice;
        const std::pair<Vice, const char*> shown[] = {{Vice::InPlace, "(write): the registry is neither"},
                                                      {Vice::InPlace, "(write) the registry is neither"},
                                                      {Vice::Litters, "left other files"},
                                                      {Vice::Litters, "a file that is no companion"},
                                                      {Vice::MisreadsRows, "a reader sees other records"},
                                                      {Vice::FailsAgain, "the next update failed"},
                                                      {Vice::WrongAgain, "the next update wrote something else"},
                                                      {Vice::SkipsLock, "(unlink) touches a companion"}};
        for (const auto& [vice, words] : shown) {
            rig_.control(words, [&, vice = vice] { run(prove::carelessUpdate(vice)); });
        }
    }

    void report() {
        rig_.remark("registries found: " + std::to_string(counts_.old) + " old, " + std::to_string(counts_.fresh) +
                    " new, " + std::to_string(counts_.empty) + " empty where none was, " +
                    std::to_string(counts_.misfits) + " new under the old checksum header");
        rig_.remark("readers between the calls: " + std::to_string(counts_.reads) + " read, " +
                    std::to_string(counts_.readersWaiting) + " would have waited for an append in place");
    }

private:
    [[nodiscard]] static int child(const Scenario& scenario, const Place& place) {
        const auto registry = scenario.schema->open(place.named(), scenario.features);
        prove::beginPart();
        const unsigned int rc = scenario.operation.perform(*registry);
        prove::endPart();
        return rc == 0 ? 0 : 1;
    }

    // The whole operation, with a reader at every call; how many calls it makes.
    std::size_t walk(const Scenario& scenario, const Place& place) {
        rig_.begin(scenario.name + ", whole");
        place.layOut();
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t child, const prove::SystemCall& call) {
            checkLocked(child, call, place);
            checkUnlocked(child, call, place);
            lookIn(scenario, place,
                   "at call " + std::to_string(call.index) + " (" + prove::callName(call.number) + ")");
            return prove::Verdict{};
        };
        const prove::StepResult result = prove::step([&] { return child(scenario, place); }, hooks);
        rig_.check(result.ended && result.exitCode == 0, "the undisturbed operation failed");
        const State state = prove::stateOf(place, scenario);
        rig_.check(state == State::New, std::string("the undisturbed operation left ") + prove::stateText(state));
        std::set<std::string> expected = {place.registry(), place.lock()};
        if (scenario.staleCopies) {
            expected.insert(place.setAside());
        }
        rig_.check(place.files() == expected, "the undisturbed operation left other files");
        return result.calls;
    }

    // An update of what is not there: its copy goes before the lock does, which the next writer's would be given.
    void abandon(const Scenario& scenario, const Place& place) {
        rig_.begin(scenario.name + ", of what is not there");
        place.layOut();
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t child, const prove::SystemCall& call) {
            checkLocked(child, call, place);
            return prove::Verdict{};
        };
        const auto body = [&] {
            const auto registry = scenario.schema->open(place.named(), scenario.features);
            prove::beginPart();
            const unsigned int rc = registry->remove("nobody");
            prove::endPart();
            return rc == 0 ? 0 : 1;
        };
        rig_.check(prove::step(body, hooks).exitCode == 1, "it did not fail");
        const State state = prove::stateOf(place, scenario);
        rig_.check(state == State::Old, std::string("it left a registry that is ") + prove::stateText(state));
    }

    // Nobody but the holder of the lock may touch the companions.
    void checkLocked(pid_t child, const prove::SystemCall& call, const Place& place) {
        const prove::Subject subject = prove::subjectOf(child, call, place);
        const bool companion =
            subject == prove::Subject::Copy || subject == prove::Subject::SetAside || subject == prove::Subject::Backup;
        rig_.check(!companion || !prove::isFree(place.lock(), Claim::Exclusive),
                   "call " + std::to_string(call.index) + " (" + prove::callName(call.number) +
                       ") touches a companion without the lock");
    }

    // What is closed is unlocked before: somebody forked meanwhile may have a copy of the descriptor. Asked of the open
    // file, since another one of the same file may go on holding its lock.
    void checkUnlocked(pid_t child, const prove::SystemCall& call, const Place& place) {
        const std::string file = call.number == SYS_close ? prove::descriptorPath(child, call.arguments[0]) : "";
        if (file == place.registry() || file == place.lock()) {
            std::ifstream listed("/proc/" + std::to_string(child) + "/fdinfo/" + std::to_string(call.arguments[0]));
            const std::string facts{std::istreambuf_iterator<char>(listed), std::istreambuf_iterator<char>()};
            rig_.check(!facts.empty() && facts.find("lock:") == std::string::npos,
                       "call " + std::to_string(call.index) + " closes what is still locked: " + file);
        }
    }

    // A reader, at a moment when the writer stands still.
    void lookIn(const Scenario& scenario, const Place& place, const std::string& when) {
        if (!prove::isFree(place.registry(), Claim::Shared)) {
            ++counts_.readersWaiting;
            return;
        }
        ++counts_.reads;
        const State state = prove::stateOf(place, scenario);
        rig_.check(isAllowed(scenario, state), when + " the registry is " + prove::stateText(state));
        checkReader(scenario, place, state, when);
    }

    [[nodiscard]] static bool isAllowed(const Scenario& scenario, State state) {
        return state == State::Old || state == State::New || (state == State::Empty && !scenario.before.present) ||
               state == State::Misfit;  // found in no other scenario than the described
    }

    // The records that the library reads are those of the state that the checker found.
    void checkReader(const Scenario& scenario, const Place& place, State state, const std::string& when) {
        const auto registry = scenario.schema->open(place.named(), scenario.features);
        Rows rows;
        const unsigned int rc = registry->read(&rows);
        if (!prove::bytesOf(place.registry())) {
            rig_.check(rc == REG_OPEN_FILE_FAILED || rc == REG_OPEN_SERVICE_LIST_FAILED,
                       when + " a reader of no file: " + codeText(rc));
        } else if (state == State::Misfit) {
            rig_.check(rc == REG_CHECKSUM_DIFFERS, when + " a reader does not see the misfit: " + codeText(rc));
        } else {
            const Rows expected =
                state == State::New ? scenario.operation.appliedTo(scenario.before.rows) : scenario.before.rows;
            rig_.check(rc == 0 && rows == expected, when + " a reader sees other records: " + codeText(rc));
        }
    }

    void killAt(const Scenario& scenario, const Place& place, std::size_t n) {
        place.layOut();
        std::string name;
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t, const prove::SystemCall& call) {
            if (call.index != n) {
                return prove::Verdict{};
            }
            name = prove::callName(call.number);
            return prove::Verdict{prove::Verdict::Kind::Kill};
        };
        const prove::StepResult result = prove::step([&] { return child(scenario, place); }, hooks);
        rig_.begin(scenario.name + ", killed at call " + std::to_string(n) + " (" + name + ")");
        if (!rig_.check(result.killed, "the child was not killed")) {
            return;
        }
        const State state = prove::stateOf(place, scenario);
        count(state);
        rig_.check(isAllowed(scenario, state), std::string("the registry is ") + prove::stateText(state));
        rig_.check(prove::isFree(place.lock(), Claim::Exclusive), "the lock is not free");
        rig_.check(prove::isFree(place.registry(), Claim::Exclusive), "the registry file is not free");
        checkCompanions(place);
        checkReader(scenario, place, state, "afterwards");
        if (state == State::Misfit) {
            return;
        }
        checkNextUpdate(scenario, place, state);
    }

    void count(State state) {
        counts_.old += state == State::Old ? 1 : 0;
        counts_.fresh += state == State::New ? 1 : 0;
        counts_.empty += state == State::Empty ? 1 : 0;
        counts_.misfits += state == State::Misfit ? 1 : 0;
    }

    void checkCompanions(const Place& place) {
        const std::set<std::string> known = {place.registry(), place.lock(), place.temporary(), place.backup(),
                                             place.setAside()};
        for (const std::string& file : place.files()) {
            rig_.check(known.contains(file), "a file that is no companion: " + file);
        }
    }

    void checkNextUpdate(const Scenario& scenario, const Place& place, State state) {
        Contents found = scenario.before;
        if (state == State::New) {
            found = scenario.after(scenario.before, scenario.operation);
        }
        const std::optional<std::string> left = prove::bytesOf(place.temporary());
        const std::optional<std::string> aside = prove::bytesOf(place.setAside());
        const unsigned int rc = scenario.again.perform(*scenario.schema->open(place.named(), scenario.features));
        rig_.check(rc == 0, "the next update failed: " + codeText(rc));
        rig_.check(prove::bytesOf(place.registry()) == scenario.bytes(scenario.after(found, scenario.again)),
                   "the next update wrote something else");
        std::set<std::string> expected = {place.registry(), place.lock()};
        if (scenario.appendsInPlace()) {
            // Makes no copy, and so leaves alone what lies there.
            rig_.check(prove::bytesOf(place.temporary()) == left, "the next update touched a copy");
            rig_.check(prove::bytesOf(place.setAside()) == aside, "the next update touched a set-aside copy");
            if (left) {
                expected.insert(place.temporary());
            }
            if (aside) {
                expected.insert(place.setAside());
            }
        } else {
            rig_.check(prove::bytesOf(place.setAside()) == left, "the stale copy was not set aside");
            if (left) {
                expected.insert(place.setAside());
            }
        }
        rig_.check(place.files() == expected, "the next update left other files");
    }

    prove::Rig& rig_;
    Counts counts_;
};

}  // namespace

int main(int argc, char** argv) {
    prove::Rig rig{"kill_sweep", argc, argv};
    if (!prove::canStep()) {
        (void)std::printf("this system lets no process trace its child\n");
        return 2;
    }
    rig.expectAtLeast(800, 9'500);
    Sweep(rig).controls();
    Sweep sweep(rig);
    for (const Scenario& scenario : prove::updates()) {
        if ((!rig.quick() || scenario.quick) && rig.wants(scenario.name)) {
            sweep.run(scenario);
        }
    }
    sweep.report();
    return rig.finish();
}

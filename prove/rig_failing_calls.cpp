// Failing calls: each system call of every update and look-up fails in turn, with each of several errors, once and from
// then on for good (all calls of its kind), and is interrupted once, unless all signals wait while it is made. On
// x86-64, where the tracer can answer in the kernel's place.
//
// After each: a success means the new contents, a failure the old ones, or the new ones where they were in place
// already; a failure blames the step that the call is part of, and tells the system's error; descriptors and locks are
// as before; and the same object does the next update when the fault is gone. An interruption changes nothing: the call
// is made again, but for a close, whose descriptor is gone all the same.
//
// As described, and so excused: an empty registry where none was; the descriptor of the lock file after locking failed
// or unlocking failed, and the lock after the latter.
#include <fcntl.h>
#include <genreg/Codes.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <set>

#include "support/Aftermath.h"
#include "support/Blame.h"
#include "support/Careless.h"
#include "support/Place.h"
#include "support/Rig.h"
#include "support/Stepper.h"
#include "tests/support/Ways.h"

namespace {

using prove::Excuses;
using prove::Place;
using prove::Registry;
using prove::Remains;
using prove::Report;
using prove::Scenario;
using prove::SystemCall;
using prove::Verdict;

constexpr int ERRORS[] = {ENOSPC, EIO, EDQUOT, EACCES, EMFILE, ENOLCK};
constexpr int QUICK_ERRORS[] = {EIO};

// The calls that a signal may interrupt; the others never answer EINTR.
constexpr long INTERRUPTIBLE[] = {SYS_openat, SYS_read,   SYS_pread64,   SYS_write, SYS_pwrite64,
                                  SYS_fsync,  SYS_fchmod, SYS_ftruncate, SYS_close};

struct Call : SystemCall {
    bool undisturbed = false;  // every signal that can wait does
};

bool isInterruptible(const Call& call) {
    const bool mayBe = prove::isLocking(call) || std::find(std::begin(INTERRUPTIBLE), std::end(INTERRUPTIBLE),
                                                           call.number) != std::end(INTERRUPTIBLE);
    return mayBe && !call.undisturbed;
}

struct Fault {
    std::size_t index;  // of the call
    int error;
    bool forGood;
};

// Where the streams are not Linux's own, each writing of a buffer comes with two calls that hold the signals.
constexpr std::size_t MOST_CALLS = WAYS == "linux" ? 600 : 900;

std::string nameOf(const Fault& fault, long number) {
    return prove::callName(number) + " (call " + std::to_string(fault.index) + ") " + ::strerrorname_np(fault.error) +
           (fault.forGood ? " for good" : " once");
}

class FailingCalls {
public:
    explicit FailingCalls(prove::Rig& rig) : rig_(rig) {}

    void run(const Scenario& scenario) {
        const Place place(rig_.scratch() + "/place", scenario);
        const unsigned long failedBefore = rig_.failed();
        const std::vector<Call> calls = record(scenario, place);
        for (std::size_t index = 0; index < calls.size(); ++index) {
            if (rig_.quick()) {
                failWith(scenario, place, calls, index, QUICK_ERRORS);
            } else {
                failWith(scenario, place, calls, index, ERRORS);
            }
            if (isInterruptible(calls[index])) {
                tryFault(scenario, place, calls, {index, EINTR, false});
            }
        }
        rig_.tell(scenario.name + ": " + std::to_string(calls.size()) + " calls, " +
                  std::to_string(rig_.failed() - failedBefore) + " failed");
    }

    void controls() {
        using prove::Vice;
        const std::pair<Vice, const char*> updates[] = {{Vice::InPlace, "the old contents are lost"},
                                                        {Vice::Boasts, "a wrong success"},
                                                        {Vice::WrongCause, "the wrong step is blamed"}};
        for (const auto& [vice, words] : updates) {
            rig_.control(words, [&, vice = vice] { failUntilConvinced(prove::carelessUpdate(vice)); });
        }
        prove::controlAftermath(rig_, [&](const Scenario& scenario) {
            (void)record(scenario, Place(rig_.scratch() + "/place", scenario));
        });
    }

    void report() {
        rig_.remark("operations with a failing call: " + std::to_string(absorbed_) + " succeeded all the same, " +
                    std::to_string(refused_) + " failed and left the old contents, " + std::to_string(committed_) +
                    " failed with the new contents in place");
    }

private:
    void failUntilConvinced(const Scenario& scenario) {
        const Place place(rig_.scratch() + "/place", scenario);
        const std::vector<Call> calls = record(scenario, place);
        for (std::size_t index = 0; index < calls.size() && !rig_.convinced(); ++index) {
            failWith(scenario, place, calls, index, QUICK_ERRORS);
        }
    }

    template <std::size_t N>
    void failWith(const Scenario& scenario, const Place& place, const std::vector<Call>& calls, std::size_t index,
                  const int (&errors)[N]) {
        for (const int error : errors) {
            tryFault(scenario, place, calls, {index, error, false});
            tryFault(scenario, place, calls, {index, error, true});
        }
    }

    // The child's part; the report is complete when it ends with 0.
    int child(const Scenario& scenario, const Place& place) {
        auto registry = scenario.schema->open(place.named(), scenario.features);
        prove::playOperation(scenario, place, *registry, report_,
                             [](const Scenario& played, Registry& target, Report* report) {
                                 prove::beginPart();
                                 report->code = played.operation.perform(target);
                                 prove::endPart();
                             });
        registry.reset();
        report_->openAtTheEnd = prove::countDescriptors();
        return 0;
    }

    // The calls of the operation when nothing fails.
    std::vector<Call> record(const Scenario& scenario, const Place& place) {
        rig_.begin(scenario.name + ", undisturbed");
        std::vector<Call> calls;
        Remains remains{};
        place.layOut();
        *report_ = {};
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t pid, const SystemCall& call) {
            calls.push_back({call, prove::allSignalsWait(pid)});
            return Verdict{};
        };
        hooks.end = [&](pid_t) { remains = prove::remainsOf(place, scenario); };
        const prove::StepResult result = prove::step([&] { return child(scenario, place); }, hooks);
        rig_.check(result.exitCode == 0 && report_->code == 0, "fails: " + prove::codeText(report_->code));
        // A fixed number for the operation and some for each buffer of bytes; each is tried with all errors.
        if (!rig_.check(calls.size() <= MOST_CALLS, std::to_string(calls.size()) + " calls")) {
            calls.clear();
        }
        prove::judge(rig_, scenario, place, *report_, remains, {});
        return calls;
    }

    void tryFault(const Scenario& scenario, const Place& place, const std::vector<Call>& calls, const Fault& fault) {
        const long kind = calls[fault.index].number;
        rig_.begin(scenario.name + ", " + nameOf(fault, kind));
        place.layOut();
        *report_ = {};
        Excuses excuses;
        Remains remains{};
        bool inPlace = false;
        std::set<prove::Subject> subjects;  // of the calls that fail
        long ofKind = 0;
        prove::StepHooks hooks;
        hooks.entry = [&](pid_t pid, const SystemCall& call) {
            ofKind += call.number == kind ? 1 : 0;
            if (call.index != fault.index && !(fault.forGood && call.index > fault.index && call.number == kind)) {
                inPlace = inPlace || putsInPlace(pid, call, scenario, place);
                return Verdict{};
            }
            excuses.committed = inPlace;
            subjects.insert(prove::subjectOf(pid, call, place));
            excuseLocking(pid, call, place, &excuses);
            return Verdict{Verdict::Kind::Fail, fault.error};
        };
        hooks.end = [&](pid_t) { remains = prove::remainsOf(place, scenario); };
        const prove::StepResult result = prove::step([&] { return child(scenario, place); }, hooks);
        if (!rig_.check(result.exitCode == 0, "the process did not survive")) {
            return;
        }
        prove::judge(rig_, scenario, place, *report_, remains, excuses);
        if (fault.error == EINTR) {
            rig_.check(report_->code == 0, "an interruption fails the operation: " + prove::codeText(report_->code));
            const auto usual =
                std::count_if(calls.begin(), calls.end(), [](const Call& call) { return call.number == SYS_close; });
            rig_.check(kind != SYS_close || ofKind == usual, "an interrupted close is not taken as done");
        }
        // Behind a look-up or a scan that failed its registry is closed, which begins a new cause.
        if (report_->code != 0 && !(scenario.reads() && report_->cause.code == 0)) {
            prove::judgeBlame(rig_, subjects, prove::callName(kind), fault.error, report_->cause);
        }
        absorbed_ += report_->code == 0 ? 1 : 0;
        const bool changed = remains.state == prove::State::New && !scenario.reads();
        refused_ += report_->code != 0 && !changed ? 1 : 0;
        committed_ += report_->code != 0 && changed ? 1 : 0;
    }

    // Whether the new contents are in place with this call: the copy is renamed, or what was appended is synced.
    static bool putsInPlace(pid_t pid, const SystemCall& call, const Scenario& scenario, const Place& place) {
        if (call.number == SYS_fsync) {
            return scenario.appendsInPlace() && prove::descriptorPath(pid, call.arguments[0]) == place.registry();
        }
        return call.number == SYS_rename && prove::textAt(pid, call.arguments[1]) == place.registry();
    }

    // Which of the described failures of locking it is, if any.
    static void excuseLocking(pid_t pid, const SystemCall& call, const Place& place, Excuses* excuses) {
        if (prove::isLocking(call) && prove::descriptorPath(pid, call.arguments[0]) == place.lock()) {
            (prove::isUnlocking(pid, call) ? excuses->unlockFailed : excuses->lockFailed) = true;
        }
    }

    prove::Rig& rig_;
    Report* const report_ = prove::sharedReport();
    unsigned long absorbed_ = 0;
    unsigned long refused_ = 0;
    unsigned long committed_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    prove::Rig rig{"failing_calls", argc, argv};
    if (!prove::canFailCalls()) {
        (void)std::fprintf(stderr, "only on x86-64, and where a process may trace its child\n");
        return 2;
    }
    rig.expectAtLeast(2'300, 120'000);
    FailingCalls(rig).controls();
    FailingCalls calls(rig);
    for (const auto& list : {prove::updates(), prove::readings()}) {
        for (const Scenario& scenario : list) {
            if ((!rig.quick() || scenario.quick) && rig.wants(scenario.name)) {
                calls.run(scenario);
            }
        }
    }
    calls.report();
    return rig.finish();
}

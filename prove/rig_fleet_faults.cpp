// Faults of a fleet: the built genreg-fleet and genreg as processes, against real etcd servers, one and a cluster.
//
// What a publisher said was published is in the store or comes back there. What a viewer answers is right, or a failure
// that says why; never an old, empty or partial picture with exit 0. Once a fault is over the fleet is right again
// within 5 s but for the waits between two attempts (0.2 to 30 s, at random); the figures are printed. Registries are
// never touched by who publishes or looks, no process hangs, dies of a signal, holds more and more, or leaves a file.
//
// The parts that are named by --NAME (see PARTS) are run; all of them where none is.
#include <cstdlib>

#include "prove/fleet_faults/Parts.h"
#include "prove/fleet_faults/Sides.h"
#include "prove/support/Place.h"

namespace {

using namespace prove;

struct Part {
    const char* name;
    void (*run)(Cases& cases, Recoveries& recoveries);
};
// The longest first.
constexpr Part PARTS[] = {
    {"--cluster", checkCluster},       {"--many", checkManyHosts},    {"--one", checkOneServer},
    {"--answers", checkLostAnswers},   {"--clones", checkTwoOfOneId}, {"--rights", checkRights},
    {"--tokens", checkTokens},         {"--space", checkSpace},       {"--compaction", checkCompaction},
    {"--hostile", checkHostileValues},
};
constexpr Part MEASURES = {"--writers", checkWriters};

// The checkers themselves.
void showControls(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.machines = 1});
    Machine& machine = fleet.machine(0);
    const auto row = [&](const std::string& sequence) {
        return R"({"id":")" + machine.id() + R"(","sequence":)" + sequence + "}\n";
    };
    const auto show = [&](const char* words, const ToolRun& run) {
        cases.control(words, [&] { fleet.judgeAnswer("control", run, false); });
    };
    machine.saw(2);
    show("an old picture", {0, row("1"), ""});
    show("without what it published", {0, row("null"), ""});
    show("is told 0 times", {0, "", ""});
    show("is told 2 times", {0, row("2") + row("2"), ""});
    show("a failure says nothing", {4, "", ""});
    show("a part of an answer", {4, row("2"), "words"});
    show("asking ended with 142", {142, "", "words"});
    cases.control("a stray file", [&] {
        (void)putBytes(machine.stateFolder() + "/strange", "");
        fleet.checkFiles("control");
        (void)std::remove((machine.stateFolder() + "/strange").c_str());
    });
    cases.control("the registry was touched", [&] {
        (void)putBytes(machine.registry(), bytesOf(machine.registry()).value_or(""));
        fleet.checkFiles("control");
    });
}

void run(const Part& part, Cases& cases, Recoveries& recoveries) {
    const auto begin = std::chrono::steady_clock::now();
    try {
        part.run(cases, recoveries);
    } catch (const fleet::StoreFailure& failure) {
        (void)cases.check(false, std::string(part.name + 2) + ": the store cannot be looked into: " + failure.message);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    cases.note(std::string(part.name + 2) + ": " + std::to_string(static_cast<int>(taken.count())) + " s");
}

// Those that are named; where none is, all of them side by side, but for the one that measures.
void runParts(Cases& cases, Recoveries& recoveries) {
    std::vector<std::string> others;
    bool named = false;
    for (const Part& part : PARTS) {
        if (cases.has(part.name)) {
            named = true;
            run(part, cases, recoveries);
        }
        others.emplace_back(part.name);
    }
    if (cases.has(MEASURES.name)) {
        named = true;
        run(MEASURES, cases, recoveries);
    }
    if (!named) {
        cases.expectAtLeast(cases.quick() ? 20'450 : 300'900);
        constexpr std::size_t AT_ONCE = 3;
        runSideBySide(cases, recoveries, others, AT_ONCE);
        run(MEASURES, cases, recoveries);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("fleet_faults", argc, argv);
    if (const std::string reason = EtcdServers::whyNot(); !reason.empty()) {
        if (std::getenv("RVN_REQUIRE_ETCD") != nullptr) {
            (void)cases.check(false, reason);
        } else {
            cases.skip("all of it", reason);
            cases.expectAtLeast(0);
        }
        return cases.finish();
    }
    const Folder memory(false);
    (void)::setenv("XDG_STATE_HOME", memory.path().c_str(), 1);
    (void)::unsetenv("STATE_DIRECTORY");
    Recoveries recoveries;
    const bool isPart = cases.has("--part");  // of another one, which shows its checkers what is bad by itself
    if (!isPart) {
        showControls(cases, recoveries);
    }
    runParts(cases, recoveries);
    if (isPart) {
        recoveries.tellEach(cases);
        return cases.finish();
    }
    recoveries.tell(cases);
    return cases.finish();
}

// Calls that were applied and whose answer never came, and two machines that write under one id.
#include <filesystem>

#include "prove/fleet_faults/Parts.h"

namespace prove {
namespace {

// The next call that says so is applied, and its answer is lost.
void lose(Fleet& fleet, const std::string& words) {
    fleet.proxy(0).swallowAnswerTo(words);
}

void expectLost(Fleet& fleet, const std::string& what) {
    (void)fleet.cases.check(becomes([&] { return fleet.proxy(0).hasSwallowed(); }), what + ": nothing was swallowed");
}

// It was put once, and is known to be its own.
void expectOnce(Fleet& fleet, const std::string& what, const Mirrored& before) {
    Machine& machine = fleet.machine(0);
    const Mirrored after = mirroredOf(fleet.store(), machine);
    (void)fleet.cases.check(after.sequence == before.sequence + 1 && after.text == machine.text(),
                            what + ": number " + std::to_string(after.sequence) + " after " +
                                std::to_string(before.sequence) + ", " + after.text);
    const std::string log = machine.isRunning() ? machine.publisher().log() : "";
    (void)fleet.cases.check(log.find("clash") == std::string::npos, what + ": it speaks of a clash: " + log);
    fleet.checkFiles(what);
}

void expectStatus(Fleet& fleet, const Machine& machine, int status, const std::string& what) {
    ToolRun run;
    const bool became = becomes([&] { return (run = machine.fleet({"status"})).status == status; });
    (void)fleet.cases.check(became, what + ": status says " + std::to_string(run.status) + ": " + run.out + run.err);
}

void loseOfService(Fleet& fleet) {
    Machine& machine = fleet.machine(0);
    const Mirrored before = mirroredOf(fleet.store(), machine);
    lose(fleet, "service1");
    machine.write("service1");
    expectLost(fleet, "a service's answer is lost");
    const auto timedOut = [&] { return machine.publisher().log().find("tried again") != std::string::npos; };
    (void)fleet.cases.check(becomes(timedOut), "a service's answer is lost: the call never ends");
    expectStatus(fleet, machine, 0, "a service's answer is lost");
    expectOnce(fleet, "a service's answer is lost", before);
}

void loseAndDie(Fleet& fleet) {
    Machine& machine = fleet.machine(0);
    const Mirrored before = mirroredOf(fleet.store(), machine);
    lose(fleet, "killed1");
    machine.write("killed1");
    expectLost(fleet, "an answer is lost, and its publisher");
    machine.endPublisher();
    machine.start();
    expectStatus(fleet, machine, 0, "an answer is lost, and its publisher");
    expectOnce(fleet, "an answer is lost, and its publisher", before);
}

void loseSignOfLife(Fleet& fleet) {
    Machine& machine = fleet.machine(0);
    (void)machine.publisher().end();
    lose(fleet, R"({"schema":1,"writer":)");
    machine.start();
    expectLost(fleet, "the answer to a sign of life is lost");
    expectStatus(fleet, machine, 0, "the answer to a sign of life is lost");
    const std::string log = machine.publisher().log();
    (void)fleet.cases.check(log.find("clash") == std::string::npos,
                            "a lost sign of life is taken for another's: " + log);
    (void)machine.publisher().end();
}

void loseOnce(Fleet& fleet) {
    Machine& machine = fleet.machine(0);
    for (const bool takesOver : {false, true}) {
        const std::string text = takesOver ? "over1" : "once1";
        const Mirrored before = mirroredOf(fleet.store(), machine);
        lose(fleet, text);
        machine.write(text);
        Words words = {"--wait", "20", "publish", "--once"};
        if (takesOver) {
            words.emplace_back("--take-over");
        }
        const ToolRun run = machine.fleet(words);
        expectLost(fleet, text);
        (void)fleet.cases.check(run.status == 0, text + ": exit " + std::to_string(run.status) + ": " + run.err);
        expectOnce(fleet, text, before);
    }
}

void loseForgetting(Fleet& fleet) {
    lose(fleet, fleet.machine(0).id() + "/reg");
    const ToolRun run = runFleet(fleet.viewer(), {"-y", "--wait", "20", "forget", fleet.machine(0).name()});
    expectLost(fleet, "forgetting");
    (void)fleet.cases.check(run.status == 0 && mirroredOf(fleet.store(), fleet.machine(0)).revision == 0,
                            "forgetting: exit " + std::to_string(run.status) + ": " + run.err);
}

// A copy of a machine, with a registry that goes on by itself.
std::unique_ptr<Machine> clonedFrom(Fleet& fleet, const Machine& one, const std::string& name) {
    const std::string folder = fleet.folder() + "/" + name;
    std::filesystem::create_directory(folder);
    std::filesystem::copy(one.stateFolder(), folder + "/state");
    auto clone = std::make_unique<Machine>(folder, name, fleet.access());
    clone->enrol();
    (void)fleet.cases.check(clone->id() == one.id(), "the clone has another id");
    return clone;
}

// The clone writes once, where the machine has looked long ago and will not look again: its next put is refused.
void writeBehind(Fleet& fleet) {
    Machine& one = fleet.machine(0);
    one.use(fleet.access(), "lease = 60\ncompare-every = 600\n");
    one.start();
    (void)fleet.cases.check(fleet.awaitRight("a clone behind"), "a clone behind: no beginning");
    const auto clone = clonedFrom(fleet, one, "behind");
    clone->write("behind1");
    const ToolRun run = clone->fleet({"publish", "--once"});
    (void)fleet.cases.check(run.status == 0, "a clone that nobody can know yet: " + run.err);
    one.write("mine1");
    const auto stops = [&] { return one.publisher().log().find("publishes no more") != std::string::npos; };
    (void)fleet.cases.check(becomes(stops), "a put over another's writing is no clash: " + one.publisher().log());
    (void)fleet.cases.check(mirroredOf(fleet.store(), one).text == "behind1", "another's writing was put over");
    (void)fleet.cases.check(one.publisher().end() == 0, "a publisher did not end well");
}

}  // namespace

void checkLostAnswers(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.machines = 1, .proxies = true});
    fleet.machine(0).start();
    (void)cases.check(fleet.awaitRight("lost answers"), "lost answers: no beginning");
    loseOfService(fleet);
    loseAndDie(fleet);
    if (!cases.quick()) {
        loseSignOfLife(fleet);
        loseOnce(fleet);
        loseForgetting(fleet);
    }
}

void checkTwoOfOneId(Cases& cases, Recoveries& recoveries) {
    {
        Fleet fleet(cases, recoveries, {.machines = 1});
        writeBehind(fleet);
    }
    Fleet fleet(cases, recoveries, {.machines = 1});
    Machine& one = fleet.machine(0);
    one.start();
    (void)cases.check(fleet.awaitRight("two of one id"), "two of one id: no beginning");
    const auto copied = clonedFrom(fleet, one, "clone");
    Machine& clone = *copied;
    fleet.servers().pause();
    clone.write("clone1");
    clone.start();
    one.write("one1");
    pause(2);
    fleet.servers().resume();
    expectStatus(fleet, one, 5, "the machine that was cloned");
    expectStatus(fleet, clone, 5, "the clone");
    const ToolRun told = runFleet(fleet.viewer(), {"--json", "hosts"});
    (void)cases.check(told.out.find(R"("state":"clash")") != std::string::npos, "hosts tells of no clash: " + told.out);
    const auto both = [&] {
        return one.publisher().log().find("publishes no more") != std::string::npos &&
               clone.publisher().log().find("publishes no more") != std::string::npos;
    };
    (void)cases.check(becomes(both), "one of them publishes on: " + one.publisher().log() + clone.publisher().log());
    // Nobody wins by writing again and again.
    const Mirrored stands = mirroredOf(fleet.store(), one);
    one.write("one2");
    clone.write("clone2");
    pause(cases.quick() ? 2.5 : 6);
    (void)cases.check(mirroredOf(fleet.store(), one).revision == stands.revision, "something was written in a clash");

    (void)one.publisher().end();
    const ToolRun refused = one.fleet({"publish", "--once"});
    (void)cases.check(refused.status == 5, "publish in a clash: exit " + std::to_string(refused.status) + refused.err);
    const ToolRun over = one.fleet({"publish", "--once", "--take-over"});
    (void)cases.check(over.status == 0, "take over: exit " + std::to_string(over.status) + over.err);
    one.start();
    expectStatus(fleet, one, 0, "who took over");
    expectStatus(fleet, clone, 5, "who was taken over from");
    (void)cases.check(mirroredOf(fleet.store(), one).text == "one2", "another one's text stands after a take-over");
    (void)cases.check(clone.publisher().end() == 0 && one.publisher().end() == 0, "a publisher did not end well");
    (void)cases.check((one.wrongWithFiles() + clone.wrongWithFiles()).empty(),
                      one.wrongWithFiles() + clone.wrongWithFiles());
}

}  // namespace prove

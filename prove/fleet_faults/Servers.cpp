// What befalls servers and publishers: death, standstill, a cut cable, a store that was wiped.
#include <algorithm>
#include <csignal>

#include "prove/fleet_faults/Parts.h"

namespace prove {
namespace {

// Its lease runs out meanwhile, which others see; then it goes on as if nothing had been.
Fleet::Fault standstill(Fleet& fleet) {
    Machine& machine = fleet.machine(1);
    return {"a publisher stands still for longer than its lease", [&] { machine.publisher().signal(SIGSTOP); },
            [&] {
                (void)fleet.cases.check(becomes([&] { return !mirroredOf(fleet.store(), machine).alive; }),
                                        "a publisher that stands still is never silent");
                machine.publisher().signal(SIGCONT);
            },
            0};
}

// One that was killed leaves its lease behind, and what it had noted.
Fleet::Fault death(Fleet& fleet) {
    Machine& machine = fleet.machine(0);
    return {"a publisher is killed", [&] { machine.endPublisher(); }, [&] { machine.start(); }, 0.5};
}

// And nobody puts anything there again until it was looked at.
void wipe(Fleet& fleet) {
    for (std::size_t number = 0; number < fleet.size(); ++number) {
        fleet.machine(number).publisher().signal(SIGSTOP);
    }
    fleet.servers().kill();
    fleet.servers().wipe();
    fleet.servers().start();
    const ToolRun run = fleet.ask("a store without any host", "30", true);
    (void)fleet.cases.check(run.status == 1, "a store without any host is taken for the truth: " + run.out + run.err);
}

std::vector<Fleet::Fault> ofOneServer(Fleet& fleet, bool quick) {
    EtcdServers& servers = fleet.servers();
    const auto kill = [&] { servers.kill(); };
    const auto start = [&] { servers.start(); };
    const auto stop = [&] { servers.pause(); };
    const auto resume = [&] { servers.resume(); };
    std::vector<Fleet::Fault> faults = {
        {"the server is killed", kill, start, 1.5},
        {"the server stands still", stop, resume, quick ? 3.0 : 7.0},
        {"the store is wiped", [&] { wipe(fleet); },
         [&] {
             for (std::size_t number = 0; number < fleet.size(); ++number) {
                 fleet.machine(number).publisher().signal(SIGCONT);
             }
         },
         0, true},
    };
    faults.push_back(death(fleet));
    faults.push_back(standstill(fleet));
    if (!quick) {
        faults.push_back({"the server is killed for a time", kill, start, 8});
        faults.push_back({"the store is wiped while nobody reaches it", kill,
                          [&] {
                              servers.wipe();
                              servers.start();
                          },
                          4, true});
    }
    return faults;
}

// How the viewer answers while no majority is there: not at all.
void expectNoAnswer(Fleet& fleet, const std::string& when) {
    const ToolRun run = fleet.ask(when, "1");
    (void)fleet.cases.check(run.status == 4, when + ": asking gave exit " + std::to_string(run.status) + run.out);
}

std::vector<Fleet::Fault> ofCluster(Fleet& fleet, bool quick) {
    EtcdServers& servers = fleet.servers();
    const auto leader = [&] { return static_cast<unsigned int>(std::max(servers.leader(), 0)); };
    // Chosen when it begins.
    static unsigned int one = 0;
    std::vector<Fleet::Fault> faults = {
        {"the leader is killed", [&, leader] { servers.kill(one = leader()); }, [&] { servers.start(one); }, 2, false,
         true},
        {"the leader stands still", [&, leader] { servers.pause(one = leader()); }, [&] { servers.resume(one); },
         quick ? 3.0 : 8.0, false, true},
        {"all members are cut off from each other",
         [&] {
             for (const auto& proxy : fleet.peerProxies()) {
                 proxy->refuse();
             }
             // Its leader knows of nothing yet, but may say nothing that is not true.
             (void)fleet.ask("all members were cut off just now", "0");
         },
         [&] {
             expectNoAnswer(fleet, "no member has a majority");
             for (const auto& proxy : fleet.peerProxies()) {
                 proxy->pass();
             }
         },
         3},
        {"a member cannot be reached", [&] { fleet.proxy(0).hold(); }, [&] { fleet.proxy(0).pass(); },
         quick ? 3.0 : 15.0, false, true},
    };
    if (!quick) {
        faults.push_back({"another member is killed", [&, leader] { servers.kill(one = (leader() + 1) % 3); },
                          [&] { servers.start(one); }, 2, false, true});
        faults.push_back({"a majority stands still",
                          [&] {
                              servers.pause(0);
                              servers.pause(1);
                          },
                          [&] {
                              expectNoAnswer(fleet, "a majority stands still");
                              servers.resume(0);
                              servers.resume(1);
                          },
                          6});
        faults.push_back({"two members are killed",
                          [&] {
                              servers.kill(1);
                              servers.kill(2);
                          },
                          [&] {
                              expectNoAnswer(fleet, "two members are dead");
                              servers.start(1);
                              servers.start(2);
                          },
                          4});
        faults.push_back({"the members' connections are refused",
                          [&] {
                              fleet.proxy(1).refuse();
                              fleet.proxy(2).refuse();
                          },
                          [&] {
                              fleet.proxy(1).pass();
                              fleet.proxy(2).pass();
                          },
                          3, false, true});
        faults.push_back(death(fleet));
        faults.push_back(standstill(fleet));
    }
    return faults;
}

// A store that is back before anybody has asked for it, and has nothing any more.
void wipeUnseen(Fleet& fleet) {
    fleet.servers().kill();
    fleet.servers().wipe();
    fleet.servers().start();
    const auto since = std::chrono::steady_clock::now();
    if (fleet.cases.check(fleet.awaitRight("wiped unseen"), "wiped unseen: the fleet is not right again")) {
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - since;
        fleet.recoveries.add("wiped unseen, with a lease of 40 s", taken.count());
    }
}

// A member that was asleep while the others took something knows its leader still, and must not answer without it.
void askWhoLags(Fleet& fleet) {
    EtcdServers& servers = fleet.servers();
    const unsigned int follower = servers.leader() == 0 ? 1 : 0;
    fleet::StoreAccess access = fleet.store().access();
    access.endpoints = {servers.endpoint(follower)};
    fleet::Store lagging(access);
    access.endpoints = {servers.endpoint((follower + 1) % 3), servers.endpoint((follower + 2) % 3)};
    fleet::Store others(access);
    const int rounds = fleet.cases.quick() ? 10 : 50;
    std::int64_t revision = 0;
    for (int round = 0; round < rounds; ++round) {
        const auto look = [&] { return lagging.list("/lag/", [](fleet::StoredValue&&) {}).revision; };
        lagging.patiently(30, [&] { (void)look(); });
        servers.pause(follower);
        others.patiently(30, [&] {
            const auto put = others.exchange("/lag/key", revision, std::to_string(round));
            revision = put.done ? put.revision : put.found ? put.found->modRevision : 0;
        });
        servers.resume(follower);
        std::int64_t seen = 0;
        lagging.patiently(30, [&] { seen = look(); });
        (void)fleet.cases.check(seen >= revision, "a member that lags answers out of its own memory: revision " +
                                                      std::to_string(seen) + ", not " + std::to_string(revision));
    }
}

}  // namespace

void checkOneServer(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries);
    fleet.begin();
    for (int round = 0; round < (cases.quick() ? 1 : 2); ++round) {
        for (const Fleet::Fault& fault : ofOneServer(fleet, cases.quick())) {
            fleet.suffer(fault);
        }
        wipeUnseen(fleet);
    }
    fleet.end();
}

void checkCluster(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.members = 3, .proxies = true, .peerProxies = true});
    fleet.begin();
    for (const Fleet::Fault& fault : ofCluster(fleet, cases.quick())) {
        fleet.suffer(fault);
    }
    askWhoLags(fleet);
    fleet.end();
}

}  // namespace prove

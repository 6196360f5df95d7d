// A store that is full, one that holds many hosts, and one that has been compacted.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "base/Json.h"
#include "mirror/Keys.h"
#include "prove/fleet_faults/Parts.h"

namespace prove {
namespace {

constexpr int UNREACHED = 4;
constexpr int CHANGED = 5;
constexpr int REFUSED = 8;
constexpr double PATIENCE = 60;  // seconds, of a machine that has much else to do

// --- the quota -------------------------------------------------------------------------------------------------------

// Until the store takes nothing more. Whether it said why.
bool fill(fleet::Store& store) {
    const std::string much(100'000, 'x');
    constexpr int MOST = 200;
    for (int number = 0; number < MOST; ++number) {
        try {
            (void)store.exchange("/filler/" + std::to_string(number), 0, much);
        } catch (const fleet::StoreFailure& failure) {
            return failure.trouble == fleet::Trouble::FULL;
        }
    }
    return false;
}

void makeRoom(Fleet& fleet) {
    std::vector<std::string> keys;
    (void)fleet.store().list("/filler/", [&](fleet::StoredValue&& one) { keys.push_back(one.key); });
    (void)fleet.store().remove(keys);
    fleet.servers().must("compact " + std::to_string(fleet.store().count("/").revision));
    fleet.servers().must("defrag");
    fleet.servers().must("alarm disarm");
}

void expectFull(Fleet& fleet, const std::string& what, const ToolRun& run) {
    (void)fleet.cases.check(run.status == REFUSED && run.err.find("the store is full") != std::string::npos,
                            what + ": exit " + std::to_string(run.status) + ", not that it is full: " + run.err);
}

// --- many hosts ------------------------------------------------------------------------------------------------------

constexpr unsigned int HOSTS = 1'100;

std::string idOf(unsigned int number) {
    char text[40];
    (void)std::snprintf(text, sizeof text, "%032x", number);
    return text;
}

// About 4 kB that do not get smaller.
std::string manyValue(unsigned int number, std::uint64_t sequence) {
    constexpr int RECORDS = 26;
    static std::mt19937_64 random(1);
    fleet::MirroredRegistry registry{"/var/rvn/global.reg", {}};
    for (int record = 0; record < RECORDS; ++record) {
        char noise[80];
        (void)std::snprintf(noise, sizeof noise, "%016lx%016lx%016lx%016lx", random(), random(), random(), random());
        registry.records.push_back(tool::Json{{"schema", 1},
                                              {"type", "variable"},
                                              {"service", "RVN"},
                                              {"variable", "V" + std::to_string(record)},
                                              {"value", noise}});
    }
    fleet::HostValue value;
    value.id = idOf(number);
    value.writer = "n.1";
    value.sequence = sequence;
    value.hostName = "host" + std::to_string(number);
    value.time = "2026-01-31T23:59:59Z";
    return encode(value, fleet::contentOf({}, {registry}));
}

// However slow the store is. A call whose answer was late is found done by the next one.
std::int64_t putHost(fleet::Store& store, unsigned int number, std::uint64_t sequence, std::int64_t revision) {
    const std::string key = fleet::registryKey(fleet::DEFAULT_PREFIX, idOf(number));
    const std::string value = manyValue(number, sequence);
    fleet::Store::Exchange put;
    store.patiently(PATIENCE, [&] { put = store.exchange(key, revision, value); });
    const bool found = put.found && put.found->value == value;
    return put.done ? put.revision : found ? put.found->modRevision : 0;
}

// Numbers by id, of an answer to `hosts`.
std::map<std::string, std::uint64_t> numbersIn(const std::string& out) {
    std::map<std::string, std::uint64_t> numbers;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        const tool::Json row = tool::Json::parse(line);
        const bool isFirst = numbers.emplace(row.value("id", ""), 0).second;
        numbers[row.value("id", "")] = isFirst && !row["sequence"].is_null() ? row["sequence"].get<std::uint64_t>() : 0;
    }
    return numbers;
}

// The first host of all and the last one are written by turns, so that at any revision the first is at the number of
// the last one or one ahead. Two pages of two moments show something else.
class Turns {
public:
    Turns(const fleet::StoreAccess& access, EtcdServers& servers, std::vector<std::int64_t> revisions)
        : thread_([this, access, &servers, all = std::move(revisions)] { run(access, servers, all); }) {}
    ~Turns() {
        ends_ = true;
        thread_.join();
    }
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;

    // From now on what was is taken away all the time, too.
    void compact() { compacts_ = true; }
    [[nodiscard]] std::uint64_t made() const { return made_; }

private:
    void run(const fleet::StoreAccess& access, EtcdServers& servers, std::vector<std::int64_t> revisions) {
        fleet::Store store(access);
        try {
            for (std::uint64_t number = 2; !ends_; ++number) {
                for (const unsigned int host : {0U, HOSTS - 1}) {
                    revisions[host] = putHost(store, host, number, revisions[host]);
                }
                made_ = number;
                if (compacts_) {
                    (void)servers.control("compact " + std::to_string(revisions[0]));
                }
            }
        } catch (const fleet::StoreFailure&) {
            ends_ = true;  // which made() tells
        }
    }

    std::atomic<bool> ends_{false};
    std::atomic<bool> compacts_{false};
    std::atomic<std::uint64_t> made_{1};
    std::thread thread_;
};

void judgeMany(Fleet& fleet, const std::string& when, const ToolRun& run) {
    const auto numbers = numbersIn(run.out);
    (void)fleet.cases.check(
        run.status == 0 && numbers.size() == HOSTS,
        when + ": exit " + std::to_string(run.status) + ", " + std::to_string(numbers.size()) + " hosts: " + run.err);
    if (numbers.size() == HOSTS) {
        const std::uint64_t first = numbers.begin()->second;
        const std::uint64_t last = numbers.rbegin()->second;
        (void)fleet.cases.check(first == last || first == last + 1,
                                when + ": the first host is at " + std::to_string(first) + " and the last one at " +
                                    std::to_string(last) + ", which never was");
    }
}

void askWhileWritten(Fleet& fleet, const std::vector<std::int64_t>& revisions) {
    Turns turns(fleet.store().access(), fleet.servers(), revisions);
    const int times = fleet.cases.quick() ? 3 : 10;
    for (int asked = 0; asked < times; ++asked) {
        const std::uint64_t before = turns.made();
        judgeMany(fleet, "many hosts that change", runFleet(fleet.viewer(), {"--json", "hosts"}));
        (void)fleet.cases.check(turns.made() > before, "nothing was written while somebody asked");
    }
    turns.compact();
    for (int asked = 0; asked < times; ++asked) {
        const ToolRun run = runFleet(fleet.viewer(), {"--json", "hosts"});
        if (run.status == CHANGED) {
            (void)fleet.cases.check(run.out.empty() && run.err.find("compacted") != std::string::npos,
                                    "compacted between two pages: " + run.out + run.err);
        } else {
            judgeMany(fleet, "many hosts, compacted", run);
        }
    }
}

// Whoever hears a part of the answer shows none of it.
void askWithCuts(Fleet& fleet) {
    fleet.proxy(0).endAfter(1'000'000);
    for (const Words& words :
         {Words{"hosts"}, Words{"find", "variable", "variable=V0"}, Words{"count", "variable", "value"}}) {
        Words all = {"--json", "--wait", "1"};
        all.insert(all.end(), words.begin(), words.end());
        const ToolRun run = runFleet(fleet.viewer(), all);
        (void)fleet.cases.check(run.status == UNREACHED && run.out.empty(),
                                words.front() + " heard a part: exit " + std::to_string(run.status) + ", " +
                                    std::to_string(run.out.size()) + " bytes: " + run.err);
    }
    fleet.proxy(0).pass();
}

}  // namespace

void checkSpace(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.machines = 2, .flags = {"--quota-backend-bytes", "1000000"}});
    fleet.begin();
    Machine other(fleet.folder() + "/other", "other", fleet.access());
    other.enrol();
    (void)cases.check(fill(fleet.store()), "the store never is full, or says it in no words that are known");
    expectFull(fleet, "publish --once", other.fleet({"publish", "--once"}));
    fleet.machine(0).write("full1");
    const auto says = [&](std::size_t number) {
        return fleet.machine(number).publisher().log().find("the store is full") != std::string::npos;
    };
    (void)cases.check(becomes([&] { return says(0); }), "a service does not say that the store is full");
    // Its lease runs out while it stands still, and it is given none again.
    fleet.machine(1).publisher().signal(SIGSTOP);
    (void)cases.check(becomes([&] { return !mirroredOf(fleet.store(), fleet.machine(1)).alive; }), "it is not silent");
    fleet.machine(1).publisher().signal(SIGCONT);
    (void)cases.check(becomes([&] { return says(1); }), "a service without a lease does not say why");
    expectFull(fleet, "hosts", fleet.ask("the store is full", "5"));
    expectFull(fleet, "hosts --state alive", runFleet(fleet.viewer(), {"--json", "hosts", "--state", "alive"}));
    fleet.machine(1).write("full2");
    makeRoom(fleet);
    const auto since = std::chrono::steady_clock::now();
    if (cases.check(fleet.awaitRight("there is room again"), "there is room again: the fleet is not right")) {
        recoveries.add("there is room again",
                       std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count());
    }
    const ToolRun run = other.fleet({"--wait", "30", "publish", "--once"});
    (void)cases.check(run.status == 0, "publish --once when there is room: " + run.err);
    fleet.end();
}

void checkManyHosts(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.machines = 0, .proxies = true});
    std::vector<std::int64_t> revisions(HOSTS);
    std::size_t bytes = 0;
    for (unsigned int number = 0; number < HOSTS; ++number) {
        revisions[number] = putHost(fleet.store(), number, 1, 0);
        bytes += manyValue(number, 1).size();
    }
    cases.note(std::to_string(HOSTS) + " hosts of " + std::to_string(bytes / HOSTS) + " bytes");
    askWithCuts(fleet);
    askWhileWritten(fleet, revisions);
}

// The watch is away, and what it would go on from is gone when it comes back.
void checkCompaction(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.machines = 1, .proxies = true});
    fleet.begin();
    fleet.suffer({"compacted behind a watch", [&] { fleet.proxy(0).refuse(); },
                  [&] {
                      std::int64_t revision = 0;
                      for (std::uint64_t number = 1; number <= 5; ++number) {
                          revision = putHost(fleet.store(), 7, number, revision);
                      }
                      fleet.servers().must("compact " + std::to_string(revision));
                      fleet.proxy(0).pass();
                  },
                  1});
    (void)cases.check(becomes([&] { return fleet.watched().find(idOf(7)) != std::string::npos; }),
                      "the watch does not tell of a host that came in between: " + fleet.watched());
    (void)cases.check(fleet.watched().find("all is read anew") != std::string::npos,
                      "the watch did not meet what was compacted: " + fleet.watched());
    fleet.end();
}

}  // namespace prove

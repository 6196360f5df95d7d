// The store is dead for a whole run, and registries are written: nobody who writes one may feel it.
#include <algorithm>
#include <cstdio>

#include "prove/fleet_faults/Parts.h"

namespace prove {
namespace {

struct Times {
    std::vector<double> all;

    double part(double of) {
        std::ranges::sort(all);
        return all[static_cast<std::size_t>(of * static_cast<double>(all.size() - 1))];
    }
    std::string text() {
        char text[100];
        (void)std::snprintf(text, sizeof text, "median %.2f ms, 95%% within %.2f ms", part(0.5) * 1000,
                            part(0.95) * 1000);
        return text;
    }
};

// Changes with and without a publisher in turns, so that both meet the same machine.
void compare(Fleet& fleet, const std::string& how) {
    const int changes = fleet.cases.quick() ? 60 : 400;
    Times with;
    Times without;
    for (int change = 0; change < changes; ++change) {
        const std::size_t first = change % 2 == 0 ? 0 : 1;
        for (const std::size_t number : {first, 1 - first}) {
            Machine& machine = fleet.machine(number);
            const double seconds = machine.write(how.substr(0, 1) + std::to_string(change));
            (machine.isRunning() ? with : without).all.push_back(seconds);
        }
    }
    fleet.cases.note("a change by a process, " + how + ": " + with.text() + "; without a publisher: " + without.text());
    // Noise of a loaded machine comes to a few milliseconds; waiting for a dead store would be a second and more.
    const double factor = fleet.cases.quick() ? 2 : 1.5;
    constexpr double NOISE = 0.010;
    (void)fleet.cases.check(with.part(0.5) <= without.part(0.5) * factor + NOISE, how + ": writers are slowed down");
    (void)fleet.cases.check(with.part(0.95) <= without.part(0.95) * 2 + 0.2, how + ": some writers wait");
}

}  // namespace

void checkWriters(Cases& cases, Recoveries& recoveries) {
    Fleet fleet(cases, recoveries, {.machines = 2, .proxies = true});
    fleet.proxy(0).refuse();
    fleet.machine(0).start();
    compare(fleet, "connections are refused");
    fleet.proxy(0).hold();
    compare(fleet, "nothing is answered");
    fleet.checkFiles("a dead store");
    (void)cases.check(!fleet.machine(0).publisher().ended(), "the publisher ended without its store");
    fleet.machine(1).start();
    fleet.proxy(0).pass();
    (void)cases.check(fleet.awaitRight("the store was dead for a whole run"), "what was written meanwhile never comes");
    fleet.end();
}

}  // namespace prove

// What is looked at after an operation into which a rig has put a fault: the outcome, what the process still holds, and
// whether the same object works again. Shared by the rigs of failing calls and of failing allocations.
#pragma once

#include <genreg/Cause.h>

#include <functional>
#include <optional>
#include <string>

#include "Place.h"
#include "Rig.h"

namespace prove {

// What the child, in which the operation runs, tells of it. Lives in memory that both share.
struct Report {
    unsigned int code;  // of the operation
    GenRegCause cause;  // of its failure
    int openBefore;     // descriptors, before the operation ...
    int openAfter;      // ... after it ...
    int openAtTheEnd;   // ... and when the object is gone, after a second operation
    bool keptLock;      // the operation has left its lock behind
    unsigned int unlockCode;
    unsigned int againCode;  // of the second operation on the same object
    // Failing allocations only.
    long allocations;  // that the operation made
    long blocksLeft;   // pieces of memory that the object has left behind
};

// Memory for a report that a forked child fills.
Report* sharedReport();

// In the child. perform() runs the operation between the marks of the rig; its code.
template <typename Perform>
void playOperation(const Scenario& scenario, const Place& place, Registry& registry, Report* report, Perform perform);

// The descriptors of this process, without that of the diagnostic log, which stays open once it is.
int countDescriptors();

// What the registry's directory is like after the operation and before the second one.
struct Remains {
    State state;
    std::optional<std::string> temporary;
    std::optional<std::string> setAside;
    std::set<std::string> files;
};
Remains remainsOf(const Place& place, const Scenario& scenario);

// What the fault excuses, each for its reason.
struct Excuses {
    bool committed = false;     // the new contents were in place before the fault
    bool lockFailed = false;    // locking failed: its descriptor stays until the next lock or the object's end
    bool unlockFailed = false;  // the lock stays, and its descriptor
};

// Compares all of it with what is promised.
void judge(Rig& rig, const Scenario& scenario, const Place& place, const Report& report, const Remains& remains,
           const Excuses& excuses);

// Has judge() find fault with operations that no fault was put into; `play` runs one and judges it.
void controlAftermath(Rig& rig, const std::function<void(const Scenario&)>& play);

template <typename Perform>
void playOperation(const Scenario& scenario, const Place& place, Registry& registry, Report* report, Perform perform) {
    report->openBefore = countDescriptors();
    perform(scenario, registry, report);
    genregLastCause(&report->cause);
    report->openAfter = countDescriptors();
    report->keptLock = !isFree(place.lock(), Claim::Exclusive);
    if (report->keptLock) {
        report->unlockCode = registry.unlock();
    }
    report->againCode = scenario.again.perform(registry);
}

}  // namespace prove

#include "Aftermath.h"

#include <dirent.h>
#include <genreg/Codes.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "Careless.h"

namespace prove {
namespace {

// A failure that comes when the new contents are in place has one of these codes.
bool isCodeOfCommitted(unsigned int code) {
    constexpr unsigned int CODES[] = {
        REG_CLOSE_FAILED,          REG_VERIFY_FAILED,          REG_UNLOCK_FAILED,
        REG_ADD_INSTANCE_FAILED,   REG_ADD_SERVICE_FAILED,     REG_CHANGE_INSTANCE_FAILED,
        REG_CHANGE_SERVICE_FAILED, REG_REMOVE_INSTANCE_FAILED, REG_REMOVE_SERVICE_FAILED,
    };
    return std::find(std::begin(CODES), std::end(CODES), code) != std::end(CODES);
}

void judgeOutcome(Rig& rig, const Scenario& scenario, const Report& report, State state, const Excuses& excuses) {
    const std::string found = codeText(report.code) + ", and the registry is " + stateText(state);
    if (report.code == 0) {
        rig.check(state == State::New, "a wrong success: " + found);
        return;
    }
    rig.check(codeText(report.code).find("UNKNOWN") == std::string::npos, "no code of the library: " + found);
    if (state == State::New) {
        rig.check(scenario.reads() || (excuses.committed && isCodeOfCommitted(report.code)),
                  "failed, but changed: " + found);
    } else {
        const bool emptied = state == State::Empty && !scenario.before.present;
        rig.check(state == State::Old || emptied, "the old contents are lost: " + found);
    }
}

void judgeHoldings(Rig& rig, const Report& report, const Excuses& excuses) {
    rig.check(!report.keptLock || excuses.unlockFailed, "the lock is still held");
    rig.check(!report.keptLock || report.unlockCode == 0, "the kept lock cannot be given back");
    const int spare = excuses.lockFailed || excuses.unlockFailed ? 1 : 0;
    const int left = report.openAfter - report.openBefore;
    rig.check(left >= 0 && left <= spare, std::to_string(left) + " descriptors left open");
    const int atTheEnd = report.openAtTheEnd - report.openBefore;
    rig.check(atTheEnd == 0, std::to_string(atTheEnd) + " descriptors left open by the object");
}

void judgeSecondOperation(Rig& rig, const Scenario& scenario, const Place& place, const Report& report,
                          const Remains& remains) {
    Contents before = scenario.before;
    if (remains.state == State::New) {
        before = scenario.after(scenario.before, scenario.operation);
    }
    rig.check(report.againCode == 0, "the same object fails again: " + codeText(report.againCode));
    rig.check(bytesOf(place.registry()) == scenario.bytes(scenario.after(before, scenario.again)),
              "the second operation wrote something else");
    std::set<std::string> expected = {place.registry(), place.lock()};
    if (scenario.appendsInPlace()) {
        expected.insert(remains.files.begin(), remains.files.end());  // makes no copy, looks at none
    } else {
        rig.check(bytesOf(place.setAside()) == remains.temporary, "the stale copy was not set aside");
        if (remains.temporary) {
            expected.insert(place.setAside());
        }
    }
    rig.check(place.files() == expected, "the second operation left other files");
    rig.check(isFree(place.lock(), Claim::Exclusive) && isFree(place.registry(), Claim::Exclusive),
              "a lock outlived its object");
}

}  // namespace

Report* sharedReport() {
    void* const memory = ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("mmap");
        std::exit(2);
    }
    return static_cast<Report*>(memory);
}

int countDescriptors() {
    const char* const log = std::getenv("RVN_DIAG_LOG");
    DIR* const directory = ::opendir("/proc/self/fd");
    int count = -1;  // less the one that looks
    while (const dirent* entry = ::readdir(directory)) {
        std::array<char, PATH_MAX> target{};
        if (entry->d_name[0] != '.' &&
            ::readlinkat(::dirfd(directory), entry->d_name, target.data(), target.size() - 1) > 0) {
            count += log != nullptr && std::string(log) == target.data() ? 0 : 1;
        }
    }
    (void)::closedir(directory);
    return count;
}

Remains remainsOf(const Place& place, const Scenario& scenario) {
    return {stateOf(place, scenario), bytesOf(place.temporary()), bytesOf(place.setAside()), place.files()};
}

void judge(Rig& rig, const Scenario& scenario, const Place& place, const Report& report, const Remains& remains,
           const Excuses& excuses) {
    judgeOutcome(rig, scenario, report, remains.state, excuses);
    judgeHoldings(rig, report, excuses);
    if (report.code == 0) {
        std::set<std::string> files = remains.files;
        files.erase(place.setAside());  // a stale copy that cannot be set aside is deleted
        std::set<std::string> expected = {place.registry()};
        if (!scenario.reads()) {
            expected.insert(place.lock());
        }
        rig.check(files == expected, "succeeded and left other files");
    }
    judgeSecondOperation(rig, scenario, place, report, remains);
}

void controlAftermath(Rig& rig, const std::function<void(const Scenario&)>& play) {
    const std::pair<Vice, const char*> updates[] = {
        {Vice::Denies, "failed, but changed"},
        {Vice::Litters, "succeeded and left other files"},
        {Vice::KeepsLock, "the lock is still held"},
        {Vice::Descriptor, "1 descriptors left open"},
        {Vice::DescriptorAtEnd, "left open by the object"},
        {Vice::FailsAgain, "the same object fails again"},
        {Vice::WrongAgain, "the second operation wrote something else"},
    };
    for (const auto& [vice, words] : updates) {
        rig.control(words, [&, vice = vice] { play(carelessUpdate(vice)); });
    }
    rig.control("fails: 0x00000001", [&] { play(carelessReading(Vice::MisreadsRows)); });
}

}  // namespace prove

#include "prove/fleet_faults/Fleet.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "base/Json.h"
#include "tests/support/BuiltTool.h"

namespace prove {
namespace {

using Clock = std::chrono::steady_clock;

// A publisher makes a few of its own at its first trouble; what grows with each fault is far more after all of them.
constexpr std::size_t MORE_HELD = 8;

constexpr std::string_view RIGHT_AFTER = "right again after ";

std::string inSeconds(double seconds) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.1f s", seconds);
    return text;
}

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

bool becomes(const std::function<bool()>& it) {
    for (const auto limit = Clock::now() + LONGEST_RECOVERY; Clock::now() < limit;) {
        try {
            if (it()) {
                return true;
            }
        } catch (const fleet::StoreFailure&) {
            // which is not so
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

void pause(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

void Recoveries::add(const std::string& what, double seconds) {
    all_.push_back({what, seconds});
}

void Recoveries::tellEach(Cases& cases) const {
    for (const One& one : all_) {
        cases.note(std::string(RIGHT_AFTER) + std::to_string(one.seconds) + " s: " + one.what);
    }
}

bool Recoveries::take(const std::string& line) {
    const std::size_t at = line.find(RIGHT_AFTER);
    const std::size_t end = line.find(" s: ");
    if (at == std::string::npos || end == std::string::npos) {
        return false;
    }
    add(line.substr(end + 4), std::stod(line.substr(at + RIGHT_AFTER.size())));
    return true;
}

void Recoveries::tell(Cases& cases) const {
    if (all_.empty()) {
        return;
    }
    std::vector<One> sorted = all_;
    std::ranges::sort(sorted, {}, &One::seconds);
    cases.note("right again after a fault, " + std::to_string(sorted.size()) + " times: median " +
               inSeconds(sorted[sorted.size() / 2].seconds) + ", worst " + inSeconds(sorted.back().seconds) + " (" +
               sorted.back().what + ")");
}

Fleet::Fleet(Cases& around, Recoveries& times, const Shape& shape) : cases(around), recoveries(times), folder_(false) {
    std::filesystem::create_directory(folder_.file("servers"));
    EtcdServers::Options options;
    options.members = shape.members;
    options.flags = shape.flags;
    if (shape.peerProxies) {
        options.peerPort = [this](unsigned int port) {
            peerProxies_.push_back(std::make_unique<Proxy>(port));
            return peerProxies_.back()->port();
        };
    }
    servers_ = std::make_unique<EtcdServers>(folder_.file("servers"), options);
    fleet::StoreAccess access;
    access.endpoints = servers_->endpoints();
    access.insecure = true;
    store_ = std::make_unique<fleet::Store>(access);
    for (unsigned int member = 0; shape.proxies && member < shape.members; ++member) {
        const std::string endpoint = servers_->endpoint(member);
        proxies_.push_back(
            std::make_unique<Proxy>(static_cast<unsigned int>(std::stoul(endpoint.substr(endpoint.find(':') + 1)))));
    }
    (void)putBytes(viewer(), this->access());
    for (unsigned int number = 0; number < shape.machines; ++number) {
        const std::string name = "m" + std::to_string(number);
        machines_.push_back(std::make_unique<Machine>(folder_.file(name), name, this->access()));
        machines_.back()->enrol();
        if (number > 0) {
            // It is not the comparison now and then that puts things right.
            const char* const lease = number == 2 ? "40" : "3";
            machines_.back()->use(this->access(), std::string("lease = ") + lease + "\ncompare-every = 600\n");
        }
    }
}

std::string Fleet::access() const {
    std::string endpoints;
    if (proxies_.empty()) {
        for (const std::string& endpoint : servers_->endpoints()) {
            endpoints += " " + endpoint;
        }
    }
    for (const auto& proxy : proxies_) {
        endpoints += " " + proxy->endpoint();
    }
    return "endpoints =" + endpoints + "\ninsecure = yes\n";
}

void Fleet::begin() {
    for (const auto& machine : machines_) {
        machine->start();
    }
    (void)cases.check(awaitRight("the beginning"), "the beginning: the fleet never was right");
    watcher_ = std::make_unique<Background>(BUILT_FLEET, Words{"--config", viewer(), "--json", "watch"},
                                            folder_.file("watch.log"));
    (void)cases.check(becomes([&] { return watcher_->log().find("watching") != std::string::npos; }),
                      "the beginning: the watch does not begin: " + watcher_->log());
    for (const auto& machine : machines_) {
        held_.push_back({machine->publisher().descriptors(), machine->publisher().threads()});
    }
}

void Fleet::suffer(const Fault& fault) {
    const auto begin = Clock::now();
    fault.begin();
    ++writes_;
    for (const auto& machine : machines_) {
        machine->write("w" + std::to_string(writes_) + machine->name());
    }
    (void)ask(fault.name + ", meanwhile", "0.5", fault.loses);
    const auto measure = [&](Clock::time_point since) {
        if (cases.check(awaitRight(fault.name), fault.name + ": the fleet is not right again")) {
            recoveries.add(fault.name, secondsSince(since));
        }
    };
    if (fault.bearable) {
        measure(begin);
    }
    pause(std::max(0.0, fault.seconds - secondsSince(begin)));
    fault.end();
    if (!fault.bearable) {
        measure(Clock::now());
    }
    awaitWatcher(fault.name);
    const ToolRun after = ask(fault.name + ", afterwards", "30");
    (void)cases.check(after.status == 0,
                      fault.name + ", afterwards: exit " + std::to_string(after.status) + ": " + after.err);
    checkPublishers(fault.name);
    checkFiles(fault.name);
}

// It is told of what was written during the fault, too.
void Fleet::awaitWatcher(const std::string& what) {
    const bool told = becomes([&] {
        const std::string log = watcher_->log();
        return watcher_->ended() || std::ranges::all_of(machines_, [&](const auto& machine) {
                   return log.find('"' + machine->text() + '"') != std::string::npos;
               });
    });
    (void)cases.check(told && !watcher_->ended(), what + ": the watch ended, or was not told: " + watcher_->log());
}

bool Fleet::isRight(Machine& machine) {
    const Mirrored there = mirroredOf(*store_, machine);
    machine.saw(there.sequence);
    return there.damage.empty() && there.alive && there.text == machine.text();
}

bool Fleet::isRight() {
    return std::ranges::all_of(machines_, [&](const auto& machine) { return isRight(*machine); });
}

bool Fleet::awaitRight(const std::string& what) {
    if (becomes([&] { return isRight(); })) {
        return true;
    }
    for (const auto& machine : machines_) {
        const std::string log = machine->isRunning() ? machine->publisher().log() : "";
        cases.note(what + ", " + machine->name() + " said: " + log);
    }
    return false;
}

ToolRun Fleet::ask(const std::string& when, const std::string& seconds, bool mayMiss) {
    ToolRun run = runFleet(viewer(), {"--json", "--wait", seconds, "hosts"});
    judgeAnswer(when, run, mayMiss);
    return run;
}

void Fleet::judgeAnswer(const std::string& when, const ToolRun& run, bool mayMiss) {
    (void)cases.check(run.status < 127, when + ": asking ended with " + std::to_string(run.status) + ": " + run.err);
    (void)cases.check(run.status == 0 || !run.err.empty(), when + ": a failure says nothing");
    if (run.status != 0) {
        // Those that were known are told beside an empty store and a damaged value.
        (void)cases.check(run.out.empty() || run.status == 1 || run.status == 7 || run.status == 8,
                          when + ": a failure has a part of an answer: " + run.out);
        return;
    }
    for (const auto& machine : machines_) {
        judgeRow(when, *machine, run.out, mayMiss);
    }
}

void Fleet::judgeRow(const std::string& when, Machine& machine, const std::string& out, bool mayMiss) {
    std::istringstream lines(out);
    unsigned int rows = 0;
    for (std::string line; std::getline(lines, line);) {
        const tool::Json row = tool::Json::parse(line);
        if (row.value("id", "") != machine.id()) {
            continue;
        }
        ++rows;
        const tool::Json& sequence = row["sequence"];
        const bool none = sequence.is_null();
        (void)cases.check(!none || mayMiss, when + ": " + machine.name() + " is shown without what it published");
        (void)cases.check(none || sequence.get<std::uint64_t>() >= machine.acknowledged(),
                          when + ": an old picture of " + machine.name() + " is shown: number " + sequence.dump() +
                              ", and " + std::to_string(machine.acknowledged()) + " was acknowledged");
    }
    (void)cases.check(rows == 1, when + ": " + machine.name() + " is told " + std::to_string(rows) + " times");
}

void Fleet::checkPublishers(const std::string& when) {
    for (const auto& machine : machines_) {
        if (!machine->isRunning()) {
            continue;
        }
        const auto ended = machine->publisher().ended();
        (void)cases.check(!ended, when + ": the publisher of " + machine->name() +
                                      " ended: " + std::to_string(ended.value_or(0)) + machine->publisher().log());
        (void)cases.check(machine->publisher().log().find("clash") == std::string::npos,
                          when + ": " + machine->name() + " speaks of a clash: " + machine->publisher().log());
    }
}

void Fleet::checkFiles(const std::string& when) {
    for (const auto& machine : machines_) {
        const std::string wrong = machine->wrongWithFiles();
        (void)cases.check(wrong.empty(), when + ": " + wrong);
    }
}

void Fleet::end() {
    for (std::size_t number = 0; number < machines_.size(); ++number) {
        Machine& machine = *machines_[number];
        if (!machine.isRunning()) {
            continue;
        }
        Background& publisher = machine.publisher();
        if (number < held_.size()) {
            const Held& held = held_[number];
            (void)cases.check(becomes([&] { return publisher.descriptors() <= held.descriptors + MORE_HELD; }),
                              machine.name() + ": descriptors grew from " + std::to_string(held.descriptors) + " to " +
                                  std::to_string(publisher.descriptors()));
            (void)cases.check(becomes([&] { return publisher.threads() <= held.threads + MORE_HELD; }),
                              machine.name() + ": threads grew from " + std::to_string(held.threads) + " to " +
                                  std::to_string(publisher.threads()));
        }
        const auto status = publisher.end();
        (void)cases.check(status == 0, machine.name() + ": the publisher ended with " +
                                           (status ? std::to_string(*status) : "SIGKILL") + ": " + publisher.log());
    }
    if (watcher_ != nullptr) {
        const auto status = watcher_->end();
        (void)cases.check(status == 0, "the watch ended with " + (status ? std::to_string(*status) : "SIGKILL"));
    }
    checkFiles("the end");
}

}  // namespace prove

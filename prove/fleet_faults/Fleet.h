// Machines, their publishers, a store of one server or a cluster, somebody who asks and somebody who watches: what the
// faults are done to, and what has to hold at every moment.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "prove/fleet_faults/Machine.h"
#include "prove/fleet_faults/Proxy.h"
#include "prove/support/Cases.h"
#include "prove/support/Folder.h"
#include "tests/support/Etcd.h"

namespace prove {

// What takes longer than this has not come back: the 5 s, the longest wait between two attempts (30 s), and what a
// machine with much else to do adds.
inline constexpr std::chrono::seconds LONGEST_RECOVERY{75};

// Until it is so, or LONGEST_RECOVERY is over.
[[nodiscard]] bool becomes(const std::function<bool()>& it);
void pause(double seconds);

// How long it took to be right again, of all faults.
class Recoveries {
public:
    void add(const std::string& what, double seconds);
    // Each by itself, and out of such a line again; false: it is none.
    void tellEach(Cases& cases) const;
    bool take(const std::string& line);
    void tell(Cases& cases) const;

private:
    struct One {
        std::string what;
        double seconds;
    };
    std::vector<One> all_;
};

struct Shape {
    unsigned int members = 1;
    unsigned int machines = 3;
    bool proxies = false;      // between the machines and each member
    bool peerProxies = false;  // between the members
    std::vector<std::string> flags = {};
};

class Fleet {
public:
    Fleet(Cases& cases, Recoveries& recoveries, const Shape& shape);
    Fleet(Cases& around, Recoveries& times) : Fleet(around, times, Shape()) {}

    // Publishers and a watcher, until all is right.
    void begin();
    // Something is wrong for so long, while all registries are written and somebody asks; and then it is not any more.
    struct Fault {
        std::string name;
        std::function<void()> begin;
        std::function<void()> end;
        double seconds = 2;
        bool loses = false;     // all that the store had
        bool bearable = false;  // a majority is reached all the time: nobody waits for the end of it
    };
    void suffer(const Fault& fault);
    // The publishers hold no more than they did, and end when they are told to.
    void end();

    // Somebody asks, who gives the store that many seconds. What is answered is right, or a failure that says why.
    ToolRun ask(const std::string& when, const std::string& seconds, bool mayMiss = false);
    // All machines are alive with what they have now.
    [[nodiscard]] bool isRight();
    [[nodiscard]] bool isRight(Machine& machine);
    bool awaitRight(const std::string& what);
    void checkFiles(const std::string& when);

    Cases& cases;
    Recoveries& recoveries;
    [[nodiscard]] EtcdServers& servers() { return *servers_; }
    [[nodiscard]] fleet::Store& store() { return *store_; }
    [[nodiscard]] Machine& machine(std::size_t number) { return *machines_.at(number); }
    [[nodiscard]] std::size_t size() const { return machines_.size(); }
    [[nodiscard]] Proxy& proxy(std::size_t member) { return *proxies_.at(member); }
    [[nodiscard]] std::vector<std::unique_ptr<Proxy>>& peerProxies() { return peerProxies_; }
    [[nodiscard]] const std::string& folder() const { return folder_.path(); }
    [[nodiscard]] std::string viewer() const { return folder_.file("viewer.conf"); }
    // All that the watcher told.
    [[nodiscard]] std::string watched() const { return watcher_->log(); }
    // The lines of the settings by which the machines reach it.
    [[nodiscard]] std::string access() const;
    // The checks themselves.
    void judgeAnswer(const std::string& when, const ToolRun& run, bool mayMiss);

private:
    struct Held {
        std::size_t descriptors = 0;
        std::size_t threads = 0;
    };
    void awaitWatcher(const std::string& what);
    void checkPublishers(const std::string& when);
    void judgeRow(const std::string& when, Machine& machine, const std::string& out, bool mayMiss);

    const Folder folder_;
    std::vector<std::unique_ptr<Proxy>> peerProxies_;
    std::unique_ptr<EtcdServers> servers_;
    std::vector<std::unique_ptr<Proxy>> proxies_;
    std::unique_ptr<fleet::Store> store_;
    std::vector<std::unique_ptr<Machine>> machines_;
    std::vector<Held> held_;
    std::unique_ptr<Background> watcher_;
    unsigned int writes_ = 0;
};

}  // namespace prove

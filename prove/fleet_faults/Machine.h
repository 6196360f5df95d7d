// A machine of the fleet: a registry, a state folder and settings of its own, and its publisher as a process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mirror/HostValue.h"
#include "prove/support/ToolRun.h"
#include "store/Store.h"

namespace prove {

// The built program, in time: one that takes half a minute is ended by SIGALRM, which is a failure.
[[nodiscard]] ToolRun runFleet(const std::string& settings, const Words& words);

// A program that goes on until it is told to end; it does not outlive the rig.
class Background {
public:
    Background(const std::string& program, const Words& words, const std::string& log);
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    [[nodiscard]] pid_t process() const { return process_; }
    void signal(int number) const;
    // As a shell tells it; none: it goes on.
    [[nodiscard]] std::optional<int> ended();
    // Asks it to end. Its status; none: it did not within ten seconds, and was killed.
    std::optional<int> end();
    void kill();
    [[nodiscard]] std::string log() const;
    // How many descriptors it holds, and how many threads it has.
    [[nodiscard]] std::size_t descriptors() const { return entriesOf("fd"); }
    [[nodiscard]] std::size_t threads() const { return entriesOf("task"); }

private:
    [[nodiscard]] std::size_t entriesOf(const char* what) const;

    pid_t process_ = -1;
    std::string log_;
    std::optional<int> status_;
};

class Machine {
public:
    // store: the lines of its settings that say how the store is reached.
    Machine(std::string folder, std::string name, const std::string& store);

    void enrol();
    // Writes its registry, as an operator does. The seconds that it took.
    double write(const std::string& text);
    // What a publisher may have done to the registry, its companions or the state folder; empty: nothing.
    [[nodiscard]] std::string wrongWithFiles() const;
    void start();
    // times: those of its settings; by themselves a lease of the shortest and a comparison every few seconds, as nobody
    // would have them who has time.
    void use(const std::string& store, const std::string& times = "lease = 3\ncompare-every = 3\n");
    [[nodiscard]] ToolRun fleet(const Words& words) const { return runFleet(settings(), words); }

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::string& id() const { return id_; }
    [[nodiscard]] const std::string& text() const { return text_; }
    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] std::string settings() const { return folder_ + "/fleet.conf"; }
    [[nodiscard]] std::string registry() const { return folder_ + "/registry/global.reg"; }
    [[nodiscard]] std::string stateFolder() const { return folder_ + "/state"; }
    [[nodiscard]] Background& publisher() { return *publisher_; }
    [[nodiscard]] bool isRunning() const { return publisher_ != nullptr; }
    void endPublisher() { publisher_.reset(); }

    // The number of the last publication that is known to have been in the store: by its own file, or by who saw it.
    [[nodiscard]] std::uint64_t acknowledged() const;
    void saw(std::uint64_t sequence);

private:
    [[nodiscard]] std::string traces() const;

    std::string folder_;
    std::string name_;
    std::string id_;
    std::string text_;
    std::string traces_;
    std::uint64_t seen_ = 0;
    std::unique_ptr<Background> publisher_;
};

// What the store has of a machine.
struct Mirrored {
    std::int64_t revision = 0;  // of its value; 0: there is none
    std::uint64_t sequence = 0;
    std::string text;
    std::string damage;
    bool alive = false;
    fleet::AliveValue sign;
};
// Throws a StoreFailure.
[[nodiscard]] Mirrored mirroredOf(fleet::Store& store, const Machine& machine);

}  // namespace prove

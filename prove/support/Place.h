// Where a scenario is played, and the checker that looks at it: reads bytes, names and locks by itself, without the
// library.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "Scenarios.h"

namespace prove {

// The registry of one scenario in a directory of its own.
class Place {
public:
    Place(std::string directory, const Scenario& scenario);

    // Empties the directory and lays out what is there before the operation.
    void layOut() const;

    // The path that clients name, and those of the files behind it.
    [[nodiscard]] const std::string& named() const { return named_; }
    [[nodiscard]] const std::string& registry() const { return registry_; }
    [[nodiscard]] std::string temporary() const { return registry_ + ".tmp"; }
    [[nodiscard]] std::string setAside() const { return registry_ + ".cor"; }
    [[nodiscard]] std::string backup() const;
    [[nodiscard]] std::string lock() const;

    // The files of the registry's directory, by name.
    [[nodiscard]] std::set<std::string> files() const;

private:
    [[nodiscard]] std::string hidden(const char* suffix) const;

    std::string directory_;  // of the scenario
    std::string named_;
    std::string registry_;
    const Scenario& scenario_;
};

// The file's bytes; none when there is no file.
std::optional<std::string> bytesOf(const std::string& path);

enum class Claim { Shared, Exclusive };
// Whether a lock of that kind could be had on the file now; true for one that is not there. Takes none.
bool isFree(const std::string& path, Claim claim);

// What a registry file is found to hold.
enum class State {
    Old,
    New,
    Empty,   // no bytes, where no file was before
    Misfit,  // the new records under the old checksum header
    Other
};

// Allowed or not, which of them it is.
State stateOf(const Place& place, const Scenario& scenario);

const char* stateText(State state);

}  // namespace prove

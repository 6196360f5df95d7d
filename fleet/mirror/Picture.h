// All hosts out of what the store holds: each by itself, so that a bad value hides no other host.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mirror/HostValue.h"

namespace fleet {

enum class HostState {
    ALIVE,    // its publisher runs; perhaps there is no value yet
    SILENT,   // there is a value, and nobody who keeps it
    MISSING,  // the store has nothing of it
    CLASH,    // two machines write under its id
};
[[nodiscard]] std::string_view nameOf(HostState state);

// What the store says of a host.
struct HostLook {
    std::string id;
    HostState state = HostState::MISSING;
    bool hasValue = false;             // sound or not
    std::optional<HostValue> value;    // none: there is none, or it is damaged
    std::string damage;                // what is wrong with one of the two values, printable; empty: nothing
    std::vector<std::string> writers;  // of a clash, as far as they are known
};

class Picture {
public:
    explicit Picture(std::string prefix) : prefix_(std::move(prefix)) {}

    // A pair as the store has it. Keys that are no host's are passed over. The host's id, or an empty text.
    std::string put(std::string_view key, std::string_view value);
    std::string erase(std::string_view key);

    [[nodiscard]] const std::string& prefix() const { return prefix_; }
    [[nodiscard]] bool empty() const { return hosts_.empty(); }
    [[nodiscard]] std::vector<std::string> ids() const;
    // Whether there is a host that nobody keeps.
    [[nodiscard]] bool hasSilent() const;
    [[nodiscard]] bool has(const std::string& id) const { return hosts_.contains(id); }
    // Its values are read anew each time: kept is what is stored.
    [[nodiscard]] HostLook look(const std::string& id) const;

private:
    struct Stored {
        std::optional<std::string> value;
        std::optional<std::string> alive;
    };

    std::string prefix_;
    std::map<std::string, Stored> hosts_;
};

}  // namespace fleet

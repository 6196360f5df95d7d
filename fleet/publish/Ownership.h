// Whose a value in the store is: this machine's, or that of another one which goes by the same id.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mirror/HostValue.h"
#include "settings/Identity.h"
#include "store/Store.h"

namespace fleet {

enum class Claim {
    ABSENT,
    OWN,    // what was written last, or attempted to be
    STALE,  // what was there before, or still earlier where the store was set back, or came late; or it cannot be read
    CLASH,  // somebody else's
    DISPLACED,  // of who has taken the id over from this machine
};

struct ClaimedValue {
    Claim claim = Claim::ABSENT;
    std::int64_t revision = 0;  // of the key; 0: there is none
    Written written;            // as it says; nothing where it cannot be read
    std::string hostName;
    std::string time;
    std::string trouble;  // why it cannot be read
};

// Of the registries' key.
[[nodiscard]] ClaimedValue claimOn(const std::optional<StoredValue>& found, const Identity& identity);

// The leases of this process: that which it has now, and the one that its key was under last. 0: none.
struct OwnLeases {
    std::int64_t now = 0;
    std::int64_t held = 0;
};

// Of the other key.
struct ClaimedAlive {
    Claim claim = Claim::ABSENT;
    std::int64_t revision = 0;
    std::string writer;
    std::vector<std::string> claimants;  // where it speaks of a clash

    [[nodiscard]] bool isMarked() const { return !claimants.empty(); }
};
[[nodiscard]] ClaimedAlive claimOnAlive(const std::optional<StoredValue>& found, const Identity& identity,
                                        const OwnLeases& leases);

}  // namespace fleet

// What /etc/genreg/fleet.conf says: lines "key = value", read as any file of variables is.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/Command.h"
#include "store/Store.h"

namespace fleet {

inline constexpr char DEFAULT_SETTINGS[] = "/etc/genreg/fleet.conf";

struct Settings {
    std::string path;  // of the file
    StoreAccess access;
    std::string prefix;                   // ends in "/"
    std::vector<std::string> registries;  // none: the global registry
    int leaseSeconds = 90;
    int compareSeconds = 15 * 60;
    std::string stateFolder;  // $STATE_DIRECTORY, else /var/lib/genreg-fleet
    std::string hostName;     // the machine's, unless it says otherwise
};

// The file of --config, or the one above. Throws a Failure: missing or unreadable, an unknown key, a value that is
// none.
[[nodiscard]] Settings readSettings(const tool::Context& context);

// What the store answered, as a user hears of it: 4 not reached in time, 6 too large, 8 refused.
[[nodiscard]] tool::Failure failureOf(const StoreFailure& failure);

// Runs the work for as long as --wait allows; what the store answers is thrown as a Failure.
void askStore(const tool::Context& context, Store& store, const std::function<void()>& work);

}  // namespace fleet

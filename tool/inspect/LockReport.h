// Who holds a lock, for people and for programs.
#pragma once

#include <string>

#include "base/Output.h"
#include "base/Update.h"

namespace tool {

// "held"; "pid", "since" (UTC), "seconds" and "program" of the holder, null where nobody can tell. A note that is left
// in a free lock file is not told. Throws a Failure when the lock file cannot be read.
[[nodiscard]] Json lockObject(const RegistryFile& file);
[[nodiscard]] std::string lockText(const Json& lock);

}  // namespace tool

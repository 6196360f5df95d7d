// What lies beside a registry file, and what it tells.
#pragma once

#include <string>
#include <vector>

#include "base/Update.h"

namespace tool {

struct Companion {
    const char* name;  // "tmp", "bkp", "cor", "lock file"
    std::string path;
    std::string meaning;
};

// The companions that are there, and what each of them tells about the past. `held`: somebody has the lock.
[[nodiscard]] std::vector<Companion> companions(const RegistryFile& file, bool held);

}  // namespace tool

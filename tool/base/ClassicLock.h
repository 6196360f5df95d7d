// The record lock that a daemon holds on its lock file, asked for from outside.
#pragma once

#include <optional>
#include <string>

namespace tool {

struct ClassicLock {
    std::optional<bool> held;  // none: nobody can tell, since the file cannot be read
    long pid = 0;              // of the holder; 0 when the lock names none
};

[[nodiscard]] ClassicLock classicLockOf(const std::string& path);

}  // namespace tool

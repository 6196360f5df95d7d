// What a process holds open, to see that an operation leaves nothing behind.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

// Without the diagnostic log, which stays open once a failure was written to it.
inline long openDescriptors() {
    const char* const log = std::getenv("RVN_DIAG_LOG");
    long count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), ignored);
        count += log != nullptr && target == log ? 0 : 1;
    }
    return count;
}

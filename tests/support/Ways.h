// What the library that is tested can do on the system that it was built for, and locks as other programs hold them.
#pragma once

#include <fcntl.h>

#include <string_view>

#include "platform/System.h"

// What a test asks for that the ways of this build lack, it skips with its reason.
inline constexpr std::string_view WAYS = RVN_WAYS;
inline constexpr bool CARRIES_ATTRIBUTES = WAYS != "portable";  // beyond owner and permission bits
inline constexpr bool NAMES_HOLDERS = WAYS == "linux";          // of locks that belong to an open file
inline constexpr bool TELLS_STARTS = WAYS != "portable";        // when a process started
inline constexpr bool KEEPS_CONTENTS = WAYS != "portable";      // whether a file system is the machine's own
inline constexpr bool LENDS_LOCKS = WAYS == "linux";            // which takes locks that have parts
inline constexpr bool MEETS_CLASSIC_LOCKS = WAYS != "portable";

// The lock that another program would take exclusively, without waiting: a classic one where the library's locks meet
// those. 0, or -1 with EAGAIN where somebody holds one.
inline int lockAsOthers(int descriptor) {
    if (!MEETS_CLASSIC_LOCKS) {
        return platform::lockWholeFile(descriptor, platform::FileLock::Exclusive, false);
    }
    struct flock request = {};
    request.l_type = F_WRLCK;
    const int result = ::fcntl(descriptor, F_SETLK, &request);
    errno = result == -1 && errno == EACCES ? EAGAIN : errno;  // either may tell of a conflicting lock
    return result;
}

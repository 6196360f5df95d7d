// What each system does in its own way for what all of them share here. The rest of what a system does by itself is
// declared in Posix.h.
#pragma once

#include <cstdio>

namespace posix {

// The ACL: whether the file `to` now has that of the file `from`, or none if that has none. The security label, and
// what users tied to the file where that is wanted: as far as it goes.
[[nodiscard]] bool carryExtended(int from, int to, bool usersToo) noexcept;

// Writes out what the stream holds back, where the stream stands. Gone from it either way, as after a flush of its own.
// False with errno.
[[nodiscard]] bool drain(std::FILE* stream) noexcept;

// Closes the stream, which was drained where it matters. False with errno.
[[nodiscard]] bool closeDrained(std::FILE* stream) noexcept;

}  // namespace posix

// The descriptors of this process that a lock may hang on, so that a forked child can close its copies of them.
//
// Any thread may call. The mutex is held for a few instructions only, never across an open or a lock; across a fork it
// is held by the fork handlers, so that the child finds the table whole.
#pragma once

namespace osse {

// What a handle must still be to be one of this process: grows by one in each forked child.
[[nodiscard]] unsigned int forkGeneration() noexcept;

// The forks begun so far, the fork handlers being in place; false (errno set) when they cannot be.
[[nodiscard]] bool countForks(unsigned long* forks) noexcept;

enum class Held { Yes, Forked, Failed };

// Enters the descriptor; once only, however often it is entered. Forked: a fork has begun since *forks was counted, and
// the child may have a copy that no table knew of; nothing is entered. Failed: errno tells why.
[[nodiscard]] Held holdDescriptor(int descriptor, const unsigned long* forks) noexcept;

void releaseDescriptor(int descriptor) noexcept;
[[nodiscard]] bool isHeld(int descriptor) noexcept;

}  // namespace osse

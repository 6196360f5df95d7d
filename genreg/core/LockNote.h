// The note in the lock file: who holds the lock.
#pragma once

namespace genreg {

// For people who wonder who holds the lock; a failure is nobody's concern. Only a file of the lock's own is written,
// not one that another program uses. program: null for this one.
void writeLockNote(int descriptor, const char* program = nullptr) noexcept;

}  // namespace genreg

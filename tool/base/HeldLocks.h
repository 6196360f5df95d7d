// The locks that commands above this one hold for it: `lock run` hands them on to its command in the environment.
//
// What stands there is believed of nobody: a lock is lent by an inherited descriptor, and the library looks whether
// that is open, is the lock file and holds the lock (BorrowLock).
#pragma once

#include <genreg/GenRegFile.h>

#include <optional>
#include <string>
#include <vector>

namespace tool {

// That on the object's lock file, the innermost of several; none where nobody says so, or the file is another.
[[nodiscard]] std::optional<GenRegLockLoan> heldLockOf(GenRegFile& object);

// Tells a command's environment of a lock, too; of one whose descriptor the command inherits.
void putHeldLock(std::vector<std::string>& environment, const GenRegLockLoan& loan);

}  // namespace tool

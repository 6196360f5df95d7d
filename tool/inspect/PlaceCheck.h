// What is wrong around a registry file: beside it, with its lock, with the place where it lies.
#pragma once

#include "inspect/CheckedFile.h"
#include "inspect/Finding.h"

namespace tool {

// Whether an update will work there. `rehearse`: a commit is tried there with files of the tool's own, which are gone
// afterwards. Throws a Failure where the lock file cannot be read.
void checkPlace(Findings& findings, const CheckedFile& file, bool rehearse);

}  // namespace tool

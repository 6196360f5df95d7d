// --wait, for every lock that a command meets: that on a lock file, and those on the registry files themselves. A lock
// that is held for this command already is not waited for.
#pragma once

#include <genreg/GenRegFile.h>

#include <string>

#include "base/Command.h"

namespace tool {

// From now on registries are waited for as the options say; for whom is said once, after a second. The context outlives
// every registry object. Called before the command runs.
void setPatience(Context& context);

// Every object that opens the registry at the path (as the user named it) is handed in here once.
void waitPatiently(GenRegFile& object, const std::string& path);

// Tells of the holder in a failure whose lock was not to be had: that of the registry file itself, or of its lock file.
void tellHolder(Failure& failure, bool ofRegistryItself);

}  // namespace tool

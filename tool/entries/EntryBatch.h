// Changes of a file of entries that are committed as one.
#pragma once

#include "base/Command.h"
#include "entries/EntrySchema.h"

namespace tool {

// The source: a file of JSON lines, or standard input where it is "-" or empty. Throws a Failure; answers the exit
// status.
int applyToEntries(Context& context, const EntrySchema& schema, const std::string& file, const std::string& source);

}  // namespace tool

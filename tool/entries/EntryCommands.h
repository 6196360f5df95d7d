// The commands on files of lines and of binary variables.
#pragma once

#include <span>

#include "base/Command.h"

namespace tool {

[[nodiscard]] std::span<const Command> entryCommands();

}  // namespace tool

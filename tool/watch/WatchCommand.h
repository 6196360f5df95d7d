// The command that tells of changes as they are committed.
#pragma once

#include <span>

#include "base/Command.h"

namespace tool {

[[nodiscard]] std::span<const Command> watchCommands();

}  // namespace tool

// The commands on files of lines and of binary variables.
#pragma once

#include <span>

#include "base/Command.h"

namespace tool {

[[nodiscard]] std::span<const Command> varValCommands();
[[nodiscard]] std::span<const Command> servicesCommands();
[[nodiscard]] std::span<const Command> initTabCommands();
[[nodiscard]] std::span<const Command> binVarCommands();

}  // namespace tool

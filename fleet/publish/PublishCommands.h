// The commands of a machine that is mirrored.
#pragma once

#include <span>

#include "base/Command.h"

namespace fleet {

[[nodiscard]] std::span<const tool::Command> enrolCommands();
[[nodiscard]] std::span<const tool::Command> publishCommands();
[[nodiscard]] std::span<const tool::Command> statusCommands();

}  // namespace fleet

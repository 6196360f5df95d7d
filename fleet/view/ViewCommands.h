// What an operator asks of the picture of all machines.
#pragma once

#include <span>

#include "base/Command.h"

namespace fleet {

[[nodiscard]] std::span<const tool::Command> hostsCommands();    // hosts, show, forget
[[nodiscard]] std::span<const tool::Command> findCommands();     // find, count
[[nodiscard]] std::span<const tool::Command> compareCommands();  // diff
[[nodiscard]] std::span<const tool::Command> overseeCommands();  // watch
[[nodiscard]] std::span<const tool::Command> rehearseCommands();

}  // namespace fleet

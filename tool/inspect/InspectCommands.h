// The commands that look at registry files of any kind, and at their locks.
#pragma once

#include <span>

#include "base/Command.h"

namespace tool {

[[nodiscard]] std::span<const Command> statusCommands();
[[nodiscard]] std::span<const Command> lockCommands();
[[nodiscard]] std::span<const Command> diffCommands();
[[nodiscard]] std::span<const Command> explainCommands();
[[nodiscard]] std::span<const Command> dumpCommands();
[[nodiscard]] std::span<const Command> checkCommands();
[[nodiscard]] std::span<const Command> repairCommands();
[[nodiscard]] std::span<const Command> editCommands();

}  // namespace tool

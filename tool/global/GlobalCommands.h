// The commands on the global registry and on what belongs to it: its place, its log, versions.
#pragma once

#include <span>

#include "base/Command.h"

namespace tool {

[[nodiscard]] std::span<const Command> recordCommands();
[[nodiscard]] std::span<const Command> batchCommands();
[[nodiscard]] std::span<const Command> pathCommands();
[[nodiscard]] std::span<const Command> versionCommands();
[[nodiscard]] std::span<const Command> fixpackCommands();
[[nodiscard]] std::span<const Command> logCommands();

}  // namespace tool

// The lists of commands, one per source file that defines them.
#pragma once

#include <span>

#include "Command.h"

namespace tool {

[[nodiscard]] std::span<const Command> varValCommands();
[[nodiscard]] std::span<const Command> recordCommands();
[[nodiscard]] std::span<const Command> servicesCommands();
[[nodiscard]] std::span<const Command> initTabCommands();
[[nodiscard]] std::span<const Command> binVarCommands();
[[nodiscard]] std::span<const Command> statusCommands();
[[nodiscard]] std::span<const Command> lockCommands();
[[nodiscard]] std::span<const Command> diffCommands();
[[nodiscard]] std::span<const Command> explainCommands();
[[nodiscard]] std::span<const Command> pathCommands();
[[nodiscard]] std::span<const Command> versionCommands();
[[nodiscard]] std::span<const Command> fixpackCommands();
[[nodiscard]] std::span<const Command> logCommands();
[[nodiscard]] std::span<const Command> dumpCommands();
[[nodiscard]] std::span<const Command> watchCommands();

}  // namespace tool

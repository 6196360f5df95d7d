// The manual page of the tool: what is written by hand, with the commands and options as they are declared.
#pragma once

#include <span>
#include <string>

#include "base/Command.h"

namespace tool {

// The text with mdoc of the commands in place of its line ".\" COMMANDS", and of the global options in place of
// ".\" OPTIONS".
[[nodiscard]] std::string manualOf(const std::string& text, std::span<const CommandGroup> groups,
                                   std::span<const Command> commands);

}  // namespace tool

// The whole of a program but its commands: what main does.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/Command.h"
#include "complete/Completion.h"

namespace tool {

struct ProgramCommands {
    std::span<const CommandGroup> groups;
    std::vector<Command> all;
    NamesFor* namesFor;
};

// Runs what the command line asks for, reports what fails, and answers the exit status when all is written.
int runProgram(ProgramCommands (*commands)(), int count, char** arguments);

}  // namespace tool

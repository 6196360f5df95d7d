// A command that runs beside the tool: how it is started, and how its end is told.
#pragma once

#include <signal.h>

#include <string>
#include <vector>

namespace tool {

struct ChildSetup {
    std::vector<std::string> words;        // the first one is the program, looked for on the PATH
    std::vector<std::string> environment;  // "NAME=value"
    int input = -1;                        // becomes its standard input; -1: the tool's own
    int output = -1;                       // becomes its standard output; -1: the tool's own
    bool ownGroup = false;                 // a process group of its own, to be ended as a whole
    sigset_t blocked{};                    // signals that are not to reach it
};

// The environment of the tool.
[[nodiscard]] std::vector<std::string> inheritedEnvironment();

// Starts it, with the signals that the tool handles in its own way as they are by default. The system's error, or 0.
[[nodiscard]] int startChild(const ChildSetup& setup, pid_t* child);

// Runs it and waits for its end. Meanwhile the terminal's signals are the command's to act upon and the others are
// handed on to it: what the tool holds for it is given back when it has ended, not before. The system's error, or 0.
[[nodiscard]] int runInForeground(ChildSetup setup, int* exitStatus);

// As shells tell how a process ended, of what waitpid answered.
[[nodiscard]] int exitStatusOf(int ended);

}  // namespace tool

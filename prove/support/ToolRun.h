// Runs the built tool as a shell would, and holds what it says against what a user is to be told.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace prove {

using Words = std::vector<std::string>;

struct ToolRun {
    int status = -1;  // as a shell tells it: 128 plus the signal of one that ended it
    std::string out;
    std::string err;
};

// The child goes through `inside` once its descriptors are in place. Output beyond what a pipe holds stops it.
[[nodiscard]] ToolRun runTool(
    const std::string& tool, const Words& words, const std::function<void()>& inside = [] {});

struct Complaint {
    int status = 0;
    std::string reason;  // words of the message ...
    std::string remedy;  // ... and of the advice
};

// What is wrong with a failure that is to name the file, the reason, and a remedy with the code behind it; empty when
// nothing is.
[[nodiscard]] std::string wrongWith(const ToolRun& run, const std::string& path, const Complaint& expected);
// The same of one that was told with --json.
[[nodiscard]] std::string wrongWithJson(const ToolRun& run, const std::string& path, const Complaint& expected);

}  // namespace prove

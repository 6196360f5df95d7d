// The options that stand before or behind any command: one table, which the command line, the help, the manual and the
// completion all read.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Command.h"
#include "base/Parser.h"

namespace tool {

// What they are given, where it is no member of the options as it stands.
struct GivenOptions {
    Options* options;
    OutputStyle* style;
    std::optional<std::string> wait;
    std::string color = "auto";
};

struct GlobalOption {
    std::string_view name;  // the longest one
    unsigned int uses;      // USES_*; 0: every command takes it
    void (*declare)(Parser& parser, GivenOptions& given);
};

[[nodiscard]] std::span<const GlobalOption> globalOptions();

// --wait, or what GENREG_WAIT says in its place. Throws a Failure for what is no number of seconds.
[[nodiscard]] double secondsToWait(const std::optional<std::string>& given, const std::string& operation);

// --color, NO_COLOR and TERM.
void chooseColor(const std::string& when, Output& output);

}  // namespace tool

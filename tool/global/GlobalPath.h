// Which file the global registry is, for the commands that work on it.
#pragma once

#include <string>

#include "base/Command.h"

namespace tool {

// How a path came about. "rule": option, environment, default-asked, instance, default.
struct GlobalPath {
    std::string path;
    std::string rule;
    std::string toolPath;      // of the administration tool that was looked at; empty when none was
    bool toolVouches = false;  // it is a set-user-ID program of root in a place that makes its folder the registry's
};

// As the library resolves it, --registry and --default-path heeded. Throws a Failure when there is no answer, or one
// that the library does not take.
[[nodiscard]] GlobalPath globalPath(const Context& context);

// Its path; or the file that the user named instead.
[[nodiscard]] std::string globalFile(const Context& context, const std::string& given = {});

}  // namespace tool

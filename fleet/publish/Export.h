// What this machine's registries hold, as it goes into the store.
#pragma once

#include <string>
#include <vector>

#include "base/Command.h"
#include "mirror/HostValue.h"
#include "settings/Settings.h"

namespace fleet {

struct Exported {
    std::vector<RegistryError> errors;
    std::vector<MirroredRegistry> registries;
    HostContent content;
    bool postponed = false;  // somebody had one of them locked: what it held before stands for it
};

class Exporter {
public:
    // Throws a Failure where there is no global registry to be named and no other one is.
    Exporter(tool::Context& context, const Settings& settings);

    [[nodiscard]] const std::vector<std::string>& paths() const { return paths_; }
    // Reads them all. One that cannot be read is an error of its own among the others.
    [[nodiscard]] Exported read();

private:
    tool::Context& context_;
    std::vector<std::string> paths_;
    std::vector<MirroredRegistry> before_;
};

}  // namespace fleet

// What a watcher of a registry holds and looks at: the monitor's lock and the registry's directory, with words for what
// goes wrong.
#pragma once

#include <string>
#include <vector>

#include "base/Output.h"
#include "system/System.h"

namespace tool {

// The lock that names the process which writers wake.
class MonitorLock {
public:
    // Makes its folder where that is missing. Throws a Failure: held by somebody else (with the pid), or not to be
    // opened.
    explicit MonitorLock(Output& output);

private:
    OwnClassicLock lock_;
};

class WatchedFiles : public FileNews {
public:
    // The registry, and the file that it links to. Throws a Failure when a directory cannot be watched.
    explicit WatchedFiles(const std::vector<std::string>& paths);
};

}  // namespace tool

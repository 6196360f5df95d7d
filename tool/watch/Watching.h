// What a watcher of a registry needs of the system: the monitor's lock, signals that are told rather than obeyed, and
// news of the registry's directory.
#pragma once

#include <string>
#include <vector>

#include "base/Output.h"

namespace tool {

// The lock that names the process which writers wake. It is a classic record lock: closing any other descriptor of the
// file in this process would give it back, so it is opened once.
class MonitorLock {
public:
    // Makes its folder where that is missing. Throws a Failure: held by somebody else (with the pid), or not to be
    // opened.
    explicit MonitorLock(Output& output);
    ~MonitorLock();
    MonitorLock(const MonitorLock&) = delete;
    MonitorLock& operator=(const MonitorLock&) = delete;

private:
    int descriptor_ = -1;
};

// From the first one on, SIGINT and SIGTERM ask for the end. So does SIGHUP, unless it is a monitor's: then it asks to
// look. All of them are delivered within wait() only.
class WatchSignals {
public:
    explicit WatchSignals(bool monitor);

    [[nodiscard]] bool endAsked() const noexcept;
    // Whether somebody asked to look since the last time.
    [[nodiscard]] bool takeLook() noexcept;
    // Until a descriptor has news, a signal came or the time is over. `reader`: a descriptor whose reader going away
    // is news, too. False when that happened.
    bool wait(int descriptor, int reader, int milliseconds) const;
};

// News of files: that one of the names was created, replaced, written or removed in its directory.
class DirectoryNews {
public:
    // The registry, and the file that it links to. Throws a Failure when a directory cannot be watched.
    explicit DirectoryNews(const std::vector<std::string>& paths);
    ~DirectoryNews();
    DirectoryNews(const DirectoryNews&) = delete;
    DirectoryNews& operator=(const DirectoryNews&) = delete;

    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
    // Takes in what there is; whether any of it concerns the files.
    bool take();
    // Watches anew the directories that went away. Whether all are watched.
    bool mend();

private:
    struct Place {
        std::string directory;
        std::string name;
        int watch;
    };

    int descriptor_ = -1;
    std::vector<Place> places_;
};

}  // namespace tool

// What wakes a watcher that looks at files by itself: the clock, or the system.
#pragma once

#include <sys/stat.h>

#include "system/System.h"

namespace tool {

// When the file was changed last, in any way, as fine as the system tells it.
[[nodiscard]] timespec changeTimeOf(const struct stat& status);

class Waker {
public:
    Waker();
    ~Waker();
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;

    // The file, and its directory. The system's error where the directory cannot be watched.
    [[nodiscard]] int add(const std::string& directory, const std::string& path);
    // Changes from now on end the next wait. Whether all directories are there.
    [[nodiscard]] bool arm();
    // Until it is time to look, a signal came or the time is over; below 0 there is no end to it. False when the reader
    // of the descriptor went away.
    [[nodiscard]] bool wait(const WatchSignals& signals, int reader, int milliseconds);

private:
    struct Armed;
    std::unique_ptr<Armed> armed_;
};

}  // namespace tool

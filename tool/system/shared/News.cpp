// News of files by looking at them, for systems that do not tell names and the end of a writing. What wakes the watcher
// only says when to look.
//
// A file that somebody writes in place is not read in the middle of that: what differs is news when it has been the
// same for a while. That is also longer than the step of the clock that files are marked by, so that no change hides
// behind the mark of the one before. Where changes do not cease there is news now and then all the same.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>

#include "system/shared/Waker.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds SETTLED(50);
constexpr std::chrono::milliseconds LONGEST_SILENCE(1000);

struct Look {
    bool there = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long seconds = 0;
    long nanoseconds = 0;

    bool operator==(const Look&) const = default;
};

Look lookAt(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return {};
    }
    const timespec changed = changeTimeOf(status);
    return {true, status.st_dev, status.st_ino, status.st_size, changed.tv_sec, changed.tv_nsec};
}

struct Place {
    std::string path;
    std::optional<Look> told;  // none: what was there at the beginning has not settled yet
    Look seen;
};

}  // namespace

struct FileNews::Watched {
    Waker waker;
    std::vector<Place> places;
    bool whole = true;         // all directories are there
    Clock::time_point moved;   // when something was seen to be other than before
    Clock::time_point silent;  // since when nothing was told

    [[nodiscard]] bool isUnsettled() const {
        return std::any_of(places.begin(), places.end(), [](const Place& place) { return place.told != place.seen; });
    }

    void look() {
        const bool wasUnsettled = isUnsettled();
        for (Place& place : places) {
            const Look now = lookAt(place.path);
            moved = now != place.seen ? Clock::now() : moved;
            place.seen = now;
        }
        silent = wasUnsettled ? silent : Clock::now();
    }
};

FileNews::FileNews() : watched_(std::make_unique<Watched>()) {}

FileNews::~FileNews() = default;

int FileNews::watch(const std::vector<std::string>& paths, std::string* refused) {
    for (const std::string& path : paths) {
        const std::filesystem::path parts(path);
        const std::string directory = parts.has_parent_path() ? parts.parent_path().string() : ".";
        if (const int error = watched_->waker.add(directory, path)) {
            *refused = directory;
            return error;
        }
        watched_->places.push_back({path, std::nullopt, {}});
    }
    watched_->whole = watched_->waker.arm();
    watched_->look();
    return 0;
}

bool FileNews::wait(const WatchSignals& signals, int reader, int milliseconds) {
    constexpr auto SOON = static_cast<int>(SETTLED.count());
    const bool soon = watched_->isUnsettled() && (milliseconds < 0 || milliseconds > SOON);
    return watched_->waker.wait(signals, reader, soon ? SOON : milliseconds);
}

bool FileNews::take() {
    watched_->whole = watched_->waker.arm();
    watched_->look();
    if (!watched_->isUnsettled()) {
        return false;
    }
    const Clock::time_point now = Clock::now();
    if (now - watched_->moved >= SETTLED) {
        for (Place& place : watched_->places) {
            place.told = place.seen;
        }
        return true;
    }
    if (now - watched_->silent >= LONGEST_SILENCE) {
        watched_->silent = now;  // and told again once it has settled
        return true;
    }
    return false;
}

bool FileNews::mend() {
    return watched_->whole;
}

}  // namespace tool

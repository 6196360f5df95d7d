// News of files by inotify.
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "system/System.h"

namespace tool {
namespace {

constexpr unsigned int NEWS =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_MOVE_SELF | IN_ONLYDIR;

struct Place {
    std::string directory;
    std::string name;
    int watch;
};

}  // namespace

struct FileNews::Watched {
    int descriptor = -1;
    std::vector<Place> places;
};

FileNews::FileNews() : watched_(std::make_unique<Watched>()) {}

FileNews::~FileNews() {
    if (watched_->descriptor >= 0) {
        (void)close(watched_->descriptor);
    }
}

int FileNews::watch(const std::vector<std::string>& paths, std::string* refused) {
    watched_->descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watched_->descriptor < 0) {
        return errno;
    }
    for (const std::string& path : paths) {
        const std::filesystem::path parts(path);
        const std::string directory = parts.has_parent_path() ? parts.parent_path().string() : ".";
        const int watch = inotify_add_watch(watched_->descriptor, directory.c_str(), NEWS);
        if (watch < 0) {
            const int error = errno;
            *refused = directory;
            return error;
        }
        watched_->places.push_back({directory, parts.filename(), watch});
    }
    return 0;
}

bool FileNews::wait(const WatchSignals& signals, int reader, int milliseconds) {
    pollfd sources[] = {{watched_->descriptor, POLLIN, 0}, {reader, 0, 0}};
    const timespec limit{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000};
    const int ready = ppoll(sources, 2, milliseconds < 0 ? nullptr : &limit, &signals.whileWaiting());
    return ready <= 0 || (sources[1].revents & (POLLERR | POLLHUP)) == 0;
}

bool FileNews::take() {
    bool concerned = false;
    alignas(inotify_event) char events[4096];
    ssize_t got = 0;
    while ((got = read(watched_->descriptor, events, sizeof events)) > 0) {
        for (ssize_t at = 0; at < got;) {
            inotify_event event{};
            std::memcpy(&event, events + at, sizeof event);
            const char* const name = events + at + sizeof event;
            concerned = concerned || (event.mask & IN_Q_OVERFLOW) != 0;
            const bool gone = (event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0;
            if ((event.mask & IN_MOVE_SELF) != 0) {
                // The watch would go with the directory; what counts is the path.
                (void)inotify_rm_watch(watched_->descriptor, event.wd);
            }
            for (Place& place : watched_->places) {
                if (place.watch == event.wd) {
                    concerned = concerned || gone || (event.len > 0 && place.name == name);
                    place.watch = gone ? -1 : place.watch;
                }
            }
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
    return concerned;
}

bool FileNews::mend() {
    for (Place& place : watched_->places) {
        if (place.watch < 0) {
            place.watch = inotify_add_watch(watched_->descriptor, place.directory.c_str(), NEWS);
        }
    }
    return std::all_of(watched_->places.begin(), watched_->places.end(),
                       [](const Place& place) { return place.watch >= 0; });
}

}  // namespace tool

#include "watch/Watching.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/DiskFiles.h"
#include "base/Failure.h"
#include "base/Text.h"

namespace tool {
namespace {

constexpr char LOCK_PATH[] = "/var/rvn/.fmcd.lock";
constexpr char OR_FOLLOW[] = ", or genreg watch --follow, which needs no lock";
constexpr int LOCK_PERMISSIONS = 0644;
constexpr unsigned int NEWS =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_MOVE_SELF | IN_ONLYDIR;

volatile sig_atomic_t endSignals = 0;
volatile sig_atomic_t lookSignals = 0;
sigset_t signalsWhileWaiting;

void askForEnd(int) {
    endSignals = 1;
}

void askToLook(int) {
    lookSignals = 1;
}

void ignoreChild(int) {}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    (void)sigaction(signal, &action, nullptr);
}

Failure heldBy(long pid) {
    Failure failure;
    failure.kind = "locked";
    failure.exitStatus = EXIT_LOCKED;
    failure.path = LOCK_PATH;
    failure.message = pid > 0 ? fmt::format("pid {} is the monitor already ({} is locked)", pid, LOCK_PATH)
                              : fmt::format("another process is the monitor already ({} is locked)", LOCK_PATH);
    failure.hint = "genreg watch --follow, which needs no lock";
    return failure;
}

struct flock wholeFile(short type) {
    struct flock request {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    return request;
}

}  // namespace

MonitorLock::MonitorLock(Output& output) {
    try {
        makeFolder(output, folderOf(LOCK_PATH));
    } catch (Failure& failure) {
        failure.hint += OR_FOLLOW;
        throw;
    }
    descriptor_ = open(LOCK_PATH, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, LOCK_PERMISSIONS);
    if (descriptor_ < 0) {
        const int error = errno;
        Failure failure = systemFailure(error, LOCK_PATH, "become the monitor");
        const bool forbidden = error == EACCES || error == EPERM || error == EROFS;
        failure.hint = forbidden ? "run it as a user who may write there" : failure.hint;
        failure.hint += OR_FOLLOW;
        throw failure;
    }
    struct flock request = wholeFile(F_WRLCK);
    if (fcntl(descriptor_, F_SETLK, &request) == 0) {
        return;
    }
    const int error = errno;
    request = wholeFile(F_WRLCK);
    const bool asked = fcntl(descriptor_, F_GETLK, &request) == 0;
    (void)close(descriptor_);
    if (error != EACCES && error != EAGAIN) {
        throw systemFailure(error, LOCK_PATH, "lock it");
    }
    throw heldBy(asked && request.l_type != F_UNLCK ? request.l_pid : 0);
}

MonitorLock::~MonitorLock() {
    (void)close(descriptor_);
}

WatchSignals::WatchSignals(bool monitor) {
    sigset_t told;
    sigemptyset(&told);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&told, signal);
    }
    (void)sigprocmask(SIG_BLOCK, &told, &signalsWhileWaiting);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigdelset(&signalsWhileWaiting, signal);
    }
    handle(SIGINT, askForEnd);
    handle(SIGTERM, askForEnd);
    handle(SIGHUP, monitor ? askToLook : askForEnd);
    handle(SIGCHLD, ignoreChild);
}

bool WatchSignals::endAsked() const noexcept {
    return endSignals != 0;
}

bool WatchSignals::takeLook() noexcept {
    const bool asked = lookSignals != 0;
    lookSignals = 0;
    return asked;
}

bool WatchSignals::wait(int descriptor, int reader, int milliseconds) const {
    pollfd sources[] = {{descriptor, POLLIN, 0}, {reader, 0, 0}};
    const timespec limit{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000};
    const int ready = ppoll(sources, 2, milliseconds < 0 ? nullptr : &limit, &signalsWhileWaiting);
    return ready <= 0 || (sources[1].revents & (POLLERR | POLLHUP)) == 0;
}

DirectoryNews::DirectoryNews(const std::vector<std::string>& paths) {
    descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (descriptor_ < 0) {
        throw systemFailure(errno, paths.front(), "watch it");
    }
    for (const std::string& path : paths) {
        const std::filesystem::path parts(path);
        const std::string directory = parts.has_parent_path() ? parts.parent_path().string() : ".";
        const int watch = inotify_add_watch(descriptor_, directory.c_str(), NEWS);
        if (watch < 0) {
            const int error = errno;
            (void)close(descriptor_);
            throw systemFailure(error, directory, "watch the directory");
        }
        places_.push_back({directory, parts.filename(), watch});
    }
}

DirectoryNews::~DirectoryNews() {
    (void)close(descriptor_);
}

bool DirectoryNews::take() {
    bool concerned = false;
    alignas(inotify_event) char events[4096];
    ssize_t got = 0;
    while ((got = read(descriptor_, events, sizeof events)) > 0) {
        for (ssize_t at = 0; at < got;) {
            inotify_event event{};
            std::memcpy(&event, events + at, sizeof event);
            const char* const name = events + at + sizeof event;
            concerned = concerned || (event.mask & IN_Q_OVERFLOW) != 0;
            const bool gone = (event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0;
            if ((event.mask & IN_MOVE_SELF) != 0) {
                // The watch would go with the directory; what counts is the path.
                (void)inotify_rm_watch(descriptor_, event.wd);
            }
            for (Place& place : places_) {
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

bool DirectoryNews::mend() {
    for (Place& place : places_) {
        if (place.watch < 0) {
            place.watch = inotify_add_watch(descriptor_, place.directory.c_str(), NEWS);
        }
    }
    return std::all_of(places_.begin(), places_.end(), [](const Place& place) { return place.watch >= 0; });
}

}  // namespace tool

// Wakes by kqueue, which tells of an open file or directory: that it was written, or its name taken from it. So both
// are kept open, the directory for names that come and go, the file for what is written in place, and opened anew when
// the path leads elsewhere.
#include "system/shared/Waker.h"

#include <fcntl.h>
#include <sys/event.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace tool {
namespace {

constexpr unsigned int NEWS = NOTE_WRITE | NOTE_EXTEND | NOTE_ATTRIB | NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE;

// Open for its events alone, which does not keep a volume from being unmounted.
class Source {
public:
    Source(std::string path, int flags) : path_(std::move(path)), flags_(flags) {}
    Source(Source&& other) noexcept
        : path_(std::move(other.path_)), flags_(other.flags_), descriptor_(other.descriptor_) {
        other.descriptor_ = -1;
    }
    ~Source() { forget(); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    Source& operator=(Source&&) = delete;

    // What stands at the path now wakes. The system's error.
    int arm(int queue) {
        if (isCurrent()) {
            return 0;
        }
        forget();
        descriptor_ = open(path_.c_str(), O_EVTONLY | O_CLOEXEC | flags_);
        if (descriptor_ < 0) {
            return errno;
        }
        struct kevent change = {};
        EV_SET(&change, static_cast<uintptr_t>(descriptor_), EVFILT_VNODE, EV_ADD | EV_CLEAR, NEWS, 0, nullptr);
        return kevent(queue, &change, 1, nullptr, 0, nullptr) == 0 ? 0 : errno;
    }

private:
    [[nodiscard]] bool isCurrent() const {
        struct stat open = {};
        struct stat named = {};
        return descriptor_ >= 0 && fstat(descriptor_, &open) == 0 &&
               (flags_ == O_DIRECTORY ? stat(path_.c_str(), &named) : lstat(path_.c_str(), &named)) == 0 &&
               open.st_dev == named.st_dev && open.st_ino == named.st_ino;
    }

    // The queue forgets what is closed.
    void forget() {
        if (descriptor_ >= 0) {
            (void)close(descriptor_);
            descriptor_ = -1;
        }
    }

    std::string path_;
    int flags_;
    int descriptor_ = -1;
};

}  // namespace

struct Waker::Armed {
    int queue = -1;
    int reader = -1;  // the one that the queue knows
    std::vector<Source> directories;
    std::vector<Source> files;
};

Waker::Waker() : armed_(std::make_unique<Armed>()) {}

Waker::~Waker() {
    if (armed_->queue >= 0) {
        (void)close(armed_->queue);
    }
}

timespec changeTimeOf(const struct stat& status) {
    return status.st_ctimespec;
}

int Waker::add(const std::string& directory, const std::string& path) {
    if (armed_->queue < 0) {
        armed_->queue = kqueue();
        if (armed_->queue < 0) {
            return errno;
        }
        (void)fcntl(armed_->queue, F_SETFD, FD_CLOEXEC);
    }
    Source source(directory, O_DIRECTORY);
    if (const int error = source.arm(armed_->queue)) {
        return error;
    }
    armed_->directories.push_back(std::move(source));
    armed_->files.emplace_back(path, O_SYMLINK);
    return 0;
}

bool Waker::arm() {
    bool whole = true;
    for (Source& directory : armed_->directories) {
        whole = directory.arm(armed_->queue) == 0 && whole;
    }
    for (Source& file : armed_->files) {
        (void)file.arm(armed_->queue);  // one that is missing comes into its directory
    }
    return whole;
}

bool Waker::wait(const WatchSignals& signals, int reader, int milliseconds) {
    if (reader >= 0 && reader != armed_->reader) {
        struct kevent change = {};
        EV_SET(&change, static_cast<uintptr_t>(reader), EVFILT_WRITE, EV_ADD | EV_CLEAR, 0, 0, nullptr);
        (void)kevent(armed_->queue, &change, 1, nullptr, 0, nullptr);  // a device has no reader that goes away
        armed_->reader = reader;
    }
    fd_set sources;
    FD_ZERO(&sources);
    FD_SET(armed_->queue, &sources);
    const timespec limit{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000};
    (void)pselect(armed_->queue + 1, &sources, nullptr, nullptr, milliseconds < 0 ? nullptr : &limit,
                  &signals.whileWaiting());
    struct kevent event = {};
    const timespec atOnce{};
    bool readerThere = true;
    while (kevent(armed_->queue, nullptr, 0, &event, 1, &atOnce) > 0) {
        readerThere = readerThere && (event.filter != EVFILT_WRITE || (event.flags & EV_EOF) == 0);
    }
    return readerThere;
}

}  // namespace tool

// Wakes by the clock.
#include "system/shared/Waker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace tool {
namespace {

constexpr int PERIOD_MILLISECONDS = 100;

}  // namespace

struct Waker::Armed {};

Waker::Waker() = default;
Waker::~Waker() = default;

timespec changeTimeOf(const struct stat& status) {
    return status.st_ctim;
}

int Waker::add(const std::string& directory, const std::string& /*path*/) {
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    (void)close(descriptor);
    return 0;
}

bool Waker::arm() {
    return true;  // a directory that comes back is found by its path
}

bool Waker::wait(const WatchSignals& signals, int reader, int milliseconds) {
    signals.wait(milliseconds < 0 || milliseconds > PERIOD_MILLISECONDS ? PERIOD_MILLISECONDS : milliseconds);
    pollfd source = {reader, 0, 0};
    return poll(&source, 1, 0) <= 0 || (source.revents & (POLLERR | POLLHUP)) == 0;
}

}  // namespace tool

#include "system/ServiceManager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ctime>

namespace tool {
namespace {

// Where a manager is that takes nothing in, it is not waited for.
constexpr timeval PATIENCE{1, 0};

// A path, or a name that stands in no file system, which the manager writes with @ in front.
bool addressOf(const std::string& name, sockaddr_un& address, socklen_t& length) {
    if (name.size() < 2 || name.size() >= sizeof address.sun_path || (name[0] != '/' && name[0] != '@')) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::copy(name.begin(), name.end(), address.sun_path);
    const bool ofFile = name[0] == '/';
    if (!ofFile) {
        address.sun_path[0] = '\0';
    }
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (ofFile ? 1 : 0));
    return true;
}

}  // namespace

bool hasServiceManager() noexcept {
    return std::getenv(SERVICE_MANAGER_VARIABLE) != nullptr;
}

void tellServiceManager(const std::string& state) noexcept {
    const char* const name = std::getenv(SERVICE_MANAGER_VARIABLE);
    sockaddr_un address{};
    socklen_t length = 0;
    if (name == nullptr || !addressOf(name, address, length)) {
        return;
    }
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor < 0) {
        return;
    }
    (void)::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    (void)::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof PATIENCE);
    (void)::sendto(descriptor, state.data(), state.size(), 0, reinterpret_cast<const sockaddr*>(&address), length);
    (void)::close(descriptor);
}

unsigned long long monotonicMicroseconds() noexcept {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000 + static_cast<unsigned long long>(now.tv_nsec) / 1000;
}

}  // namespace tool

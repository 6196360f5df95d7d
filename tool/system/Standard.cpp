// The standard files, the machine, and the end.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "system/System.h"

namespace tool {
namespace {

constexpr int FIRST_OWN_DESCRIPTOR = 3;

void fillIfClosed(int descriptor, int access) noexcept {
    if (fcntl(descriptor, F_GETFD) >= 0) {
        return;
    }
    const int null = open("/dev/null", access);
    if (null >= 0 && null != descriptor) {
        (void)dup2(null, descriptor);
        (void)close(null);
    }
}

}  // namespace

void fillClosedStandardFiles() noexcept {
    fillIfClosed(STDIN_FILENO, O_RDONLY);
    fillIfClosed(STDERR_FILENO, O_WRONLY);
}

std::FILE* takeStandardOutput() noexcept {
    const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, FIRST_OWN_DESCRIPTOR);
    if (own < 0) {
        fillIfClosed(STDOUT_FILENO, O_WRONLY);
        return nullptr;
    }
    std::FILE* null = std::freopen("/dev/null", "w", stdout);
    std::FILE* stream = null == nullptr ? nullptr : fdopen(own, "w");
    if (stream == nullptr) {
        close(own);
    }
    return stream;
}

bool isTerminal(std::FILE* stream) noexcept {
    return isatty(fileno(stream)) != 0;
}

std::size_t terminalColumns(std::FILE* stream) noexcept {
    winsize size{};
    return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void leave(int status) noexcept {
#ifdef GENREG_COUNTS_LEAKS
    std::exit(status);  // which is where they are counted
#else
    _exit(status);
#endif
}

std::string hostName() {
    constexpr std::size_t LONGEST = 255;
    std::string name(LONGEST + 1, '\0');
    if (gethostname(name.data(), LONGEST) != 0) {
        return {};
    }
    name.erase(name.find('\0'));
    return name;
}

}  // namespace tool

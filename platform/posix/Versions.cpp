// Versions of files.
#include <ctime>

#include "../System.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr long long SECOND = 1000000000;

long long nanoseconds(const timespec& time) noexcept {
    return static_cast<long long>(time.tv_sec) * SECOND + time.tv_nsec;
}

bool versionFrom(const struct stat& status, FileVersion* version) noexcept {
    *version = {static_cast<unsigned long>(status.st_dev), static_cast<unsigned long>(status.st_ino),
                static_cast<unsigned long>(status.st_size), nanoseconds(platform::modifiedAt(status)),
                nanoseconds(platform::changedAt(status))};
    return S_ISREG(status.st_mode);
}

}  // namespace

bool versionAt(const char* path, FileVersion* version) noexcept {
    struct stat status;
    return ::lstat(path, &status) == 0 && versionFrom(status, version);
}

bool versionOf(int descriptor, FileVersion* version) noexcept {
    struct stat status;
    return ::fstat(descriptor, &status) == 0 && versionFrom(status, version);
}

// Times move in steps of the system's clock, 10 ms at most, and on some file systems of a second. A write sets them
// before it stores its bytes, so the wait is ten such steps: a writer that the system stops in between is late by less.
bool isSettled(const FileVersion& version) noexcept {
    constexpr long long FINE = SECOND / 10;
    constexpr long long COARSE = 2 * SECOND;
    timespec time = {};
    if (::clock_gettime(CLOCK_REALTIME, &time) != 0) {
        return false;
    }
    const bool coarse = version.modified % SECOND == 0 && version.changed % SECOND == 0;
    const long long last = version.modified > version.changed ? version.modified : version.changed;
    return nanoseconds(time) - last >= (coarse ? COARSE : FINE);
}

int pinFile(const char* path) noexcept {
    return platform::openToPin(path);
}

bool isLocalFile(int descriptor) noexcept {
    return platform::isOwnFileSystem(descriptor);
}

}  // namespace posix

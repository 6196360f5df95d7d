// Other processes.
#include <cstdlib>

#include "../Posix.h"

namespace posix {

long findLockHolder(const char* /*path*/, long suspect) noexcept {
    return suspect;
}

void programOf(long /*process*/, char* name, std::size_t size) noexcept {
    if (size != 0) {
        *name = '\0';
    }
}

unsigned long long processStart(long /*process*/) noexcept {
    return 0;
}

const char* programName() noexcept {
    const char* const name = ::getprogname();
    return name != nullptr ? name : "";
}

}  // namespace posix

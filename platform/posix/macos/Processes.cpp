// Other processes, of which the system's table of them tells everybody the name and the start.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "../../System.h"
#include "../Posix.h"

namespace posix {
namespace {

bool readProcess(long process, kinfo_proc* found) noexcept {
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, static_cast<int>(process)};
    std::size_t size = sizeof *found;
    // Of a process that is not there it tells nothing, and does not fail.
    return ::sysctl(name, sizeof name / sizeof *name, found, &size, nullptr, 0) == 0 && size == sizeof *found &&
           found->kp_proc.p_pid == process;
}

// A program that loads the library may unload it again. Its handler of forks, and the names that it hands the library
// below it, stay for as long as the program runs, and so does the library: closing a handle does not unload what was
// once opened so.
[[gnu::constructor]] void stay() {
    Dl_info library = {};
    if (::dladdr(reinterpret_cast<const void*>(&readProcess), &library) != 0 && library.dli_fname != nullptr) {
        (void)::dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

}  // namespace

// A lock that belongs to an open file names no process: whoever left the note, then. A classic one that another program
// holds on the file does, and keeps ours out as well.
long findLockHolder(const char* path, long suspect) noexcept {
    const int descriptor = platform::openHigh(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor == -1) {
        return suspect;
    }
    long holder = 0;
    const bool named = recordLockHolder(descriptor, &holder) == 0 && holder > 0;
    platform::closeQuietly(descriptor);
    return named ? holder : suspect;
}

void programOf(long process, char* name, std::size_t size) noexcept {
    kinfo_proc found;
    (void)std::snprintf(name, size, "%s", readProcess(process, &found) ? found.kp_proc.p_comm : "");
}

// In microseconds since 1970, as the clock was set then.
unsigned long long processStart(long process) noexcept {
    constexpr unsigned long long MICROSECONDS = 1'000'000;
    kinfo_proc found;
    if (!readProcess(process, &found)) {
        return 0;
    }
    const timeval& start = found.kp_proc.p_starttime;
    return static_cast<unsigned long long>(start.tv_sec) * MICROSECONDS +
           static_cast<unsigned long long>(start.tv_usec);
}

const char* programName() noexcept {
    const char* const name = ::getprogname();
    return name != nullptr ? name : "";
}

}  // namespace posix

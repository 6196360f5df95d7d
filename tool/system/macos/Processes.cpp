#include <sys/sysctl.h>

#include "system/System.h"

namespace tool {

std::string programOf(long process) {
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, static_cast<int>(process)};
    kinfo_proc found = {};
    std::size_t size = sizeof found;
    const bool there = sysctl(name, sizeof name / sizeof *name, &found, &size, nullptr, 0) == 0 && size == sizeof found;
    return there ? found.kp_proc.p_comm : "";
}

std::string bootId() {
    int name[] = {CTL_KERN, KERN_BOOTTIME};
    timeval started = {};
    std::size_t size = sizeof started;
    const bool told = sysctl(name, sizeof name / sizeof *name, &started, &size, nullptr, 0) == 0;
    return told ? std::to_string(started.tv_sec) : "";
}

}  // namespace tool

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

}  // namespace tool

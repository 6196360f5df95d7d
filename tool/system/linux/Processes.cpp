#include <fstream>

#include "system/System.h"

namespace tool {

std::string programOf(long process) {
    std::ifstream stream("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(stream, name);
    return name;
}

std::string bootId() {
    std::ifstream stream("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(stream, id);
    return id;
}

}  // namespace tool

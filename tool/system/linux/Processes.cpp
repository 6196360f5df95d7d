#include <fstream>

#include "system/System.h"

namespace tool {

std::string programOf(long process) {
    std::ifstream stream("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(stream, name);
    return name;
}

}  // namespace tool

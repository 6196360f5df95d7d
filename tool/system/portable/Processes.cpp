#include "system/System.h"

namespace tool {

std::string programOf(long /*process*/) {
    return {};
}

std::string bootId() {
    return {};
}

}  // namespace tool

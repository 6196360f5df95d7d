#include "system/System.h"

namespace tool {

std::string programOf(long /*process*/) {
    return {};
}

}  // namespace tool

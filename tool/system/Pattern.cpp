#include <fnmatch.h>

#include "system/System.h"

namespace tool {

bool fitsPattern(const std::string& pattern, const std::string& text) noexcept {
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

}  // namespace tool

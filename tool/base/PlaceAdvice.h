// What to do about an update that the place of its file forbids, as far as the files themselves tell.
#pragma once

#include <string>

namespace tool {

// Of the step that failed with this code of the library, for an error of the system (0: none) or on its own. Empty when
// the place says no more than the error does.
[[nodiscard]] std::string placeAdvice(unsigned int code, int systemError, const std::string& path);

}  // namespace tool

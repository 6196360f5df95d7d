// A value that is not to stand on the command line, where every user of the machine can read it.
#pragma once

#include <string>

namespace tool {

// The text of the file, or with "-" of standard input, less the line break at its end. Throws a Failure.
[[nodiscard]] std::string valueFrom(const std::string& file);

}  // namespace tool

// Between the files of this room alone: what each system does in its own way.
#pragma once

#include "system/System.h"

namespace tool {

// The extended attributes of the file that the library carries, an ACL among them.
[[nodiscard]] std::map<std::string, std::string> attributesOf(const std::string& path);

// What of the place only one system's own calls tell.
void lookCloser(const std::string& path, FilePlace& place);

}  // namespace tool

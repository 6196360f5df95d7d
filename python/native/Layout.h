// What a binary registry file asks for: a checksum header, lengths of the other byte order.
#pragma once

#include <string>

// Of REG_FEATURE_CHECKSUM_HEADER and REG_FEATURE_BIG_ENDIAN those that the file at the path has; none where there is no
// file that can be read, which the first operation tells. Most files are known by their first bytes.
unsigned long layoutFeatures(const std::string& path);

// The tool of the build that the running program is of.
#pragma once

#include <ThisSystem.h>

#include <filesystem>
#include <string>

// build/<preset>, in which programs lie in a folder each for tests/, prove/ and tool/.
inline const std::filesystem::path BUILD = this_system::program().parent_path().parent_path();

inline const std::string BUILT_TOOL = BUILD / "tool" / "genreg";
inline const std::string BUILT_FLEET = BUILD / "fleet" / "genreg-fleet";

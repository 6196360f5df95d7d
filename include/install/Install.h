// Where this copy of the product is installed, and which level it is.
//
// Both are compiled in (CMake: RVN_INSTALL_PATH, RVN_LEVEL_VERSION, RVN_LEVEL_BUILD, RVN_LEVEL_FIXPACK). An
// installation may carry its own level file, INSTALL_PATH/adm/level, which then wins; lines of "name=value":
//   version=9.7.0.2
//   build=s100514
//   fixpack=2
// A line that is not understood leaves that value compiled in. The file is read anew by each call, up to 4096 bytes.
//
// The environment variable RVN_INSTALL_PATH_OVERRIDE, set and not empty, names another installation path, for a copy
// that is not yet where it will live. It is ignored in a program that runs with rights which are not its user's.
//
// Any thread may call; nothing is kept between calls.
#pragma once

#include <install/Export.h>

constexpr unsigned int SQLE_LEVEL_INFO_VERSION = 0x9010000;

struct SqleLevelInfo {
    char versionString[24];  // "9.7.0.2"
    char buildLevel[64];     // "s100514"
    unsigned long fixpackNumber;
};

extern "C" {

// The installation path into buffer. 0; OSS_BUFFER_TOO_SMALL with an empty buffer; OSS_NULL_POINTER.
RVNINSTALL_EXPORT unsigned int sqloInstallPath(unsigned long size, char* buffer);

// The level of the running copy. version: SQLE_LEVEL_INFO_VERSION, else the code of EINVAL is the answer. 0;
// OSS_NULL_POINTER.
RVNINSTALL_EXPORT unsigned int sqleGetLevelInfo(unsigned int version, SqleLevelInfo* level);
}

// The directory of a registry.
#pragma once

#include "genreg/core/FunctionTrace.h"

namespace genreg {

// Of a registry or lock file whose object names none.
constexpr unsigned long DEFAULT_PERMISSIONS = 0644;

// Creates the directory of the path (0755) unless it is there. 0; the platform's code when the path has no directory;
// REG_CREATE_DIRECTORY_FAILED. The failures are the caller's: logged with its function and the probes given and next.
[[nodiscard]] unsigned int ensureDirectoryOf(FunctionTrace& trace, unsigned int probe, const char* path) noexcept;

// Makes the names in the directory of the path durable.
[[nodiscard]] unsigned int syncDirectoryOf(const char* path) noexcept;

}  // namespace genreg

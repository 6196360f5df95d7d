// What tests ask of the system that they run on: macOS.
#pragma once

#include <fcntl.h>
#include <mach-o/dyld.h>
#include <netdb.h>
#include <sys/file.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace this_system {

// Each library finds a function where it was linked to find it; what needs another in its place is skipped.
inline constexpr bool PROGRAMS_GO_FIRST = false;

inline constexpr char OPEN_DESCRIPTORS[] = "/dev/fd";

inline std::filesystem::path program() {
    std::uint32_t size = 0;
    (void)_NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    (void)_NSGetExecutablePath(path.data(), &size);
    return std::filesystem::canonical(path.c_str());
}

inline const std::string PROGRAM = program();

inline int sync(int descriptor) {
    return ::fcntl(descriptor, F_FULLFSYNC);
}

inline const servent* serviceNamed(const char* name, const char* protocol) {
    return ::getservbyname(name, protocol);
}

inline int lockOpenFile(int descriptor, struct flock* lock) {
    return ::flock(descriptor, lock->l_type == F_UNLCK ? LOCK_UN : LOCK_EX | LOCK_NB);
}

// There are no mounts of one process alone.
inline bool beginMounts() {
    return false;
}

inline bool mountFolder(const std::string& /*folder*/, const std::string& /*place*/) {
    return false;
}

inline bool mountEmpty(const char* /*place*/) {
    return false;
}

inline void unmount(const std::string& /*place*/) {}

}  // namespace this_system

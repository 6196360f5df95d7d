// What tests ask of the system that they run on: Linux.
#pragma once

#include <fcntl.h>
#include <netdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace this_system {

// A function of the program stands before a library's own of that name, for all that the program loads.
inline constexpr bool PROGRAMS_GO_FIRST = true;

inline constexpr char PROGRAM[] = "/proc/self/exe";
inline constexpr char OPEN_DESCRIPTORS[] = "/proc/self/fd";

inline std::filesystem::path program() {
    return std::filesystem::read_symlink(PROGRAM);
}

// Where the program has one of its own.
inline int sync(int descriptor) {
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

// Null where there is none; good until the next one is asked for.
inline const servent* serviceNamed(const char* name, const char* protocol) {
    static servent entry = {};
    static char buffer[8192];
    servent* found = nullptr;
    (void)::getservbyname_r(name, protocol, &entry, buffer, sizeof buffer, &found);
    return found;
}

// A lock that belongs to the open file and that classic ones meet.
inline int lockOpenFile(int descriptor, struct flock* lock) {
    return ::fcntl(descriptor, F_OFD_SETLK, lock);
}

// Folders put over others, for this process alone and for as long as it runs. Only root may, where it is granted.
inline bool beginMounts() {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

inline bool mountFolder(const std::string& folder, const std::string& place) {
    return ::mount(folder.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

inline bool mountEmpty(const char* place) {
    return ::mount("none", place, "tmpfs", 0, nullptr) == 0;
}

inline void unmount(const std::string& place) {
    ::umount2(place.c_str(), MNT_DETACH);
}

}  // namespace this_system

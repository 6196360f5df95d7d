// What an operation cannot cost less than: the system calls that it makes, in their order, and one look at the bytes.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace bare {

inline void require(bool good) {
    if (!good) {
        std::abort();  // a bare program that failed would look fast
    }
}

inline void lock(int descriptor, short type) {
    struct flock request = {};
    request.l_type = type;
    require(::fcntl(descriptor, type == F_UNLCK ? F_OFD_SETLK : F_OFD_SETLKW, &request) == 0);
}

struct Paths {
    Paths(const std::string& folder, const std::string& base)
        : directory(folder),
          registry(folder + "/" + base),
          copy(registry + ".tmp"),
          aside(registry + ".cor"),
          lockFile(folder + "/." + base + ".lock"),
          backup(folder + "/." + base + ".bkp") {}
    std::string directory, registry, copy, aside, lockFile, backup;
};

// The registry file opened and locked as a reader has it.
inline int openShared(const char* path) {
    char target[1024];
    (void)!::readlink(path, target, sizeof target - 1);
    const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
    require(descriptor >= 0);
    struct stat status;
    require(::fstat(descriptor, &status) == 0);
    lock(descriptor, F_RDLCK);
    require(::fstat(descriptor, &status) == 0 && ::fcntl(descriptor, F_GETFL) != -1);
    return descriptor;
}

inline void closeShared(int descriptor) {
    lock(descriptor, F_UNLCK);
    require(::close(descriptor) == 0);
}

// The file's bytes, read in pieces of 64 KiB.
inline const std::vector<char>& readAll(int descriptor, std::size_t size) {
    constexpr std::size_t PIECE = 64UL * 1024;
    static std::vector<char> content;
    content.resize(size);
    for (std::size_t at = 0; at < size; at += PIECE) {
        const std::size_t wanted = size - at < PIECE ? size - at : PIECE;
        require(::pread(descriptor, content.data() + at, wanted, static_cast<off_t>(at)) ==
                static_cast<ssize_t>(wanted));
    }
    return content;
}

// A look-up: five calls, and one more for each further 64 KiB. Scan looks at the bytes.
template <typename Scan>
void get(const Paths& paths, std::size_t size, Scan scan) {
    const int descriptor = ::open(paths.registry.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    require(descriptor >= 0);
    lock(descriptor, F_RDLCK);
    struct stat status;
    require(::fstat(descriptor, &status) == 0);
    scan(readAll(descriptor, size));
    require(::close(descriptor) == 0);
}

// A verified, durable change: edit turns the old bytes into the new ones.
template <typename Edit>
void change(const Paths& paths, std::size_t size, Edit edit) {
    char target[1024];
    struct stat status;
    (void)!::readlink(paths.registry.c_str(), target, sizeof target - 1);
    const int held = ::open(paths.lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    require(held >= 0 && ::fstat(held, &status) == 0);
    lock(held, F_WRLCK);
    char note[128] = "pid";
    note[3] = static_cast<char>(::getpid());
    require(::pwrite(held, note, sizeof note, 0) == sizeof note);
    int registry = openShared(paths.registry.c_str());
    (void)::unlink(paths.aside.c_str());
    (void)::rename(paths.copy.c_str(), paths.aside.c_str());
    int copy = ::open(paths.copy.c_str(), O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600);
    require(copy >= 0 && ::fcntl(copy, F_GETFL) != -1 && ::fstat(registry, &status) == 0 &&
            ::fstat(copy, &status) == 0);
    (void)::flistxattr(registry, nullptr, 0);
    (void)::fremovexattr(copy, "system.posix_acl_access");
    require(::fchmod(copy, 0644) == 0);
    std::vector<char> content = readAll(registry, size);
    edit(content);
    closeShared(registry);
    require(::write(copy, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    require(::fsync(copy) == 0 && ::close(copy) == 0);
    registry = openShared(paths.registry.c_str());
    copy = ::open(paths.copy.c_str(), O_RDONLY | O_CLOEXEC);
    require(copy >= 0 && ::fcntl(copy, F_GETFL) != -1 && ::fstat(copy, &status) == 0);
    (void)readAll(registry, size);
    (void)readAll(copy, content.size());
    closeShared(registry);
    require(::close(copy) == 0);
    (void)::unlink(paths.backup.c_str());
    require(::link(paths.registry.c_str(), paths.backup.c_str()) == 0);
    require(::rename(paths.copy.c_str(), paths.registry.c_str()) == 0);
    const int directory = ::open(paths.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(directory >= 0 && ::fsync(directory) == 0 && ::close(directory) == 0);
    require(::unlink(paths.backup.c_str()) == 0);
    lock(held, F_UNLCK);
    require(::close(held) == 0);
}

}  // namespace bare

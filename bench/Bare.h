// What an operation cannot cost less than: the system calls that its promises need, each once, and one look at the
// bytes of each line or record.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
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

inline int openFile(const std::string& path, int flags) {
    const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0644);
    require(descriptor >= 0);
    return descriptor;
}

inline void statusOf(int descriptor) {
    struct stat status;
    require(::fstat(descriptor, &status) == 0);
}

// Finds each line, for its end.
inline void lookAtLines(const std::vector<char>& content) {
    const char* at = content.data();
    const char* const end = at + content.size();
    while (at != end) {
        const void* const newline = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        require(newline != nullptr);
        at = static_cast<const char*>(newline) + 1;
    }
}

// Finds each frame, and looks for a byte that is in none.
inline void lookAtFrames(const std::vector<char>& content) {
    unsigned int length = 0;
    for (std::size_t at = 0; at != content.size(); at += sizeof length + length) {
        require(content.size() - at >= sizeof length);
        std::memcpy(&length, content.data() + at, sizeof length);
        require(length <= content.size() - at - sizeof length &&
                std::memchr(content.data() + at + sizeof length, 0xff, length) == nullptr);
    }
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
    const int descriptor = openFile(paths.registry, O_RDONLY);
    lock(descriptor, F_RDLCK);
    statusOf(descriptor);
    scan(readAll(descriptor, size));
    require(::close(descriptor) == 0);
}

// A verified, durable change: edit turns the old bytes into the new ones. A link would be followed, and what was set
// aside once goes. Both files are read again and compared before the commit, which keeps the old one under a second
// name until the new one has its own.
template <typename Edit>
void change(const Paths& paths, std::size_t size, Edit edit) {
    char note[128] = "pid";
    (void)!::readlink(paths.registry.c_str(), note, sizeof note);
    const int held = openFile(paths.lockFile, O_RDWR | O_CREAT);
    statusOf(held);
    lock(held, F_WRLCK);
    (void)!::pread(held, note, 4, 0);
    note[3] = static_cast<char>(::getpid());
    require(::pwrite(held, note, sizeof note, 0) == sizeof note);
    const int registry = openFile(paths.registry, O_RDONLY);
    lock(registry, F_RDLCK);
    statusOf(registry);
    (void)::unlink(paths.aside.c_str());
    const int copy = openFile(paths.copy, O_RDWR | O_CREAT | O_EXCL);
    statusOf(copy);
    (void)::flistxattr(registry, nullptr, 0);
    require(::fchmod(copy, 0644) == 0);
    std::vector<char> content = readAll(registry, size);
    edit(content);
    require(::write(copy, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    require(::fsync(copy) == 0);
    const std::vector<char> old = readAll(registry, size);
    require(std::memcmp(readAll(copy, size).data(), content.data(), size) == 0 && old != content);
    require(::link(paths.registry.c_str(), paths.backup.c_str()) == 0);
    require(::rename(paths.copy.c_str(), paths.registry.c_str()) == 0);
    require(::unlink(paths.backup.c_str()) == 0);
    lock(held, F_UNLCK);
    const int directory = openFile(paths.directory, O_RDONLY | O_DIRECTORY);
    require(::fsync(directory) == 0);
    for (const int descriptor : {held, directory, copy, registry}) {
        require(::close(descriptor) == 0);
    }
}

}  // namespace bare

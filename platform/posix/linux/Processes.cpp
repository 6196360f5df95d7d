// Other processes: who holds a lock on a file, and what is told of it.
//
// A lock that belongs to an open file names no process. Linux lists, for each descriptor of each process, the locks
// that its open file or its process holds on the file (/proc/PID/fdinfo); others' descriptors are root's to see.
#include <dirent.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "../../System.h"
#include "../Posix.h"

namespace posix {
namespace {

constexpr std::size_t PATH_SIZE = 128;

struct Closer {
    void operator()(DIR* directory) const noexcept { (void)::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, Closer>;

// The text of one of the system's small files, terminated; false when it cannot be read.
template <std::size_t SIZE>
bool readText(const char* path, char (&text)[SIZE]) noexcept {
    const int descriptor = platform::openHigh(path, O_RDONLY);
    std::size_t got = 0;
    const bool good = descriptor != -1 && readAt(descriptor, text, SIZE - 1, 0, &got) == 0;
    if (descriptor != -1) {
        platform::closeQuietly(descriptor);
    }
    text[got] = '\0';
    return good;
}

// Whether a descriptor's list has a lock that record locks meet: a classic one or one of an open file.
bool listsLock(const char* list) noexcept {
    for (const char* at = list; (at = std::strstr(at, "lock:")) != nullptr; ++at) {
        char kind[16] = "";
        if (std::sscanf(at, "lock: %*s %15s", kind) == 1 &&
            (std::strcmp(kind, "POSIX") == 0 || std::strcmp(kind, "OFDLCK") == 0)) {
            return true;
        }
    }
    return false;
}

enum class Seen { Yes, No, Hidden };

// Whether the process has the file open under a lock.
Seen holdsLock(long process, const struct stat& file) noexcept {
    char path[PATH_SIZE];
    (void)std::snprintf(path, sizeof path, "/proc/%ld/fd", process);
    const Directory open(::opendir(path));
    if (open == nullptr) {
        return errno == ENOENT ? Seen::No : Seen::Hidden;
    }
    while (const dirent* const entry = ::readdir(open.get())) {
        struct stat status;
        if (::fstatat(::dirfd(open.get()), entry->d_name, &status, 0) != 0 || status.st_dev != file.st_dev ||
            status.st_ino != file.st_ino) {
            continue;
        }
        char list[4096];
        (void)std::snprintf(path, sizeof path, "/proc/%ld/fdinfo/%.20s", process, entry->d_name);
        if (readText(path, list) && listsLock(list)) {
            return Seen::Yes;
        }
    }
    return Seen::No;
}

unsigned long long readStart(long process) noexcept {
    constexpr int WORDS_BEFORE = 20;  // from the end of the program's name, which may hold anything
    char path[PATH_SIZE];
    char text[1024];
    (void)std::snprintf(path, sizeof path, "/proc/%ld/stat", process);
    const char* at = readText(path, text) ? std::strrchr(text, ')') : nullptr;
    for (int word = 0; at != nullptr && word < WORDS_BEFORE; ++word) {
        at = std::strchr(at + 1, ' ');
    }
    return at == nullptr ? 0 : std::strtoull(at, nullptr, 10);
}

}  // namespace

long findLockHolder(const char* path, long suspect) noexcept {
    struct stat file;
    if (::lstat(path, &file) != 0) {
        return 0;
    }
    const Seen suspected = suspect > 0 ? holdsLock(suspect, file) : Seen::No;
    const Directory processes(suspected == Seen::Yes ? nullptr : ::opendir("/proc"));
    while (const dirent* const entry = processes != nullptr ? ::readdir(processes.get()) : nullptr) {
        const long process = std::strtol(entry->d_name, nullptr, 10);
        if (process > 0 && process != suspect && holdsLock(process, file) == Seen::Yes) {
            return process;
        }
    }
    return suspected == Seen::No ? 0 : suspect;
}

void programOf(long process, char* name, std::size_t size) noexcept {
    char path[PATH_SIZE];
    char text[64];
    (void)std::snprintf(path, sizeof path, "/proc/%ld/comm", process);
    const std::size_t length = readText(path, text) ? std::strcspn(text, "\n") : 0;
    (void)std::snprintf(name, size, "%.*s", static_cast<int>(length), text);
}

unsigned long long processStart(long process) noexcept {
    // This process's own, which every lock asks for, is read once; a forked child is another process.
    constexpr int PROCESS_BITS = 22;  // the system's bound of their numbers
    constexpr unsigned long long PROCESS = (1ULL << PROCESS_BITS) - 1;
    static constinit std::atomic<unsigned long long> own = 0;
    if (process != ::getpid()) {
        return readStart(process);
    }
    unsigned long long known = own.load(std::memory_order_relaxed);
    if ((known & PROCESS) != static_cast<unsigned long long>(process)) {
        known = readStart(process) << PROCESS_BITS | static_cast<unsigned long long>(process);
        own.store(known, std::memory_order_relaxed);
    }
    return known >> PROCESS_BITS;
}

const char* programName() noexcept {
    return program_invocation_short_name;
}

}  // namespace posix

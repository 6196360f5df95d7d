// Streams over open files, and what becomes of them in a forked child.
//
// A forked child has a copy of every stream: of what it holds back, and of its descriptor, behind which lies the same
// open file as in the parent. At its exit the child would write the former out once more, into a registry that is
// committed long since, or move the parent's place in a file that it reads. So the child's descriptors of our streams
// lead nowhere: what is written there is gone, and reading is an error, lest the child takes it for the end of the
// file. Files that are read without a stream are treated alike: a child's copy would keep their lock.
#include <pthread.h>

#include <atomic>
#include <cstdio>

#include "../System.h"
#include "Failure.h"
#include "Own.h"
#include "Posix.h"

namespace posix {
namespace {

// Device and inode tell in the child whether the number still means the file that it was entered for.
struct OpenStream {
    std::atomic<bool> taken = false;
    std::atomic<int> descriptor = -1;  // set last, cleared first
    dev_t device = 0;
    ino_t inode = 0;
};

// Streams beyond these are not guarded.
constexpr std::size_t MOST_STREAMS = 256;
constinit OpenStream openStreams[MOST_STREAMS];

constinit std::atomic<unsigned int> generation = 0;

// The forks that this process has begun. They are counted before the child is there, and a descriptor is entered before
// they are looked at again: so either the child finds the entry, or whoever made it finds the fork.
constinit std::atomic<unsigned long> forksBegun = 0;
constinit std::atomic<bool> forksWatched = false;

// The place of the new entry; MOST_STREAMS when the table is full.
std::size_t enter(int descriptor, dev_t device, ino_t inode) noexcept {
    for (std::size_t place = 0; place < MOST_STREAMS; ++place) {
        OpenStream& entry = openStreams[place];
        bool taken = false;
        if (!entry.taken.load(std::memory_order_relaxed) && entry.taken.compare_exchange_strong(taken, true)) {
            entry.device = device;
            entry.inode = inode;
            entry.descriptor.store(descriptor);
            return place;
        }
    }
    return MOST_STREAMS;
}

void leave(std::size_t place) noexcept {
    if (place == MOST_STREAMS) {
        return;
    }
    OpenStream& entry = openStreams[place];
    entry.descriptor.store(-1, std::memory_order_release);
    entry.taken.store(false, std::memory_order_release);
}

void guard(int descriptor) noexcept {
    struct stat status;
    if (::fstat(descriptor, &status) == 0) {
        (void)enter(descriptor, status.st_dev, status.st_ino);
    }
}

void unguard(int descriptor) noexcept {
    for (std::size_t place = 0; place < MOST_STREAMS; ++place) {
        if (openStreams[place].descriptor.load(std::memory_order_relaxed) == descriptor) {
            leave(place);
            return;
        }
    }
}

void beforeFork() noexcept {
    forksBegun.fetch_add(1);
}

// Nothing here but calls that are safe in a signal handler: the child may have been forked from any state. A descriptor
// that another handler has closed is taken again, lest the stream writes to whatever gets its number next.
void afterForkInChild() noexcept {
    const platform::ErrnoKeeper keeper;
    generation.fetch_add(1, std::memory_order_relaxed);
    int nowhere = -1;
    for (OpenStream& entry : openStreams) {
        const int descriptor = entry.descriptor.load(std::memory_order_acquire);
        if (descriptor == -1) {
            continue;
        }
        struct stat now;
        const bool open = ::fstat(descriptor, &now) == 0;
        if (open && (now.st_dev != entry.device || now.st_ino != entry.inode)) {
            continue;
        }
        nowhere = nowhere == -1 ? platform::openHigh("/dev/null", O_WRONLY) : nowhere;
        if (nowhere == descriptor) {
            nowhere = -1;  // it got the number itself, and stays
        } else if (nowhere == -1 || platform::replaceDescriptor(nowhere, descriptor) == -1) {
            (void)platform::closeOnce(descriptor);
        }
    }
    if (nowhere != -1) {
        (void)platform::closeOnce(nowhere);
    }
}

[[gnu::constructor]] void watchForks() {
    forksWatched = ::pthread_atfork(beforeFork, nullptr, afterForkInChild) == 0;
}

}  // namespace

std::FILE* openStream(int descriptor, const char* mode) noexcept {
    std::FILE* const stream = ::fdopen(descriptor, mode);
    if (stream != nullptr) {
        guard(descriptor);
    }
    return stream;
}

int descriptorOf(std::FILE* stream) noexcept {
    return ::fileno(stream);
}

unsigned int forkGeneration() noexcept {
    return generation.load(std::memory_order_relaxed);
}

// Not blocking, so that a pipe put in the file's place cannot hold up the caller; files know no difference.
bool openLocked(const char* path, ReadFile* file, FileStatus* status) noexcept {
    const unsigned long forks = forksBegun;
    const int descriptor = forksWatched ? platform::openHigh(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK) : -1;
    if (descriptor == -1) {
        return false;
    }
    FileStatus found = {};
    if (platform::lockWholeFile(descriptor, platform::FileLock::Shared, true) == 0 &&
        statusOf(descriptor, &found) == 0 && found.regular) {
        *file = guardFile(descriptor, found, forks);
        if (status != nullptr) {
            *status = found;
        }
        if (file->place != MOST_STREAMS && forksBegun == forks) {
            return true;
        }
        leave(file->place);
        *file = {};
    }
    (void)platform::lockWholeFile(descriptor, platform::FileLock::None, false);
    platform::closeQuietly(descriptor);
    return false;
}

ReadFile guardFile(int descriptor, const FileStatus& status, unsigned long forks) noexcept {
    const std::size_t place = enter(descriptor, static_cast<dev_t>(status.device), static_cast<ino_t>(status.inode));
    return {descriptor, status.size, forkGeneration(), forks, place};
}

// Once the entry is gone a forked child keeps its copy, which must hold no lock: so the lock is given back first.
unsigned int closeUnlocked(const ReadFile& file) noexcept {
    (void)platform::lockWholeFile(file.descriptor, platform::FileLock::None, false);
    leave(file.place);
    return resultOf(platform::closeOnce(file.descriptor));
}

// Where nobody else can fork, closing gives back the lock, and the entry stays until then, for a handler of signals
// may.
unsigned int closeLocked(const ReadFile& file) noexcept {
    if (!platform::isOnlyThread() || forksBegun != file.forks) {
        return closeUnlocked(file);
    }
    const unsigned int rc = resultOf(platform::closeOnce(file.descriptor));
    leave(file.place);
    return rc;
}

bool flushStream(std::FILE* stream) noexcept {
    return drain(stream) && std::fflush(stream) == 0;
}

bool closeStream(std::FILE* stream) noexcept {
    unguard(::fileno(stream));
    return closeDrained(stream) || errno == EINTR;
}

}  // namespace posix

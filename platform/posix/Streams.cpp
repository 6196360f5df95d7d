// Streams over open files, and what becomes of them in a forked child.
//
// A forked child has a copy of every stream: of what it holds back, and of its descriptor, behind which lies the same
// open file as in the parent. At its exit the child would write the former out once more, into a registry that is
// committed long since, or move the parent's place in a file that it reads. So the child's descriptors of our streams
// lead nowhere: what is written there is gone, and reading is an error, lest the child takes it for the end of the
// file.
//
// The C library's own flush gives up a write that a signal interrupts, and drops what the stream held back. So what a
// stream holds back is written out here, where the library lets us at it (glibc), and handed to stdio elsewhere.
#include <cstdio>
#if defined(__GLIBC__)
#include <stdio_ext.h>
#endif

#include <pthread.h>

#include <atomic>

#include "../System.h"
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

void guard(int descriptor) noexcept {
    struct stat status;
    if (::fstat(descriptor, &status) != 0) {
        return;
    }
    for (OpenStream& entry : openStreams) {
        bool taken = false;
        if (!entry.taken.load(std::memory_order_relaxed) && entry.taken.compare_exchange_strong(taken, true)) {
            entry.device = status.st_dev;
            entry.inode = status.st_ino;
            entry.descriptor.store(descriptor, std::memory_order_release);
            return;
        }
    }
}

void unguard(int descriptor) noexcept {
    for (OpenStream& entry : openStreams) {
        if (entry.descriptor.load(std::memory_order_relaxed) == descriptor) {
            entry.descriptor.store(-1, std::memory_order_release);
            entry.taken.store(false, std::memory_order_release);
            return;
        }
    }
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
    (void)::pthread_atfork(nullptr, nullptr, afterForkInChild);
}

#if defined(__GLIBC__)

bool writeAll(int descriptor, const char* bytes, std::size_t size) noexcept {
    while (size > 0) {
        const ssize_t part = platform::retried([&] { return ::write(descriptor, bytes, size); });
        if (part <= 0) {
            errno = part == 0 ? ENOSPC : errno;
            return false;
        }
        bytes += part;
        size -= static_cast<std::size_t>(part);
    }
    return true;
}

// As a failed flush of its own would.
bool noteError(std::FILE* stream, bool written) noexcept {
    stream->_flags |= written ? 0 : _IO_ERR_SEEN;
    return written;
}

// How far the stream stands from its descriptor: a seek to what the stream has in memory does not move the latter.
off_t distanceTo(std::FILE* stream) noexcept {
    return stream->_IO_write_base - stream->_IO_read_end;
}

// Writes out what the stream holds back, where the stream stands. Gone from it either way, as after a flush of its own.
bool drain(std::FILE* stream) noexcept {
    const std::size_t pending = ::__fpending(stream);
    if (pending == 0) {
        return true;
    }
    const int descriptor = ::fileno(stream);
    const off_t distance = distanceTo(stream);
    const bool written = (distance == 0 || ::lseek(descriptor, distance, SEEK_CUR) != -1) &&
                         writeAll(descriptor, stream->_IO_write_base, pending);
    const platform::ErrnoKeeper keeper;
    ::__fpurge(stream);
    // Nothing is in memory now, and stdio asks the system where the descriptor is.
    stream->_IO_read_base = stream->_IO_read_ptr = stream->_IO_read_end = stream->_IO_write_base;
    stream->_offset = -1;
    return noteError(stream, written);
}

// Reads on to a place that is near ahead: a call for each buffer of bytes, where a seek is one for each record. False
// where the place lies elsewhere, or the stream does not know where it stands, or the reading failed.
bool readOnTo(std::FILE* stream, off_t place) noexcept {
    char passed[BUFSIZ];
    const off_t distance = stream->_offset < 0 ? -1 : place - ::ftello(stream);
    if (distance < 0 || distance > static_cast<off_t>(sizeof passed)) {
        return false;
    }
    const auto wanted = static_cast<std::size_t>(distance);
    const int before = stream->_flags & _IO_ERR_SEEN;  // of the stream's owner, to whom it says something
    const bool there = ::fread_unlocked(passed, 1, wanted, stream) == wanted;
    stream->_flags = (stream->_flags & ~(_IO_EOF_SEEN | _IO_ERR_SEEN)) | before;
    return there;
}

#else

bool drain(std::FILE*) noexcept {
    return true;
}

#endif

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

bool writeUnlocked(std::FILE* stream, const void* bytes, std::size_t size) noexcept {
#if defined(__GLIBC__)
    const std::size_t capacity = ::__fbufsize(stream);  // 0 until the stream has a buffer
    if (size >= capacity - ::__fpending(stream) && !drain(stream)) {
        return false;
    }
    if (capacity > 0 && size >= capacity && distanceTo(stream) == 0) {
        stream->_offset = -1;
        return noteError(stream, writeAll(::fileno(stream), static_cast<const char*>(bytes), size));
    }
    return ::fwrite_unlocked(bytes, 1, size, stream) == size;
#else
    return std::fwrite(bytes, 1, size, stream) == size;
#endif
}

bool flushStream(std::FILE* stream) noexcept {
    return drain(stream) && std::fflush(stream) == 0;
}

bool placeStream(std::FILE* stream, unsigned long offset) noexcept {
    const auto place = static_cast<off_t>(offset);
#if defined(__GLIBC__)
    if (readOnTo(stream, place)) {
        return true;
    }
    if (stream->_IO_read_ptr == stream->_IO_read_end && ::__fpending(stream) == 0) {
        if (::lseek(::fileno(stream), place, SEEK_SET) == -1) {
            return false;
        }
        stream->_offset = place;
        stream->_flags &= ~_IO_EOF_SEEN;
        return true;
    }
#endif
    return ::fseeko(stream, place, SEEK_SET) == 0;
}

bool closeStream(std::FILE* stream) noexcept {
    unguard(::fileno(stream));
    return std::fclose(stream) == 0 || errno == EINTR;
}

}  // namespace posix

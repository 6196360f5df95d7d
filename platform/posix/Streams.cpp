// Streams over open files.
//
// The C library's own flush gives up a write that a signal interrupts, and drops what the stream held back. So what a
// stream holds back is written out here, where the library lets us at it (glibc), and handed to stdio elsewhere.
#include <cstdio>
#if defined(__GLIBC__)
#include <stdio_ext.h>
#endif

#include "../System.h"
#include "Posix.h"

namespace posix {
namespace {

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

// Writes out what the stream holds back. Gone from the stream either way, as after a flush of its own.
bool drain(std::FILE* stream) noexcept {
    const std::size_t pending = ::__fpending(stream);
    if (pending == 0) {
        return true;
    }
    const bool written = writeAll(::fileno(stream), stream->_IO_write_base, pending);
    const platform::ErrnoKeeper keeper;
    ::__fpurge(stream);
    return noteError(stream, written);
}

#else

bool drain(std::FILE*) noexcept {
    return true;
}

#endif

}  // namespace

std::FILE* openStream(int descriptor, const char* mode) noexcept {
    return ::fdopen(descriptor, mode);
}

int descriptorOf(std::FILE* stream) noexcept {
    return ::fileno(stream);
}

bool writeUnlocked(std::FILE* stream, const void* bytes, std::size_t size) noexcept {
#if defined(__GLIBC__)
    const std::size_t capacity = ::__fbufsize(stream);  // 0 until the stream has a buffer
    if (size >= capacity - ::__fpending(stream) && !drain(stream)) {
        return false;
    }
    if (capacity > 0 && size >= capacity) {
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

bool closeStream(std::FILE* stream) noexcept {
    return std::fclose(stream) == 0 || errno == EINTR;
}

}  // namespace posix

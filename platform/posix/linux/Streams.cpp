// What stdio holds back, written and read by way of the C library's own fields (glibc's).
//
// Its own flush gives up a write that a signal interrupts, and drops what the stream held back. So what a stream holds
// back is written out here.
#include <stdio_ext.h>

#include <cstdio>

#include "../../System.h"
#include "../Own.h"
#include "../Posix.h"

namespace posix {
namespace {

// As a failed flush of its own would.
bool noteError(std::FILE* stream, bool written) noexcept {
    stream->_flags |= written ? 0 : _IO_ERR_SEEN;
    return written;
}

// How far the stream stands from its descriptor: a seek to what the stream has in memory does not move the latter.
off_t distanceTo(std::FILE* stream) noexcept {
    return stream->_IO_write_base - stream->_IO_read_end;
}

// Whether it is reading, knows where its descriptor stands, and has nothing but what it read from there.
bool readsOn(std::FILE* stream) noexcept {
    return stream->_offset >= 0 && stream->_IO_write_ptr == stream->_IO_write_base &&
           stream->_IO_save_base == nullptr && stream->_mode <= 0;
}

// Reads on to a place that is near ahead: a call for each buffer of bytes, where a seek is one for each record. False
// where the place lies elsewhere, or the stream does not know where it stands, or the reading failed.
bool readOnTo(std::FILE* stream, off_t place) noexcept {
    char passed[BUFSIZ];
    const off_t distance = stream->_offset < 0 ? -1 : place - placeOf(stream);
    if (distance < 0 || distance > static_cast<off_t>(sizeof passed)) {
        return false;
    }
    if (readsOn(stream) && distance <= stream->_IO_read_end - stream->_IO_read_ptr) {
        stream->_IO_read_ptr += distance;
        stream->_flags &= ~_IO_EOF_SEEN;
        return true;
    }
    const auto wanted = static_cast<std::size_t>(distance);
    const int before = stream->_flags & _IO_ERR_SEEN;  // of the stream's owner, to whom it says something
    const bool there = ::fread_unlocked(passed, 1, wanted, stream) == wanted;
    stream->_flags = (stream->_flags & ~(_IO_EOF_SEEN | _IO_ERR_SEEN)) | before;
    return there;
}

}  // namespace

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

bool closeDrained(std::FILE* stream) noexcept {
    return std::fclose(stream) == 0;
}

bool writeUnlocked(std::FILE* stream, const void* bytes, std::size_t size) noexcept {
    const std::size_t capacity = ::__fbufsize(stream);  // 0 until the stream has a buffer
    if (size >= capacity - ::__fpending(stream) && !drain(stream)) {
        return false;
    }
    if (capacity > 0 && size >= capacity && distanceTo(stream) == 0) {
        stream->_offset = -1;
        return noteError(stream, writeAll(::fileno(stream), bytes, size));
    }
    return ::fwrite_unlocked(bytes, 1, size, stream) == size;
}

long placeOf(std::FILE* stream) noexcept {
    return readsOn(stream) ? stream->_offset - (stream->_IO_read_end - stream->_IO_read_ptr) : ::ftello(stream);
}

bool placeStream(std::FILE* stream, unsigned long offset) noexcept {
    const auto place = static_cast<off_t>(offset);
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
    return ::fseeko(stream, place, SEEK_SET) == 0;
}

}  // namespace posix

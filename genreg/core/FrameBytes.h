// Frames where their bytes lie in memory. Whoever reads or writes a frame asks here what its length field says.
#pragma once

#include <genreg/RegistryBytes.h>

#include <bit>
#include <cstring>

namespace genreg {

constexpr unsigned long FRAME_LENGTH_SIZE = REG_FRAME_LENGTH_SIZE;

// A frame as it stands in the file.
struct Frame {
    const char* payload;
    unsigned long length;
};

// A length, or back from it, between the machine's byte order and the file's.
[[nodiscard]] constexpr unsigned int inOrder(bool bigEndian, unsigned int length) noexcept {
    return bigEndian && std::endian::native == std::endian::little ? __builtin_bswap32(length) : length;
}

[[nodiscard]] inline unsigned int decodeLength(bool bigEndian, const char* bytes) noexcept {
    unsigned int length = 0;
    std::memcpy(&length, bytes, sizeof length);
    return inOrder(bigEndian, length);
}

inline void encodeLength(bool bigEndian, unsigned int length, char* bytes) noexcept {
    const unsigned int ordered = inOrder(bigEndian, length);
    std::memcpy(bytes, &ordered, sizeof ordered);
}

// Whether the frame that begins at the offset ends within the bytes. Its length is what the field says even where it
// does not, and 0 where the bytes end inside the field.
[[nodiscard]] inline bool frameAt(bool bigEndian, const char* bytes, unsigned long size, unsigned long offset,
                                  Frame* frame) noexcept {
    *frame = {nullptr, 0};
    if (size < offset || size - offset < FRAME_LENGTH_SIZE) {
        return false;
    }
    frame->payload = bytes + offset + FRAME_LENGTH_SIZE;
    frame->length = decodeLength(bigEndian, bytes + offset);
    return frame->length <= size - offset - FRAME_LENGTH_SIZE;
}

// Whether frames lead from the offset to the end of the bytes.
[[nodiscard]] inline bool parsesAsFrames(bool bigEndian, const char* bytes, unsigned long size,
                                         unsigned long offset) noexcept {
    for (Frame frame = {}; frameAt(bigEndian, bytes, size, offset, &frame);) {
        offset += FRAME_LENGTH_SIZE + frame.length;
    }
    return offset == size;
}

}  // namespace genreg

// The checksum header of a binary registry: 32 bytes in front of the first frame that hold, as decimal text with its
// NUL, sqlzChecksumXOR of all that follows. The bytes behind the NUL are zero when written and mean nothing when read.
//
// Where a function has a *platformCode it is always set: what the system said where reading or writing failed, else 0.
#pragma once

#include <genreg/RegistryBytes.h>

namespace genreg {

constexpr unsigned long CHECKSUM_HEADER_SIZE = REG_CHECKSUM_HEADER_SIZE;

// How a file and a checksum header go together.
enum class HeaderFit {
    None,    // the file does not begin with a header
    Fits,    // it does, and it fits the rest
    Misfits  // it begins with what looks like one that does not fit
};

// Looks at the bytes of a file, and only at those: frames may look like a header that does not fit.
[[nodiscard]] HeaderFit judgeHeader(const char* content, unsigned long size) noexcept;
// What the header of a file should state; it has one, so that there are as many bytes.
[[nodiscard]] unsigned int bodyChecksum(const char* content, unsigned long size) noexcept;

// Looks at a file whose header is not known to be there. A file that parses as frames from its first byte on has none,
// whatever it looks like. 0; REG_CHECKSUM_READ_FAILED; REG_NO_CHECKSUM_BUFFER.
[[nodiscard]] unsigned int judgeChecksumHeader(int descriptor, unsigned long size, bool bigEndian, HeaderFit* fit,
                                               unsigned int* platformCode) noexcept;

// Looks at a file that must have one. 0; REG_READ_FAILED (shorter than a header); REG_CHECKSUM_READ_FAILED;
// REG_CHECKSUM_DIFFERS; REG_NO_CHECKSUM_BUFFER.
[[nodiscard]] unsigned int verifyChecksumHeader(int descriptor, unsigned long size,
                                                unsigned int* platformCode) noexcept;

// Stamps a file: with `inserted` the whole file is its body and moves behind the new header, else the first 32 bytes
// are the header's already. 0; REG_NO_CHECKSUM_BUFFER; REG_CHECKSUM_READ_FAILED; REG_COPY_WRITE_FAILED: then *bodySize
// is set, as on success. *checksum is set on success.
[[nodiscard]] unsigned int stampChecksumHeader(int descriptor, unsigned long size, bool inserted,
                                               unsigned long* bodySize, unsigned int* checksum,
                                               unsigned int* platformCode) noexcept;

}  // namespace genreg

// XOR checksums over a buffer: of the 32-bit words in the machine's byte order, then of the one to three bytes left,
// each sign-extended to 32 bits. Pure functions; any thread, any alignment.
#pragma once

#include <genreg/Export.h>

extern "C" {

GENREG_EXPORT unsigned int sqlzChecksumXOR(const void* buffer, unsigned long length);

// The variant that rotates each word left before it is taken in: by 5, 13, 21, 29, 6, 14, ... bits.
GENREG_EXPORT unsigned int sqlzChecksumXORWrap(const void* buffer, long length);
}

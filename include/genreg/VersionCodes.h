// Versions in their three forms: the 64-bit code of four 16-bit parts (most significant first; 0 is no version), the
// text "9.7.0.2", and the product's eight-digit level number 9070002. Pure functions; any thread.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>

extern "C" {

// The code of a level number, two decimal digits a part; digits above the eighth are ignored.
GENREG_EXPORT unsigned long ossVersionCodeRVNToService(unsigned int level);
// The level number of a code; exact for parts of 0 to 99 only.
GENREG_EXPORT int ossVersionCodeServiceToRVN(unsigned long code);
// REG_VERSION_NULL, REG_VERSION_FORMAT_FAILED, REG_VERSION_BUFFER_TOO_SMALL (24 bytes always do).
GENREG_EXPORT unsigned int ossVersionCodeToString(unsigned long code, char* buffer, unsigned long size);
// One to four decimal parts, the missing ones 0; at most 23 characters are looked at. REG_VERSION_NULL,
// REG_VERSION_INVALID.
GENREG_EXPORT unsigned int ossVersionStringToCode(const char* text, unsigned long* code);
}

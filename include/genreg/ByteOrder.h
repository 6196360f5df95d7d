// Big-endian 32-bit numbers. 0, or REG_NULL_POINTER with nothing written.
#pragma once

#include <genreg/Export.h>

extern "C" {

GENREG_EXPORT unsigned int toBigEndianUint32(signed char* bytes, unsigned int value);
GENREG_EXPORT unsigned int fromBigEndianUint32(signed char* bytes, unsigned int* value);
}

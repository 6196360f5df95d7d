#include <genreg/ByteOrder.h>
#include <genreg/Codes.h>

#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::FunctionTrace;

extern "C" {

unsigned int toBigEndianUint32(signed char* bytes, unsigned int value) {
    FunctionTrace trace{Function::ToBigEndianUint32};
    if (bytes == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<signed char>(static_cast<unsigned char>(value >> (24 - 8 * i)));
    }
    return 0;
}

unsigned int fromBigEndianUint32(signed char* bytes, unsigned int* value) {
    FunctionTrace trace{Function::FromBigEndianUint32};
    if (bytes == nullptr || value == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    unsigned int result = 0;
    for (int i = 0; i < 4; ++i) {
        result = result << 8U | static_cast<unsigned char>(bytes[i]);
    }
    *value = result;
    return 0;
}
}

#include <genreg/ByteOrder.h>
#include <genreg/Codes.h>

#include "genreg/core/FrameBytes.h"
#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::FunctionTrace;

extern "C" {

unsigned int toBigEndianUint32(signed char* bytes, unsigned int value) {
    FunctionTrace trace{Function::ToBigEndianUint32};
    if (bytes == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    genreg::encodeLength(true, value, reinterpret_cast<char*>(bytes));
    return 0;
}

unsigned int fromBigEndianUint32(signed char* bytes, unsigned int* value) {
    FunctionTrace trace{Function::FromBigEndianUint32};
    if (bytes == nullptr || value == nullptr) {
        return trace.fail(10, REG_NULL_POINTER);
    }
    *value = genreg::decodeLength(true, reinterpret_cast<const char*>(bytes));
    return 0;
}
}

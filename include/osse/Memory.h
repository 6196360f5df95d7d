// Memory of the platform. The file and line say who asks; a platform may tag its blocks with them, this one does not
// keep them. Any thread may give back what another one took.
#pragma once

#include <osse/Export.h>

extern "C" {

// size bytes, zero-filled, aligned for any type; null when there is no memory. Size 0 yields a block of its own too.
OSSE_EXPORT void* _ossMemAlloc(unsigned long size, const char* file, unsigned long line);

// Gives a block back; null is accepted. Result 0, or a code.
OSSE_EXPORT unsigned int _ossMemFree(void* block, const char* file, unsigned long line);
}

inline void* ossMemAlloc(unsigned long size) {
    return _ossMemAlloc(size, "-", 0);
}
inline unsigned int ossMemFree(void* block) {
    return _ossMemFree(block, "-", 0);
}

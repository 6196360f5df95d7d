#include <osse/Memory.h>

#include <cstdlib>

void* _ossMemAlloc(unsigned long size, const char*, unsigned long) {
    return std::calloc(1, size == 0 ? 1 : size);
}

unsigned int _ossMemFree(void* block, const char*, unsigned long) {
    std::free(block);
    return 0;
}

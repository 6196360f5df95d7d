// What stdio holds back is stdio's own affair.
#include <sys/types.h>

#include <cstdio>

#include "../Own.h"
#include "../Posix.h"

namespace posix {

bool drain(std::FILE* /*stream*/) noexcept {
    return true;
}

bool writeUnlocked(std::FILE* stream, const void* bytes, std::size_t size) noexcept {
    return std::fwrite(bytes, 1, size, stream) == size;
}

bool placeStream(std::FILE* stream, unsigned long offset) noexcept {
    return ::fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

}  // namespace posix

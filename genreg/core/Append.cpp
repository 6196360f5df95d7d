#include "genreg/core/Append.h"

#include <genreg/Constants.h>

#include <cstring>

#include "platform/posix/Posix.h"

namespace genreg {

bool appendWhole(std::FILE* stream, const void* bytes, std::size_t size) noexcept {
    return posix::flushStream(stream) && posix::writeOnce(posix::descriptorOf(stream), bytes, size) == 0;
}

bool appendLine(std::FILE* stream, const char* line, std::size_t length, bool continued) noexcept {
    const int descriptor = posix::descriptorOf(stream);
    posix::FileStatus status = {};
    if (posix::statusOf(descriptor, &status) != 0) {
        return false;
    }
    char ended[REG_LINE_SIZE + 3] = {};
    std::size_t size = 0;
    char tail[2] = {};
    const std::size_t wanted = status.size < sizeof tail ? status.size : sizeof tail;
    std::size_t got = 0;
    if (posix::readAt(descriptor, tail, wanted, status.size - wanted, &got) != 0 || got != wanted) {
        return false;
    }
    const bool open = got > 0 && tail[got - 1] != '\n';
    const bool goesOn = continued && got == sizeof tail && tail[0] == '\\' && tail[1] == '\n';
    if (open || goesOn) {
        ended[size++] = '\n';
    }
    if (open && continued && tail[got - 1] == '\\') {
        ended[size++] = '\n';  // the first one made it go on
    }
    std::memcpy(ended + size, line, length);
    return appendWhole(stream, ended, size + length);
}

}  // namespace genreg

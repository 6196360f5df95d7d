#include "genreg/core/Output.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/posix/Posix.h"

namespace genreg {

void Output::open(int descriptor, std::size_t room) noexcept {
    close();
    room_ = static_cast<char*>(std::malloc(room));
    capacity_ = room_ != nullptr ? room : 0;
    descriptor_ = descriptor;
    generation_ = posix::forkGeneration();
}

bool Output::send(const void* bytes, std::size_t size) noexcept {
    if (error_ == 0) {
        const bool mine = generation_ == posix::forkGeneration();
        error_ = !mine ? EBADF : posix::writeAll(descriptor_, bytes, size) ? 0 : errno;
    }
    errno = error_;
    return error_ == 0;
}

bool Output::flush() noexcept {
    const std::size_t size = gathered_;
    gathered_ = 0;
    return size == 0 || send(room_, size);
}

bool Output::write(const void* bytes, std::size_t size) noexcept {
    if (size >= capacity_ - gathered_) {
        if (!flush()) {
            return false;
        }
        if (size >= capacity_) {
            return send(bytes, size);
        }
    }
    std::memcpy(room_ + gathered_, bytes, size);
    gathered_ += size;
    return true;
}

char* Output::closeAndKeepRoom(std::size_t* size) noexcept {
    *size = capacity_;
    char* const room = std::exchange(room_, nullptr);
    close();
    return room;
}

void Output::close() noexcept {
    std::free(room_);
    room_ = nullptr;
    capacity_ = gathered_ = 0;
    descriptor_ = -1;
    error_ = 0;
}

}  // namespace genreg

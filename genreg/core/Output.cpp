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

void Output::openInMemory() noexcept {
    close();
    inMemory_ = true;
}

bool Output::send(const void* bytes, std::size_t size) noexcept {
    if (error_ == 0) {
        const bool mine = generation_ == posix::forkGeneration();
        error_ = !mine ? EBADF : posix::writeAll(descriptor_, bytes, size) ? 0 : errno;
    }
    errno = error_;
    return error_ == 0;
}

// Room for so many bytes more. False with errno.
bool Output::grow(std::size_t size) noexcept {
    constexpr std::size_t LEAST = 256;
    const std::size_t wanted = LEAST + 2 * (gathered_ + size);
    auto* const room = error_ == 0 ? static_cast<char*>(std::realloc(room_, wanted)) : nullptr;
    if (room == nullptr) {
        errno = error_ = ENOMEM;
        return false;
    }
    room_ = room;
    capacity_ = wanted;
    return true;
}

bool Output::flush() noexcept {
    if (inMemory_) {
        errno = error_;
        return error_ == 0;
    }
    const std::size_t size = gathered_;
    gathered_ = 0;
    return size == 0 || send(room_, size);
}

bool Output::write(const void* bytes, std::size_t size) noexcept {
    if (size >= capacity_ - gathered_) {
        if (inMemory_ ? !grow(size) : !flush()) {
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
    inMemory_ = false;
}

}  // namespace genreg

#include "genreg/core/Input.h"

#include <osse/Errors.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/posix/Posix.h"

namespace genreg {

namespace {
constexpr std::size_t PIECE = 64UL * 1024;
}

Input::~Input() noexcept {
    if (owned_) {
        std::free(buffer_);
    }
}

void Input::seek(unsigned long offset) noexcept {
    offset_ = offset;
    begin_ = end_ = 0;
    error_ = 0;
}

void Input::restart(int descriptor, unsigned long offset, unsigned long size) noexcept {
    descriptor_ = descriptor;
    size_ = size;
    seek(offset);
}

void Input::restart(const char* bytes, unsigned long size) noexcept {
    restart(-1, 0, size);
    adopt(nullptr, 0);
    buffer_ = const_cast<char*>(bytes);
    capacity_ = end_ = size;
    owned_ = false;
}

void Input::adopt(char* room, std::size_t size) noexcept {
    if (owned_) {
        std::free(buffer_);
    }
    buffer_ = room;
    owned_ = true;
    capacity_ = size;
    begin_ = end_ = 0;
}

void Input::consume(std::size_t count) noexcept {
    begin_ += count;
    offset_ += count;
}

// Room for at least one byte behind end_: what is still wanted moves to the front, and only a line or frame that fills
// the whole buffer makes it grow.
bool Input::makeRoom() noexcept {
    if (end_ < capacity_) {
        return true;
    }
    if (begin_ > 0) {
        std::memmove(buffer_, buffer_ + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        return true;
    }
    const std::size_t first = std::clamp<std::size_t>(size_ - offset_, 1, PIECE);
    const std::size_t grown = capacity_ == 0 ? first : 2 * capacity_;
    auto* buffer = static_cast<char*>(std::realloc(buffer_, grown));
    if (buffer == nullptr) {
        error_ = OSS_NO_MEMORY;
        return false;
    }
    buffer_ = buffer;
    capacity_ = grown;
    return true;
}

bool Input::readMore() noexcept {
    const unsigned long next = offset_ + (end_ - begin_);
    if (next >= size_ || error_ != 0) {
        return false;
    }
    if (begin_ == end_) {
        begin_ = end_ = 0;
    }
    if (!makeRoom()) {
        return false;
    }
    const std::size_t wanted = std::min(capacity_ - end_, static_cast<std::size_t>(size_ - next));
    std::size_t got = 0;
    error_ = posix::readAt(descriptor_, buffer_ + end_, wanted, next, &got);
    if (error_ != 0) {
        return false;
    }
    end_ += got;
    if (got < wanted) {
        size_ = next + got;  // somebody who knows of no lock has cut the file short
    }
    return got > 0;
}

std::size_t Input::read(std::size_t wanted) noexcept {
    while (end_ - begin_ < wanted && readMore()) {
    }
    return std::min(wanted, end_ - begin_);
}

bool Input::nextLine(bool joined, const char** line, std::size_t* length) noexcept {
    std::size_t searched = 0;
    for (;;) {
        const std::size_t available = end_ - begin_;
        const void* newline = nullptr;
        if (searched < available) {  // a null buffer is never searched
            newline = std::memchr(data() + searched, '\n', available - searched);
        }
        if (newline != nullptr) {
            const auto end = static_cast<std::size_t>(static_cast<const char*>(newline) - data());
            searched = end + 1;
            if (joined && end > 0 && data()[end - 1] == '\\') {
                continue;
            }
            break;
        }
        searched = available;
        if (!readMore()) {
            break;
        }
    }
    if (searched == 0 || error_ != 0) {
        return false;
    }
    *line = data();
    *length = searched;
    consume(searched);
    return true;
}

}  // namespace genreg

// A file's number is kept by keeping the file open.
#pragma once

namespace platform {

inline int openToPin(const char* path) noexcept {
    return openHigh(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
}

}  // namespace platform

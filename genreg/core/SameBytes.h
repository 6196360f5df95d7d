// How far two pieces of memory are the same.
#pragma once

#include <cstddef>
#include <cstring>

namespace genreg {

[[nodiscard]] inline std::size_t sameInFront(const char* a, const char* b, std::size_t size) noexcept {
    constexpr std::size_t STEP = 1024;
    std::size_t at = 0;
    while (size - at >= STEP && std::memcmp(a + at, b + at, STEP) == 0) {
        at += STEP;
    }
    while (at < size && a[at] == b[at]) {
        ++at;
    }
    return at;
}

}  // namespace genreg

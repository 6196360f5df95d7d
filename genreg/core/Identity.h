// What records are known by in an index that is made without parsing them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace genreg {

// What a record is to such an index.
enum class Place {
    Known,     // it matches no key of another identity
    Doubtful,  // it may match any key, and what comes of it is logged
    End,       // there is none
};

// Mixes bytes into an identity, which begins as any number.
[[nodiscard]] inline unsigned int mixIdentity(unsigned int identity, const char* bytes, std::size_t length) noexcept {
    constexpr std::uint64_t FACTOR = 0x9e3779b97f4a7c15;
    std::uint64_t mixed = (identity + FACTOR) ^ length;
    while (length != 0) {
        std::uint64_t word = 0;
        const std::size_t taken = length < sizeof word ? length : sizeof word;
        std::memcpy(&word, bytes, taken);
        mixed = (mixed ^ word) * FACTOR;
        mixed ^= mixed >> 32U;
        bytes += taken;
        length -= taken;
    }
    return static_cast<unsigned int>(mixed);
}

}  // namespace genreg

#include <genreg/Checksum.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr unsigned long WORD = sizeof(std::uint32_t);

std::uint32_t wordAt(const unsigned char* bytes) noexcept {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, WORD);
    return word;
}

// By 1 to 31 places. The language's own rotation takes a signed count in some of its libraries and an unsigned one in
// others.
std::uint32_t rotated(std::uint32_t word, unsigned int places) noexcept {
    return word << places | word >> (32 - places);
}

// Kept: the bytes behind the last whole word are sign-extended; the stamps of existing files depend on it.
std::uint32_t trailing(const unsigned char* bytes, unsigned long count) noexcept {
    std::uint32_t result = 0;
    for (unsigned long i = 0; i < count; ++i) {
        result ^= static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(bytes[i])));
    }
    return result;
}

}  // namespace

extern "C" {

unsigned int sqlzChecksumXOR(const void* buffer, unsigned long length) {
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    const unsigned long whole = length - length % WORD;
    std::uint32_t result = 0;
    for (unsigned long i = 0; i < whole; i += WORD) {
        result ^= wordAt(bytes + i);
    }
    return result ^ trailing(bytes + whole, length - whole);
}

unsigned int sqlzChecksumXORWrap(const void* buffer, long length) {
    if (length <= 0) {
        return 0;
    }
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    const auto size = static_cast<unsigned long>(length);
    const unsigned long whole = size - size % WORD;
    std::uint32_t result = 0;
    unsigned int rotation = 5;
    for (unsigned long i = 0; i < whole; i += WORD) {
        result ^= rotated(wordAt(bytes + i), rotation);
        rotation = (rotation + 7) % 31 + 1;
    }
    return result ^ trailing(bytes + whole, size - whole);
}
}

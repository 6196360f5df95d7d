// Sixty-four bytes of a file at a time, each question about them a mask with a bit a byte, the first byte's lowest; and
// what stands behind their newlines.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace genreg {

constexpr std::size_t BLOCK = 64;

// How a line may begin that has to be looked at: with a blank, or with these two bytes, so far behind its first one.
struct LineStart {
    std::size_t offset = 0;
    char first = '\0';
    char second = '\0';
};

// For every machine: eight bytes at a time.
class PlainBlock {
public:
    explicit PlainBlock(const char* bytes) noexcept : bytes_(bytes) {}

    // Which bytes are one of these.
    template <char... WANTED>
    [[nodiscard]] std::uint64_t which() const noexcept {
        return (equal(bytes_, WANTED) | ...);
    }
    // Whether any byte is.
    template <char... WANTED>
    [[nodiscard]] bool holds() const noexcept {
        return which<WANTED...>() != 0;
    }
    // Whether a line that starts behind a newline of the block begins so. It may say yes of another control character.
    [[nodiscard]] bool mayStart(const LineStart& start) const noexcept {
        const std::uint64_t newlines = which<'\n'>();
        const char* const line = bytes_ + 1;
        const std::uint64_t indented = PlainBlock(line).which<' ', '\t', '\r'>();
        const std::uint64_t sought =
            equal(line + start.offset, start.first) & equal(line + start.offset + 1, start.second);
        return (newlines & (indented | sought)) != 0;
    }

private:
    static constexpr std::uint64_t EACH = 0x0101010101010101;

    static std::uint64_t equal(const char* bytes, char wanted) noexcept {
        std::uint64_t mask = 0;
        for (std::size_t i = 0; i < sizeof mask; ++i) {
            mask |= equalInWord(bytes + i * sizeof mask, wanted) << (i * sizeof mask);
        }
        return mask;
    }
    // Of eight bytes, in the lowest eight bits.
    static std::uint64_t equalInWord(const char* bytes, char wanted) noexcept {
        constexpr std::uint64_t LOW = EACH * 0x7f;
        constexpr std::uint64_t GATHER = 0x0102040810204080;
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        if constexpr (std::endian::native == std::endian::big) {
            word = __builtin_bswap64(word);
        }
        word ^= EACH * static_cast<unsigned char>(wanted);
        const std::uint64_t zero = ~(((word & LOW) + LOW) | word | LOW) >> 7U;  // 1 in each byte that is 0 now
        return (zero * GATHER) >> 56U;
    }

    const char* bytes_;
};

#ifdef __SSE2__

// In four quarters, each spelled out: compilers leave loops over them as loops.
class WideBlock {
public:
    [[gnu::always_inline]] explicit WideBlock(const char* bytes) noexcept
        : bytes_(bytes),
          first_(load(bytes)),
          second_(load(bytes + QUARTER)),
          third_(load(bytes + 2 * QUARTER)),
          fourth_(load(bytes + 3 * QUARTER)) {}

    template <char... WANTED>
    [[nodiscard, gnu::always_inline]] std::uint64_t which() const noexcept {
        return maskOf(equal<WANTED...>(first_)) | maskOf(equal<WANTED...>(second_)) << QUARTER |
               maskOf(equal<WANTED...>(third_)) << 2 * QUARTER | maskOf(equal<WANTED...>(fourth_)) << 3 * QUARTER;
    }
    template <char... WANTED>
    [[nodiscard, gnu::always_inline]] bool holds() const noexcept {
        return maskOf(either(either(equal<WANTED...>(first_), equal<WANTED...>(second_)),
                             either(equal<WANTED...>(third_), equal<WANTED...>(fourth_)))) != 0;
    }
    [[nodiscard, gnu::always_inline]] bool mayStart(const LineStart& start) const noexcept {
        const __m128i one = _mm_set1_epi8(start.first);
        const __m128i other = _mm_set1_epi8(start.second);
        const char* const line = bytes_ + 1;
        const auto starts = [&](const __m128i& quarter, std::size_t at) __attribute__((always_inline)) {
            const __m128i sought = _mm_and_si128(_mm_cmpeq_epi8(load(line + at + start.offset), one),
                                                 _mm_cmpeq_epi8(load(line + at + start.offset + 1), other));
            return _mm_and_si128(equal<'\n'>(quarter), either(sought, low(load(line + at))));
        };
        return maskOf(either(either(starts(first_, 0), starts(second_, QUARTER)),
                             either(starts(third_, 2 * QUARTER), starts(fourth_, 3 * QUARTER)))) != 0;
    }

private:
    static constexpr std::size_t QUARTER = sizeof(__m128i);

    [[gnu::always_inline]] static __m128i load(const char* bytes) noexcept {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    }
    [[gnu::always_inline]] static __m128i either(__m128i a, __m128i b) noexcept { return _mm_or_si128(a, b); }
    [[gnu::always_inline]] static std::uint64_t maskOf(__m128i bytes) noexcept {
        return static_cast<unsigned int>(_mm_movemask_epi8(bytes));
    }
    template <char WANTED, char... MORE>
    [[gnu::always_inline]] static __m128i equal(__m128i bytes) noexcept {
        const __m128i found = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(WANTED));
        if constexpr (sizeof...(MORE) == 0) {
            return found;
        } else {
            return either(found, equal<MORE...>(bytes));
        }
    }
    // A blank, or a control character but a newline.
    [[gnu::always_inline]] static __m128i low(__m128i bytes) noexcept {
        const __m128i upToBlank = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(' ')), bytes);
        return _mm_andnot_si128(equal<'\n'>(bytes), upToBlank);
    }

    const char* bytes_;
    __m128i first_;
    __m128i second_;
    __m128i third_;
    __m128i fourth_;
};
using Block = WideBlock;

#else
using Block = PlainBlock;
#endif

// From each of some bytes the first one at or behind it that is a stop, found by one addition: a bit that is added to a
// run of ones ends up behind the run. What is not found in one block is looked for from the first byte of the next.
class FirstStop {
public:
    [[nodiscard, gnu::always_inline]] std::uint64_t from(std::uint64_t begins, std::uint64_t stops) noexcept {
        std::uint64_t sum = 0;
        open_ = __builtin_add_overflow(~stops, begins | (open_ ? 1U : 0U), &sum);
        return sum & stops;
    }
    // The same, from the bytes behind those.
    [[nodiscard, gnu::always_inline]] std::uint64_t behind(std::uint64_t bytes, std::uint64_t stops) noexcept {
        const std::uint64_t found = from(bytes << 1U, stops);
        open_ = open_ || (bytes >> (BLOCK - 1)) != 0;
        return found;
    }
    [[nodiscard]] bool open() const noexcept { return open_; }

private:
    bool open_ = false;
};

}  // namespace genreg

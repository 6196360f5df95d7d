// The lines of the library's schemas, as their masks tell of them (PassOver.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg/text/LineMasks.h"

namespace genreg {

// NAME = VALUE: the first of "=" and "#" is the former, and a quote that begins the value has its end. A block of a
// file without quotes is not asked where values begin; a line that reaches from such a block into one that has quotes
// is left in doubt.
class PairLines {
public:
    static constexpr std::size_t LONGEST = SIZE_MAX;

    template <class B>
    [[nodiscard, gnu::always_inline]] bool doubts(const B& block) noexcept {
        quotes_ = false;
        if (!block.template holds<'"', '\0'>()) {
            return false;
        }
        quotes_ = block.template holds<'"'>();
        return (quotes_ && unasked_) || block.template holds<'\0'>();
    }
    template <class B>
    [[nodiscard, gnu::always_inline]] std::uint64_t refused(const B& block, std::uint64_t newlines,
                                                            std::uint64_t starts) noexcept {
        const std::uint64_t equals = block.template which<'='>();
        const std::uint64_t first = sign_.from(starts, equals | newlines | block.template which<'#'>());
        std::uint64_t refused = first & ~equals & ~starts;
        if (quotes_ || value_.open() || end_.open()) {
            const std::uint64_t quotes = block.template which<'"'>();
            const std::uint64_t values = value_.behind(first & equals, ~block.template which<' ', '\t', '\r'>());
            refused |= end_.behind(values & quotes, block.template which<'"', '#', '\n'>()) & ~quotes;
            unasked_ = false;
        } else {
            unasked_ = newlines >> (BLOCK - 1) == 0;
        }
        return refused;
    }

private:
    FirstStop sign_;
    FirstStop value_;
    FirstStop end_;
    bool quotes_ = false;
    bool unasked_ = false;
};

// NAME PORT/PROTOCOL ...: a name without quotes, and something behind it that is no comment. A line that has room for
// more aliases than there may be is left in doubt.
template <std::size_t MOST>
class ServiceLines {
public:
    static constexpr std::size_t LONGEST = MOST;

    template <class B>
    [[nodiscard, gnu::always_inline]] bool doubts(const B& block) noexcept {
        return block.template holds<'\0'>();
    }
    template <class B>
    [[nodiscard, gnu::always_inline]] std::uint64_t refused(const B& block, std::uint64_t newlines,
                                                            std::uint64_t starts) noexcept {
        const std::uint64_t blanks = block.template which<' ', '\t', '\r'>();
        const std::uint64_t ends = newlines | block.template which<'#'>();
        const std::uint64_t first = name_.from(starts, blanks | ends | block.template which<'"'>());
        const std::uint64_t second = port_.behind(first & blanks, ~blanks);
        return (first & ~blanks & ~(starts & ends)) | (second & ends);
    }

private:
    FirstStop name_;
    FirstStop port_;
};

// ID:RUNLEVELS:ACTION:COMMAND: three colons before a comment. A line that begins with one is a comment.
class EntryLines {
public:
    static constexpr std::size_t LONGEST = SIZE_MAX;

    template <class B>
    [[nodiscard, gnu::always_inline]] bool doubts(const B& block) noexcept {
        return block.template holds<'\0'>();
    }
    template <class B>
    [[nodiscard, gnu::always_inline]] std::uint64_t refused(const B& block, std::uint64_t newlines,
                                                            std::uint64_t starts) noexcept {
        const std::uint64_t colons = block.template which<':'>();
        const std::uint64_t stops = colons | newlines | block.template which<'#'>();
        const std::uint64_t first = first_.from(starts, stops) & ~starts;
        const std::uint64_t second = second_.behind(first & colons, stops);
        const std::uint64_t third = third_.behind(second & colons, stops);
        return (first | second | third) & ~colons;
    }

private:
    FirstStop first_;
    FirstStop second_;
    FirstStop third_;
};

}  // namespace genreg

// Going past lines without parsing them: many at a time, where a schema can tell from the masks of their bytes that
// ParseLine takes them, and from a few bytes that they do not hold what is looked for. A line in doubt is judged by
// itself, as lineMayMatch does it.
#pragma once

#include <genreg/GenRegText.h>

#include <bit>
#include <cstring>

#include "genreg/text/LineMasks.h"

namespace genreg {

// A text that a line must begin with to hold what is looked for, compared by its last bytes, in which names differ.
class Beginning {
public:
    // The text is not empty.
    explicit Beginning(const char* text) noexcept : length_(std::strlen(text)) {
        const std::size_t compared = length_ < sizeof bytes_ ? length_ : sizeof bytes_;
        offset_ = length_ - compared;
        char shown[sizeof bytes_] = {};
        std::memcpy(&bytes_, text + offset_, compared);
        std::memset(shown, 0xff, compared);
        std::memcpy(&shown_, shown, sizeof shown_);
        if (length_ > 1) {
            last_ = {length_ - 2, text[length_ - 2], text[length_ - 1]};
        }
    }
    // How many bytes of a line are looked at.
    [[nodiscard]] std::size_t reach() const noexcept { return offset_ + sizeof bytes_; }
    [[nodiscard]] bool mayBegin(const char* line) const noexcept {
        std::uint64_t there = 0;
        std::memcpy(&there, line + offset_, sizeof there);
        return ((there ^ bytes_) & shown_) == 0;
    }
    // Whether one of the lines behind the block's newlines may begin with it, or is indented.
    template <class B>
    [[nodiscard, gnu::always_inline]] bool mayBeginIn(const B& block) const noexcept {
        return length_ == 1 || block.mayStart(last_);
    }

private:
    std::size_t length_;
    std::size_t offset_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t shown_ = 0;
    LineStart last_;
};

// A Shape says of the lines of a block, a bit in the line for each, which ones ParseLine may refuse:
//   static constexpr std::size_t LONGEST           of a line that is judged by the masks
//   template <class B> bool doubts(const B& block)    that it cannot judge the block at all
//   template <class B> std::uint64_t refused(const B& block, newlines, starts)
// It keeps what is open at the end of a block, and begins anew, as it was made, behind a line in doubt.
template <class Shape, class B = Block>
class LinePasser {
public:
    LinePasser(const char* lines, std::size_t length, bool joined, const Beginning& beginning) noexcept
        : lines_(lines), length_(length), joined_(joined), beginning_(beginning) {}

    // mayHold(line, length): lineMayMatch for this key.
    template <typename MayHold>
    [[nodiscard]] std::size_t pass(MayHold mayHold) noexcept {
        do {
            toDoubt();
        } while (passSingly(mayHold));
        return line_;
    }

private:
    static bool isIndent(char c) noexcept { return c == ' ' || c == '\t' || c == '\r'; }

    // How many bytes have to be there for a block and the beginnings of its lines.
    [[nodiscard]] std::size_t least() const noexcept { return BLOCK + 1 + beginning_.reach(); }

    // Moves to the first line that the masks leave in doubt, or of which not enough bytes are there.
    void toDoubt() noexcept {
        if (length_ - line_ < least() || isSought(line_)) {
            return;
        }
        Shape shape;
        std::uint64_t begins = 1;
        bool backslash = false;
        for (std::size_t at = line_; length_ - at >= least(); at += BLOCK) {
            const B block(lines_ + at);
            const std::uint64_t newlines = block.template which<'\n'>();
            if (shape.doubts(block)) {
                return;
            }
            std::uint64_t refused = shape.refused(block, newlines, newlines << 1U | begins);
            if (joined_) {
                const std::uint64_t backslashes = block.template which<'\\'>();
                refused |= (backslashes << 1U | (backslash ? 1U : 0U)) & newlines;
                backslash = (backslashes >> (BLOCK - 1)) != 0;
            }
            if (refused != 0) {
                (void)toSought(at, newlines & (refused ^ (refused - 1)) >> 1U);
                return;
            }
            if (!(beginning_.mayBeginIn(block) ? toSought(at, newlines) : toLast(at, newlines))) {
                return;
            }
            begins = newlines >> (BLOCK - 1);
        }
    }

    [[nodiscard]] bool isSought(std::size_t start) const noexcept {
        return isIndent(lines_[start]) || beginning_.mayBegin(lines_ + start);
    }

    // Moves from line to line behind these newlines. False at one that is indented or begins with what is looked for.
    [[nodiscard]] bool toSought(std::size_t at, std::uint64_t newlines) noexcept {
        for (; newlines != 0; newlines &= newlines - 1) {
            if (!takeLine(at + static_cast<std::size_t>(std::countr_zero(newlines)) + 1) || isSought(line_)) {
                return false;
            }
        }
        return true;
    }

    // Moves behind the last newline. Only the line that ends at the first can be longer than a block.
    [[nodiscard]] bool toLast(std::size_t at, std::uint64_t newlines) noexcept {
        if (newlines != 0) {
            if (!takeLine(at + static_cast<std::size_t>(std::countr_zero(newlines)) + 1)) {
                return false;
            }
            line_ = at + BLOCK - static_cast<std::size_t>(std::countl_zero(newlines));
        }
        return true;
    }

    // The line in hand ends where this one starts. False when it is too long for the masks.
    [[nodiscard]] bool takeLine(std::size_t start) noexcept {
        if (start - line_ > Shape::LONGEST) {
            return false;
        }
        line_ = start;
        return true;
    }

    // Past a line that does not match when it is looked at by itself, and those behind it that the masks are no use
    // for. False at one that may, and where no whole line is left.
    template <typename MayHold>
    [[nodiscard]] bool passSingly(MayHold mayHold) noexcept {
        do {
            const char* const line = lines_ + line_;
            const void* const newline = line_ == length_ ? nullptr : std::memchr(line, '\n', length_ - line_);
            if (newline == nullptr) {
                return false;
            }
            const auto length = static_cast<std::size_t>(static_cast<const char*>(newline) - line) + 1;
            const bool continued = joined_ && length > 1 && line[length - 2] == '\\';
            if (continued || (length < REG_LINE_SIZE && mayHold(line, length))) {
                return false;
            }
            line_ += length;
        } while (length_ - line_ < least() || isIndent(lines_[line_]));
        return true;
    }

    const char* lines_;
    std::size_t length_;
    bool joined_;
    Beginning beginning_;
    std::size_t line_ = 0;  // where the first line starts that is not passed
};

}  // namespace genreg

// Bytes and words: what may be printed, what JSON can carry, and which word was meant.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

[[nodiscard]] bool isUtf8(std::string_view bytes);
[[nodiscard]] std::string base64(std::string_view bytes);

// The text with control bytes, and bytes that are no UTF-8, as \xNN: safe on any terminal.
[[nodiscard]] std::string printable(std::string_view bytes);

// The text as a word of a command to be copied: printable, and quoted where a shell would read it otherwise.
[[nodiscard]] std::string shellWord(std::string_view bytes);

// Columns that the text takes, counted in code points.
[[nodiscard]] std::size_t width(std::string_view text);

// The candidate that a typing error may have turned into the word; empty when none is near.
[[nodiscard]] std::string nearest(std::string_view word, std::span<const std::string> candidates);

// "12 s", "5 min", "3 h", "2 d".
[[nodiscard]] std::string duration(long long seconds);

// The system's words for an errno, without an upper-case first letter.
[[nodiscard]] std::string systemWords(int systemError);

}  // namespace tool

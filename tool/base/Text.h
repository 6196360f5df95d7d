// Bytes and words: what may be printed, what JSON can carry, and which word was meant.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

[[nodiscard]] bool isUtf8(std::string_view bytes);
[[nodiscard]] std::string base64(std::string_view bytes);
// None for a text that is no base64.
[[nodiscard]] std::optional<std::string> fromBase64(std::string_view text);
[[nodiscard]] std::string hexDigits(std::string_view bytes);

// The text with \xNN for bytes that are no UTF-8 and for what would not be seen as it is: control characters, and those
// that turn the order of the text around. Safe on any terminal.
[[nodiscard]] std::string printable(std::string_view bytes);
// The same for valid JSON, which stays the same value: \uNNNN.
[[nodiscard]] std::string printableJson(std::string_view json);
// Between double quotes, which alone end it: \" and \\ stand for those two.
[[nodiscard]] std::string quoted(std::string_view bytes);

// The text as a word of a command to be copied: printable, and quoted where a shell would read it otherwise.
[[nodiscard]] std::string shellWord(std::string_view bytes);

// Columns that printable text takes on a terminal.
[[nodiscard]] std::size_t width(std::string_view text);

// The candidate that a typing error may have turned into the word; empty when none is near.
[[nodiscard]] std::string nearest(std::string_view word, std::span<const std::string> candidates);

// "1 record", "2 records".
[[nodiscard]] std::string counted(std::size_t count, std::string_view noun);

// "12 s", "5 min", "3 h", "2 d".
[[nodiscard]] std::string duration(long long seconds);

// The system's words for an errno, without an upper-case first letter.
[[nodiscard]] std::string systemWords(int systemError);

}  // namespace tool

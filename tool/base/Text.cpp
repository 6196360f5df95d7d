#include "base/Text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include "system/System.h"

namespace tool {
namespace {

bool isContinuation(unsigned char byte) {
    return (byte & 0xc0U) == 0x80U;
}

// Length of the UTF-8 sequence at the front, 0 when there is none: overlong forms, surrogates and anything above
// U+10FFFF are none.
std::size_t sequenceLength(std::string_view bytes) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || bytes.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuation(at(i))) {
            return 0;
        }
    }
    const unsigned char second = at(1);
    const bool bad = (lead == 0xe0 && second < 0xa0) || (lead == 0xed && second > 0x9f) ||
                     (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second > 0x8f);
    return bad ? 0 : length;
}

// Of a whole sequence.
char32_t codePoint(std::string_view sequence) {
    const auto lead = static_cast<unsigned char>(sequence[0]);
    char32_t point = sequence.size() == 1 ? lead : lead & (0x7fU >> sequence.size());
    for (const char byte : sequence.substr(1)) {
        point = point << 6U | (static_cast<unsigned char>(byte) & 0x3fU);
    }
    return point;
}

// What a terminal acts on (U+0080 to U+009F as well as those below 32), line separators, and the marks that let a text
// be shown in another order than it has.
bool isSeenOtherwise(char32_t point) {
    const auto within = [point](char32_t first, char32_t last) { return point >= first && point <= last; };
    return point < 0x20 || within(0x7f, 0x9f) || point == 0x61c || within(0x200e, 0x200f) || within(0x2028, 0x202e) ||
           within(0x2066, 0x2069);
}

// Calls visit(sequence, code point) for each; a byte that is none comes alone, with the code point 0.
template <typename Visit>
void eachSequence(std::string_view bytes, Visit visit) {
    while (!bytes.empty()) {
        const std::size_t length = sequenceLength(bytes);
        const std::string_view sequence = bytes.substr(0, std::max<std::size_t>(length, 1));
        visit(sequence, length == 0 ? 0 : codePoint(sequence));
        bytes.remove_prefix(sequence.size());
    }
}

// Letters put in, left out, mistaken or swapped with their neighbour.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t replace = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({replace, cost[i - 1][j] + 1, cost[i][j - 1] + 1});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

}  // namespace

bool isUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = sequenceLength(bytes);
        if (length == 0) {
            return false;
        }
        bytes.remove_prefix(length);
    }
    return true;
}

std::string base64(std::string_view bytes) {
    static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j) {
            group = (group << 8U) | (j < count ? static_cast<unsigned char>(bytes[i + j]) : 0U);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            result += j <= count ? DIGITS[(group >> (18 - 6 * j)) & 63U] : '=';
        }
    }
    return result;
}

std::optional<std::string> fromBase64(std::string_view text) {
    const auto digit = [](char c) {
        return c >= 'A' && c <= 'Z'   ? c - 'A'
               : c >= 'a' && c <= 'z' ? c - 'a' + 26
               : c >= '0' && c <= '9' ? c - '0' + 52
               : c == '+'             ? 62
               : c == '/'             ? 63
                                      : -1;
    };
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const std::string_view group = text.substr(i, 4);
        const std::size_t digits = std::min(group.find('='), group.size());
        std::uint32_t value = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            const int found = j < digits ? digit(group[j]) : 0;
            value = value << 6U | static_cast<std::uint32_t>(found);
            if (found < 0) {
                return std::nullopt;
            }
        }
        const bool last = i + 4 == text.size();
        for (std::size_t j = 0; j + 1 < digits; ++j) {
            bytes += static_cast<char>(value >> (16 - 8 * j));
        }
        if (digits < 2 || (digits < 4 && !last)) {
            return std::nullopt;
        }
    }
    // One text for the same bytes: no bits behind them, and all the signs.
    return base64(bytes) == text ? std::optional(bytes) : std::nullopt;
}

std::string hexDigits(std::string_view bytes) {
    std::string result;
    for (const char byte : bytes) {
        result += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return result;
}

std::string printable(std::string_view bytes) {
    std::string result;
    eachSequence(bytes, [&](std::string_view sequence, char32_t point) {
        if (!isSeenOtherwise(point)) {
            result += sequence;
            return;
        }
        for (const char byte : sequence) {
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
        }
    });
    return result;
}

std::string printableJson(std::string_view json) {
    std::string result;
    eachSequence(json, [&](std::string_view sequence, char32_t point) {
        result += isSeenOtherwise(point) ? fmt::format("\\u{:04x}", static_cast<unsigned int>(point)) : sequence;
    });
    return result;
}

std::string quoted(std::string_view bytes) {
    std::string marked;
    for (const char c : bytes) {
        marked += c == '"' || c == '\\' ? "\\" : "";
        marked += c;
    }
    return "\"" + printable(marked) + "\"";
}

std::string shellWord(std::string_view bytes) {
    std::string text = printable(bytes);
    const auto plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               static_cast<unsigned char>(c) >= 0x80 || std::strchr("%+,-./:=@_", c) != nullptr;
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), plain)) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::size_t width(std::string_view text) {
    // The C library's table counts in code points; where it has none for UTF-8, each takes one column.
    const Utf8Characters known;
    std::size_t columns = 0;
    eachSequence(text, [&](std::string_view, char32_t point) {
        const int taken = !known.areKnown() ? 1 : wcwidth(static_cast<wchar_t>(point));
        columns += point == 0 || taken < 0 ? 1 : static_cast<std::size_t>(taken);
    });
    return columns;
}

std::string nearest(std::string_view word, std::span<const std::string> candidates) {
    const std::size_t limit = std::max<std::size_t>(1, std::min<std::size_t>(3, word.size() / 2));
    std::size_t best = limit + 1;
    std::string result;
    for (const std::string& candidate : candidates) {
        if (candidate.size() > word.size() + limit || word.size() > candidate.size() + limit) {
            continue;
        }
        const std::size_t distance = editDistance(lowered(word), lowered(candidate));
        if (distance < best) {
            best = distance;
            result = candidate;
        }
    }
    return result;
}

std::string counted(std::size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string duration(long long seconds) {
    if (seconds < 120) {
        return fmt::format("{} s", std::max(seconds, 0LL));
    }
    if (seconds < 7200) {
        return fmt::format("{} min", seconds / 60);
    }
    return seconds < 172800 ? fmt::format("{} h", seconds / 3600) : fmt::format("{} d", seconds / 86400);
}

std::string systemWords(int systemError) {
    std::string words = std::strerror(systemError);
    // "I/O error" and the like keep their capitals.
    if (words.size() > 1 && words[1] >= 'a' && words[1] <= 'z') {
        words[0] = lowered(words.substr(0, 1))[0];
    }
    return words;
}

}  // namespace tool

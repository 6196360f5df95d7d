#include "Text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

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

std::string printable(std::string_view bytes) {
    std::string result;
    while (!bytes.empty()) {
        const std::size_t length = sequenceLength(bytes);
        const auto first = static_cast<unsigned char>(bytes[0]);
        // U+0080 to U+009F control a terminal as well as the bytes below 32 do.
        const bool control = first < 0x20 || first == 0x7f ||
                             (length == 2 && first == 0xc2 && static_cast<unsigned char>(bytes[1]) < 0xa0);
        if (length == 0 || control) {
            for (std::size_t i = 0; i < std::max<std::size_t>(length, 1); ++i) {
                result += fmt::format("\\x{:02x}", static_cast<unsigned char>(bytes[i]));
            }
        } else {
            result += bytes.substr(0, length);
        }
        bytes.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
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
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return !isContinuation(static_cast<unsigned char>(c)); }));
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

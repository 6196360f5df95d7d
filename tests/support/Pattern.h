// A text held against a pattern as a whole. Not through std::regex, which the compiler warns about under sanitizers.
#pragma once

#include <regex.h>

#include <string>
#include <vector>

// What the groups of the extended pattern stand for, the whole text first; empty when the text is another.
inline std::vector<std::string> matched(const std::string& text, const std::string& pattern) {
    constexpr std::size_t MOST_GROUPS = 8;
    regex_t compiled;
    if (::regcomp(&compiled, ("^" + pattern + "$").c_str(), REG_EXTENDED) != 0) {
        return {};
    }
    regmatch_t groups[MOST_GROUPS];
    const bool matches = ::regexec(&compiled, text.c_str(), MOST_GROUPS, groups, 0) == 0;
    std::vector<std::string> found;
    for (std::size_t i = 0; matches && i <= compiled.re_nsub && i < MOST_GROUPS; ++i) {
        const auto start = static_cast<std::size_t>(groups[i].rm_so);
        found.push_back(text.substr(start, static_cast<std::size_t>(groups[i].rm_eo) - start));
    }
    ::regfree(&compiled);
    return found;
}

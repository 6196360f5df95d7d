#include "base/Suggestions.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "base/Text.h"

namespace tool {
namespace {

constexpr std::string_view DESTRUCTIVE[] = {"delete", "remove", "off"};
constexpr std::string_view NEVER_SUGGESTED[] = {"--yes"};
// What other tools call it.
constexpr std::string_view REMOVING[] = {"rm", "del", "delete", "remove", "erase", "unset"};
constexpr std::string_view RENAMING[] = {"rename", "mv", "move"};

bool isOneOf(std::span<const std::string_view> words, std::string_view word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

// The first of the words that the group has.
std::string firstOf(std::span<const std::string> names, std::span<const std::string_view> words) {
    const auto found = std::find_first_of(words.begin(), words.end(), names.begin(), names.end());
    return found == words.end() ? std::string() : std::string(*found);
}

std::string forAnothersWord(const std::string& above, std::span<const std::string> names, const std::string& word) {
    const std::string removing = firstOf(names, REMOVING);
    const std::string making = firstOf(names, std::vector<std::string_view>{"add", "set"});
    if (removing.empty() || making.empty()) {
        return {};
    }
    const std::string removal = fmt::format("{} {} --help", above, removing);
    if (isOneOf(RENAMING, word)) {
        return fmt::format("{} {} with the new name; for the old one {}", above, making, removal);
    }
    if (!isOneOf(REMOVING, word)) {
        return {};
    }
    const bool hasFields = making == "set";
    return word == "unset" && hasFields ? fmt::format("{} set, where FIELD= takes a field out; or {}", above, removal)
                                        : removal;
}

}  // namespace

std::string suggestedCommand(const std::string& above, std::span<const std::string> names, const std::string& word) {
    if (std::string hint = forAnothersWord(above, names, word); !hint.empty()) {
        return hint;
    }
    std::vector<std::string> harmless;
    std::vector<std::string> destructive;
    for (const std::string& name : names) {
        (isOneOf(DESTRUCTIVE, name) ? destructive : harmless).push_back(name);
    }
    if (const std::string meant = nearest(word, harmless); !meant.empty()) {
        return fmt::format("{} {}", above, meant);
    }
    const std::string meant = nearest(word, destructive);
    return meant.empty() ? meant : fmt::format("{} {} --help", above, meant);
}

std::string suggestedOption(std::span<const std::string> names, const std::string& word) {
    std::vector<std::string> harmless;
    std::copy_if(names.begin(), names.end(), std::back_inserter(harmless),
                 [](const std::string& name) { return !isOneOf(NEVER_SUGGESTED, name); });
    return nearest(word.substr(0, word.find('=')), harmless);
}

}  // namespace tool

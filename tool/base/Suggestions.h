// What a word that nothing takes is answered with. Nothing that destroys is suggested: who copies a hint without
// reading it loses nothing by it. Where somebody plainly meant such a command, the hint leads to its help.
#pragma once

#include <span>
#include <string>

namespace tool {

// above: "genreg varval"; names: the words that may follow. Empty when nothing is near.
[[nodiscard]] std::string suggestedCommand(const std::string& above, std::span<const std::string> names,
                                           const std::string& word);

// Of "--json" and the like; "--json=1" is taken for its name. Empty when nothing is near.
[[nodiscard]] std::string suggestedOption(std::span<const std::string> names, const std::string& word);

}  // namespace tool

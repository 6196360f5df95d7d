// What `check` finds: one thing each, how grave it is, where it is, what it means and what helps.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Output.h"

namespace tool {

enum class Severity {
    NOTE,     // worth to know; the registry does what it should
    WARNING,  // it does not say what it seems to say, or not all goes on as before
    FAULT,    // it cannot be read, or not be changed
};

struct Finding {
    Severity severity = Severity::NOTE;
    const char* kind = "";  // one word for programs, the same for the same thing
    std::string path;       // of the file, or of its companion
    std::string message;
    std::string hint;  // the command that helps, or what to do; may be empty
    // Where in the file, as far as it is somewhere: in a binary one, in one of lines.
    std::optional<std::size_t> offset{};
    std::optional<std::size_t> length{};
    std::optional<std::size_t> line{};
};

class Findings {
public:
    void add(Finding finding) { all_.push_back(std::move(finding)); }

    // An object each for programs. For people a line or two each, of a kind no more than a screen takes, and their sum.
    // "soundness" is what is said of the file at the path where nothing was found.
    void tell(Output& output, const std::string& path, const std::string& soundness) const;
    // EXIT_DAMAGED for damage, EXIT_NEGATIVE for anything else but notes, else EXIT_DONE.
    [[nodiscard]] int exitStatus() const;

    static constexpr const char* DAMAGE = "damage";  // the kind that decides between the first two

private:
    [[nodiscard]] std::size_t count(Severity severity) const;

    std::vector<Finding> all_;
};

}  // namespace tool

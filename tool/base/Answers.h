// The answers that the commands on record files have in common: what is refused, and why, and what is asked before.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/Command.h"

namespace tool {

// A failure about a file. The message is put behind the file's name.
[[nodiscard]] Failure answer(std::string kind, int exitStatus, unsigned int code, const std::string& path,
                             const std::string& message, std::string hint);

// What cannot be written, and why. refusingFor puts the file's name before it.
[[nodiscard]] Failure invalid(unsigned int code, std::string message, std::string hint);

// Throws a Failure where the text holds a byte that may not stand in a line; tabs are another matter.
void refuseControl(std::string_view what, std::string_view text);

// As judgeFile for a file of lines or variables that must be there, which an add would create.
void needFile(const std::string& path, const std::string& doing);

// A line is text up to its first NUL byte; rewriting it would drop what stands behind.
[[nodiscard]] Failure hiddenBytes(const std::string& path, const std::string& doing, std::size_t line);

// Completes a failure that refusingFor caught.
void nameFile(Failure& failure, const std::string& path, const std::string& doing);

// "look" is the command that shows how things stand.
[[nodiscard]] Failure changedMeanwhile(const std::string& path, const std::string& name, const std::string& look);
[[nodiscard]] Failure otherValue(const std::string& path, const std::string& name, const std::string& found,
                                 const std::string& expected, const std::string& look);

// Attempts a change again and again, for as long as --wait allows, until it comes before what others do; none is an
// attempt that came too late. "what" is what they keep changing.
bool attemptPatiently(const Context& context, const std::string& path, const std::string& what,
                      const std::function<std::optional<bool>()>& attempt);

// Asks before something is lost ("remove the file"). Throws where there is nobody to ask, or the answer is no.
void confirm(const std::string& path, const std::string& what);

// Runs the check of words of the command line; what it refuses is told with the file and what was to be done.
template <typename Check>
auto refusingFor(const std::string& path, const std::string& doing, const Check& check) {
    try {
        return check();
    } catch (Failure& failure) {
        nameFile(failure, path, doing);
        throw;
    }
}

}  // namespace tool

// Stands in for calls of the platform's libraries, as another maker's libraries may: what the executable defines goes
// before what the shared libraries do. A call does what it always does until it is told to refuse.
//
// For programs of one thread. Linked into the rig of refusals alone.
#pragma once

namespace prove {

enum class PlatformCall { Alloc, Free, New, BaseName, DirectoryName, DirectoryCreate, LevelInfo, Snprintf };

// The code with which the calls that answer codes refuse.
constexpr unsigned int REFUSED = 0x900001aa;

// While one lives the n-th call (from 0) of the kind is refused, all others are not. A refused Free has freed all the
// same, and a refused Snprintf has written nothing. New is the language's own, in its form that answers null.
class Refusal {
public:
    Refusal(PlatformCall call, long n) noexcept;
    ~Refusal() noexcept;
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;

    // How many calls of the kind there were so far.
    [[nodiscard]] long calls() const noexcept;
};

}  // namespace prove

// The cause of a failure: the first one within the thread's outermost call.
#pragma once

#include <genreg/Cause.h>

namespace genreg {

// A failure; the first one since the outermost call began is its cause.
void noteCause(const GenRegCause& cause) noexcept;

// Around every operation that a client calls: the outermost one on a thread forgets the cause of the last failure, but
// for one that goes on from there.
enum class Cause { Forgotten, Kept };
class OutermostCall {
public:
    explicit OutermostCall(Cause before = Cause::Forgotten) noexcept;
    ~OutermostCall() noexcept { --depth_; }
    OutermostCall(const OutermostCall&) = delete;
    OutermostCall& operator=(const OutermostCall&) = delete;

private:
    unsigned int& depth_;  // the thread's
};

// The cause as it stands at a point of an operation. What failed since and was survived is no cause: restore().
class CauseMark {
public:
    CauseMark() noexcept;
    void restore() const noexcept;

private:
    bool caused_;
};

}  // namespace genreg

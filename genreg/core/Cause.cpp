#include "genreg/core/Cause.h"

namespace genreg {
namespace {

// In one piece, whose place is asked for once.
struct Calls {
    GenRegCause cause;
    unsigned int depth;
};
thread_local Calls t_calls{};

}  // namespace

void noteCause(const GenRegCause& cause) noexcept {
    if (t_calls.cause.code == 0) {
        t_calls.cause = cause;
    }
}

OutermostCall::OutermostCall(Cause before) noexcept : depth_(t_calls.depth) {
    if (depth_++ == 0 && before == Cause::Forgotten) {
        t_calls.cause = {};
    }
}

CauseMark::CauseMark() noexcept : caused_(t_calls.cause.code != 0) {}

void CauseMark::restore() const noexcept {
    if (!caused_) {
        t_calls.cause = {};
    }
}

}  // namespace genreg

extern "C" void genregLastCause(GenRegCause* cause) {
    if (cause != nullptr) {
        *cause = genreg::t_calls.cause;
    }
}

#include "genreg/core/Cause.h"

namespace genreg {
namespace {

thread_local GenRegCause t_cause{};
thread_local unsigned int t_depth = 0;

}  // namespace

void noteCause(const GenRegCause& cause) noexcept {
    if (t_cause.code == 0) {
        t_cause = cause;
    }
}

OutermostCall::OutermostCall(Cause before) noexcept : depth_(t_depth) {
    if (depth_++ == 0 && before == Cause::Forgotten) {
        t_cause = {};
    }
}

CauseMark::CauseMark() noexcept : caused_(t_cause.code != 0) {}

void CauseMark::restore() const noexcept {
    if (!caused_) {
        t_cause = {};
    }
}

}  // namespace genreg

extern "C" void genregLastCause(GenRegCause* cause) {
    if (cause != nullptr) {
        *cause = genreg::t_cause;
    }
}

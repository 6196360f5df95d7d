// The process and its clock.
#include <signal.h>

#include <ctime>

#include "../System.h"
#include "Failure.h"
#include "Posix.h"

namespace posix {

// 0 and below mean whole groups of processes, never a holder of a lock.
unsigned int sendHangup(long process) noexcept {
    if (process < 1) {
        return ossErrorMapSystem(ESRCH);
    }
    return resultOf(::kill(static_cast<pid_t>(process), SIGHUP));
}

bool isAlive(long process) noexcept {
    return process > 0 && (::kill(static_cast<pid_t>(process), 0) == 0 || errno == EPERM);
}

long processId() noexcept {
    return ::getpid();
}

unsigned int userId() noexcept {
    return ::getuid();
}

long long monotonicMilliseconds() noexcept {
    std::timespec now{};
    (void)::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void sleepMilliseconds(long milliseconds) noexcept {
    if (milliseconds <= 0) {
        return;
    }
    std::timespec rest{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    (void)platform::retried([&] { return ::nanosleep(&rest, &rest); });
}

}  // namespace posix

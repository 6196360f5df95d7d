#include "prove/support/Shared.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace prove {
namespace {

constexpr unsigned int SECONDS_PER_BODY = 10;

struct Progress {
    std::atomic<unsigned long> at = 0;
    Tally tally;
};

}  // namespace

bool Tally::check(bool good, const std::string& what) noexcept {
    ++cases_;
    if (!good) {
        ++failed_;
        const unsigned long slot = told_++;
        if (slot < MOST_TOLD) {
            (void)std::strncpy(texts_[slot], what.c_str(), LONGEST - 1);
        }
    }
    return good;
}

void Tally::passTo(Cases& cases) {
    const unsigned long failed = failed_.exchange(0);
    const unsigned long told = std::min(told_.exchange(0), MOST_TOLD);
    for (unsigned long i = 0; i < told; ++i) {
        (void)cases.check(false, texts_[i]);
        std::memset(texts_[i], 0, LONGEST);
    }
    const unsigned long all = cases_.exchange(0);
    cases.add(all - told, failed - told);
}

void runIsolated(Cases& cases, unsigned long count, const std::function<void(unsigned long, Tally&)>& body,
                 const std::function<std::string(unsigned long)>& nameOf) {
    const Shared<Progress> progress;
    while (progress->at < count) {
        const pid_t child = ::fork();
        if (child == 0) {
            for (; progress->at < count; ++progress->at) {
                (void)::alarm(SECONDS_PER_BODY);
                body(progress->at, progress->tally);
            }
            ::_exit(0);
        }
        int status = 0;
        if (child == -1 || ::waitpid(child, &status, 0) != child) {
            (void)cases.check(false, "no child could be run");
            break;
        }
        if (status != 0) {
            const std::string how = WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                                        : "exit code " + std::to_string(WEXITSTATUS(status));
            (void)cases.check(false, nameOf(progress->at) + ": the process ended by " + how);
            ++progress->at;
        }
    }
    progress->tally.passTo(cases);
}

}  // namespace prove

// Waiting for locks: without the interpreter, asking again and again so that signals are seen, no longer than allowed.
#pragma once

#include <genreg/GenRegFile.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <thread>

#include "Failed.h"

class Patience {
public:
    // In seconds; none is for ever.
    explicit Patience(std::optional<double> seconds) {
        if (seconds && *seconds < LONGEST_SECONDS) {
            end_ = Clock::now() +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::max(*seconds, 0.0)));
        }
    }

    // What is left of it in milliseconds, rounded up; negative when there is no end.
    [[nodiscard]] long left() const {
        if (!end_) {
            return -1;
        }
        const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(*end_ - Clock::now()).count();
        return static_cast<long>(std::max<decltype(milliseconds)>(milliseconds, 0));
    }

    [[nodiscard]] bool isOver() const { return end_ && Clock::now() >= *end_; }

    // Waits a while, the longer the oftener it was called, but not beyond the end.
    void pause() {
        const auto until = Clock::now() + pause_;
        std::this_thread::sleep_until(end_ ? std::min(until, *end_) : until);
        pause_ = std::min(2 * pause_, LONGEST_PAUSE);
    }

private:
    using Clock = std::chrono::steady_clock;
    // A tenth of a change that is synced to a disk, and what makes no load while somebody waits for long.
    static constexpr std::chrono::microseconds SHORTEST_PAUSE{200};
    static constexpr std::chrono::microseconds LONGEST_PAUSE{5000};
    static constexpr double LONGEST_SECONDS = 1e9;

    std::optional<Clock::time_point> end_;
    std::chrono::microseconds pause_ = SHORTEST_PAUSE;
};

// Runs it without the interpreter. Not with pybind11's own guard: a thread that the interpreter ends while it waits for
// it is unwound from here, which nothing on its way may forbid.
template <typename Operation>
Outcome withoutInterpreter(Operation operation) {
    Outcome outcome;
    std::exception_ptr thrown;
    PyThreadState* const state = PyEval_SaveThread();
    try {
        outcome = operation();
    } catch (const Failed& failed) {
        outcome = failed.outcome;
        thrown = failed.message.empty() ? nullptr : std::current_exception();
    } catch (...) {
        thrown = std::current_exception();
    }
    PyEval_RestoreThread(state);
    if (thrown) {
        std::rethrow_exception(thrown);
    }
    return outcome;
}

// Tries the operation of the object until no lock is in its way, the time is up or a signal wants something else; it is
// one that changes nothing while a lock is in its way.
template <typename Operation>
void patiently(GenRegFile& object, Patience patience, Operation operation) {
    object.SetLockWait(0, nullptr, nullptr);
    for (;;) {
        const Outcome outcome = withoutInterpreter(operation);
        if (outcome.code == 0) {
            return;
        }
        if (!outcome.isHeldUp() || patience.isOver()) {
            throw Failed{outcome};
        }
        (void)withoutInterpreter([&] {
            patience.pause();
            return Outcome();
        });
        if (PyErr_CheckSignals() != 0) {
            throw pybind11::error_already_set();
        }
    }
}

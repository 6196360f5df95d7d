#include "base/Progress.h"

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/Program.h"
#include "base/Text.h"
#include "system/System.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds PATIENCE{1};
constexpr std::chrono::milliseconds PACE{200};

// A thread tells of what another one does, so that a single call that takes long is told of, too.
class Teller {
public:
    bool allowed = false;
    Clock::time_point first;  // no earlier than then
    std::atomic<std::size_t> done = 0;

    // False where it is not told: within another piece, or for lack of a thread.
    bool begin(const std::string& doing, std::size_t steps) {
        if (!allowed || thread_.joinable()) {
            return false;
        }
        done = 0;
        working_ = true;
        const HeldSignals held;  // which are for the other thread
        try {
            thread_ = std::thread([this, doing, steps] { tell(doing, steps); });
        } catch (const std::system_error&) {
            return false;
        }
        return true;
    }

    void end() {
        {
            const std::lock_guard lock(mutex_);
            working_ = false;
        }
        ended_.notify_all();
        thread_.join();
        eraseStatus();
    }

private:
    void tell(const std::string& doing, std::size_t steps) {
        std::unique_lock lock(mutex_);
        for (auto at = std::max(first, Clock::now()); !ended_.wait_until(lock, at, [this] { return !working_; });
             at = Clock::now() + PACE) {
            const std::string far = steps == 0 ? "" : fmt::format(": {} of {}", std::min(done.load(), steps), steps);
            const std::string text = fmt::format("{}: {}{} ...", program().name, printable(doing), far);
            const std::size_t columns = terminalColumns(stderr);
            showStatus(columns == 0 || width(text) < columns ? text : std::string(program().name) + far + " ...");
        }
    }

    std::mutex mutex_;
    bool working_ = false;
    std::condition_variable ended_;
    std::thread thread_;
};

Teller& teller() {
    static Teller only;
    return only;
}

}  // namespace

void allowProgress(const Output& output) {
    const char* const terminal = std::getenv("TERM");
    const bool dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    teller().allowed = !dumb && !output.style.json && !output.style.quiet && isTerminal(stderr);
    teller().first = Clock::now() + PATIENCE;
}

std::string_view progressEraser() noexcept {
    return teller().allowed ? STATUS_ERASER : std::string_view();
}

Progress::Progress(const std::string& doing, std::size_t steps) : told_(teller().begin(doing, steps)) {}

Progress::~Progress() {
    if (told_) {
        teller().end();
    }
}

void Progress::step() noexcept {
    teller().done.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace tool

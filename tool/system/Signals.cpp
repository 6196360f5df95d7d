#include <sys/select.h>
#include <unistd.h>

#include <ctime>
#include <iterator>

#include "system/System.h"

namespace tool {
namespace {

volatile sig_atomic_t endSignals = 0;
volatile sig_atomic_t lookSignals = 0;

void askForEnd(int) {
    endSignals = 1;
}

void askToLook(int) {
    lookSignals = 1;
}

void ignoreChild(int) {}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    (void)sigaction(signal, &action, nullptr);
}

sigset_t setOf(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) {
        sigaddset(&set, signal);
    }
    return set;
}

}  // namespace

HeldSignals::HeldSignals() noexcept {
    const sigset_t ending = setOf({SIGINT, SIGTERM, SIGHUP, SIGQUIT});
    (void)sigprocmask(SIG_BLOCK, &ending, &before_);
}

HeldSignals::~HeldSignals() {
    (void)sigprocmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<std::string> lineFromTerminal(const std::function<void()>& ask) {
    constexpr int ENDING[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    struct sigaction before[std::size(ENDING)] = {};
    struct sigaction end {};
    end.sa_handler = askForEnd;  // which interrupts the reading
    for (std::size_t i = 0; i < std::size(ENDING); ++i) {
        (void)sigaction(ENDING[i], &end, &before[i]);
    }
    endSignals = 0;
    ask();
    std::string line;
    char letter = 0;
    bool good = false;
    while (endSignals == 0 && (good = read(STDIN_FILENO, &letter, 1) == 1) && letter != '\n') {
        line += letter;
    }
    for (std::size_t i = 0; i < std::size(ENDING); ++i) {
        (void)sigaction(ENDING[i], &before[i], nullptr);
    }
    return good && endSignals == 0 ? std::optional(line) : std::nullopt;
}

WatchSignals::WatchSignals(bool monitor) {
    const auto told = {SIGINT, SIGTERM, SIGHUP, SIGCHLD};
    const sigset_t blocked = setOf(told);
    (void)sigprocmask(SIG_BLOCK, &blocked, &whileWaiting_);
    for (const int signal : told) {
        sigdelset(&whileWaiting_, signal);
    }
    handle(SIGINT, askForEnd);
    handle(SIGTERM, askForEnd);
    handle(SIGHUP, monitor ? askToLook : askForEnd);
    handle(SIGCHLD, ignoreChild);
}

bool WatchSignals::endAsked() const noexcept {
    return endSignals != 0;
}

bool WatchSignals::takeLook() noexcept {
    const bool asked = lookSignals != 0;
    lookSignals = 0;
    return asked;
}

void WatchSignals::wait(int milliseconds) const noexcept {
    const timespec limit{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000};
    (void)pselect(0, nullptr, nullptr, nullptr, milliseconds < 0 ? nullptr : &limit, &whileWaiting_);
}

}  // namespace tool

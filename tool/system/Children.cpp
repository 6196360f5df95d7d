// Commands that run beside the tool: how they are started, and how their end is told.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>

#include "system/System.h"

extern char** environ;

namespace tool {
namespace {

constexpr int EXIT_BY_SIGNAL = 128;

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

volatile sig_atomic_t runningChild = 0;

void forwardSignal(int signal) {
    if (runningChild > 0) {
        (void)kill(static_cast<pid_t>(runningChild), signal);
    }
}

// The signals are the running child's while this lives.
class YieldedSignals {
public:
    YieldedSignals() {
        for (std::size_t i = 0; i < std::size(SIGNALS); ++i) {
            struct sigaction action {};
            action.sa_handler = SIGNALS[i] == SIGINT || SIGNALS[i] == SIGQUIT ? SIG_IGN : forwardSignal;
            (void)sigaction(SIGNALS[i], &action, &before_[i]);
        }
    }
    ~YieldedSignals() {
        runningChild = 0;
        for (std::size_t i = 0; i < std::size(SIGNALS); ++i) {
            (void)sigaction(SIGNALS[i], &before_[i], nullptr);
        }
    }
    YieldedSignals(const YieldedSignals&) = delete;
    YieldedSignals& operator=(const YieldedSignals&) = delete;

private:
    static constexpr int SIGNALS[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
    struct sigaction before_[std::size(SIGNALS)] = {};
};

// As shells tell how a process ended, of what waitpid answered.
int exitStatusOf(int ended) {
    return WIFSIGNALED(ended) ? EXIT_BY_SIGNAL + WTERMSIG(ended) : WEXITSTATUS(ended);
}

// Signals in `blocked` are not to reach it. The system's error, or 0.
int startChild(const ChildSetup& setup, bool ownGroup, const sigset_t& blocked, pid_t* child) {
    const std::vector<char*> words = pointersTo(setup.words);
    const std::vector<char*> environment = pointersTo(setup.environment);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&defaults, signal);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &blocked);
    const int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | (ownGroup ? POSIX_SPAWN_SETPGROUP : 0);
    posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (setup.input >= 0) {
        posix_spawn_file_actions_adddup2(&actions, setup.input, STDIN_FILENO);
    }
    if (setup.output >= 0) {
        posix_spawn_file_actions_adddup2(&actions, setup.output, STDOUT_FILENO);
    }
    if (setup.inherited >= 0) {  // which takes its mark of close-on-exec away
        posix_spawn_file_actions_adddup2(&actions, setup.inherited, setup.inherited);
    }
    const int error = posix_spawnp(child, words.front(), &actions, &attributes, words.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace

std::vector<std::string> inheritedEnvironment() {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        variables.emplace_back(*variable);
    }
    return variables;
}

int startGroup(const ChildSetup& setup, pid_t* child) {
    sigset_t none;
    sigemptyset(&none);
    return startChild(setup, true, none, child);
}

bool hasEnded(pid_t child, int* exitStatus) noexcept {
    int ended = 0;
    if (waitpid(child, &ended, WNOHANG) == 0) {
        return false;
    }
    *exitStatus = exitStatusOf(ended);
    return true;
}

void endGroup(pid_t child, bool atOnce) noexcept {
    (void)kill(-child, atOnce ? SIGKILL : SIGTERM);
}

long processId() noexcept {
    return getpid();
}

bool isSuperuser() noexcept {
    return geteuid() == 0;
}

int runInForeground(const ChildSetup& setup, int* exitStatus) {
    // A signal that comes before there is anyone to hand it to waits until there is.
    sigset_t before;
    sigset_t forwarded;
    sigemptyset(&forwarded);
    sigaddset(&forwarded, SIGTERM);
    sigaddset(&forwarded, SIGHUP);
    (void)sigprocmask(SIG_BLOCK, &forwarded, &before);
    const YieldedSignals yielded;
    pid_t child = 0;
    const int error = startChild(setup, false, before, &child);
    runningChild = static_cast<sig_atomic_t>(error == 0 ? child : 0);
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
        return error;
    }
    int ended = 0;
    while (waitpid(child, &ended, 0) < 0 && errno == EINTR) {
    }
    *exitStatus = exitStatusOf(ended);
    return 0;
}

}  // namespace tool

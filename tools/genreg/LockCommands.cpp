#include <fmt/core.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <span>
#include <utility>

#include "Commands.h"
#include "Files.h"
#include "GlobalPath.h"
#include "LockReport.h"
#include "Text.h"
#include "Update.h"

extern char** environ;

namespace tool {
namespace {

// As shells answer them.
constexpr int EXIT_CANNOT_RUN = 126;
constexpr int EXIT_NO_SUCH_COMMAND = 127;
constexpr int EXIT_BY_SIGNAL = 128;

struct Arguments {
    std::string file;
    std::vector<std::string> command;
};

int status(Context& context, const std::string& given) {
    const std::string path = globalFile(context, given);
    judgeFile(path, "tell who holds the lock", true);
    const RegistryFile file(path);
    const Json lock = lockObject(file);
    if (context.output.style.json) {
        Json object = Json::object();
        putText(object, "path", path);
        putText(object, "lock_path", file.lockFilePath());
        object.update(lock);
        context.output.json(object);
    } else {
        context.output.line(fmt::format("{}: {}", printable(path), lockText(lock)));
    }
    return lock["held"].get<bool>() ? EXIT_LOCKED : EXIT_DONE;
}

volatile sig_atomic_t runningChild = 0;

void forwardSignal(int signal) {
    if (runningChild > 0) {
        (void)kill(static_cast<pid_t>(runningChild), signal);
    }
}

// While a command runs, the terminal's signals are the command's to act upon and the others are handed on to it: the
// lock is given back when the command has ended, not before.
void yieldSignals() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    (void)sigaction(SIGINT, &ignore, nullptr);
    (void)sigaction(SIGQUIT, &ignore, nullptr);
    struct sigaction forward {};
    forward.sa_handler = forwardSignal;
    (void)sigaction(SIGTERM, &forward, nullptr);
    (void)sigaction(SIGHUP, &forward, nullptr);
}

// Starts the command with the tool's own standard output and the signals as they were by default.
int start(const std::vector<std::string>& command, int output, const sigset_t& mask, pid_t* child) {
    std::vector<char*> words;
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);

    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        sigaddset(&defaults, signal);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output >= 0) {
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, output);
    }
    const int error = posix_spawnp(child, words[0], &actions, &attributes, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

int await(pid_t child) {
    int ended = 0;
    while (waitpid(child, &ended, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(ended) ? EXIT_BY_SIGNAL + WTERMSIG(ended) : WEXITSTATUS(ended);
}

int runCommand(const Context& context, const std::vector<std::string>& command) {
    // A signal that comes before there is anyone to hand it to waits until there is.
    sigset_t forwarded;
    sigemptyset(&forwarded);
    sigaddset(&forwarded, SIGTERM);
    sigaddset(&forwarded, SIGHUP);
    sigset_t before;
    (void)sigprocmask(SIG_BLOCK, &forwarded, &before);
    yieldSignals();
    pid_t child = 0;
    const int error = start(command, context.output.descriptor(), before, &child);
    runningChild = static_cast<sig_atomic_t>(error == 0 ? child : 0);
    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
        Failure failure = systemFailure(error, command.front(), "run it");
        failure.kind = "command";
        failure.exitStatus = error == ENOENT ? EXIT_NO_SUCH_COMMAND : EXIT_CANNOT_RUN;
        failure.hint = "check the name of the command";
        throw failure;
    }
    return await(child);
}

// The parser takes the first word for FILE. When all of them stand behind "--" there is no FILE.
Arguments split(const Context& context, const Arguments& parsed) {
    const std::span<char*> all(context.arguments, static_cast<std::size_t>(context.argumentCount));
    const auto sign = std::find(all.begin(), all.end(), std::string_view("--"));
    Arguments arguments = parsed;
    if (sign != all.end() && static_cast<std::size_t>(all.end() - sign - 1) == parsed.command.size() + 1) {
        arguments.command.insert(arguments.command.begin(), std::exchange(arguments.file, {}));
    }
    if (arguments.command.empty()) {
        throw usageFailure("which command is to run under the lock?", "genreg lock run [FILE] -- CMD");
    }
    return arguments;
}

int lockAndRun(Context& context, const Arguments& arguments) {
    const std::string path = globalFile(context, arguments.file);
    judgeFile(path, "lock it", true);
    RegistryFile file(path);
    const unsigned int code = file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 0);
    if (code != 0) {
        throw libraryFailure(code, path, "lock it");
    }
    const int result = runCommand(context, arguments.command);
    const unsigned int unlocked = file.UnLock();
    if (unlocked != 0) {
        throw libraryFailure(unlocked, path, "give the lock back");
    }
    return result;
}

Action declareStatus(CLI::App& parser) {
    auto file = std::make_shared<std::string>();
    addOptionalFile(parser, *file, "the registry file; the global registry when there is none");
    return [file](Context& context) { return status(context, *file); };
}

Action declareRun(CLI::App& parser) {
    auto arguments = std::make_shared<Arguments>();
    addOptionalFile(parser, arguments->file, "the registry file; the global registry when there is none");
    parser.add_option("CMD", arguments->command, "the command and its arguments, behind \"--\"");
    return [arguments](Context& context) { return lockAndRun(context, split(context, *arguments)); };
}

constexpr Command COMMANDS[] = {
    {"lock status", "who holds the lock, since when; exits 0 when it is free, 4 when it is held", USES_REGISTRY,
     declareStatus},
    {"lock run", "run a command under the lock; exits with its status", USES_REGISTRY, declareRun},
};

}  // namespace

std::span<const Command> lockCommands() {
    return COMMANDS;
}

}  // namespace tool

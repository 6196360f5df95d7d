#include "ToolRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/Pattern.h"

namespace prove {
namespace {

constexpr int CANNOT_RUN = 127;
constexpr unsigned int LONGEST = 30;  // seconds

std::string readAll(int descriptor) {
    std::string text;
    char piece[4096];
    for (ssize_t got = 0; (got = ::read(descriptor, piece, sizeof piece)) > 0;) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    (void)::close(descriptor);
    return text;
}

[[noreturn]] void become(const std::string& tool, const Words& words, const std::function<void()>& inside) {
    std::vector<char*> arguments{const_cast<char*>(tool.c_str())};
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    inside();
    // Signals are a program's own affair: a shell hands them on as they were made.
    for (const int number : {SIGXFSZ, SIGPIPE}) {
        (void)::signal(number, SIG_DFL);
    }
    (void)::alarm(LONGEST);
    (void)::execv(arguments[0], arguments.data());
    ::_exit(CANNOT_RUN);
}

std::string missing(const std::string& what, const ToolRun& run) {
    return what + " is missing in: " + run.err;
}

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string wrongStatus(const ToolRun& run, int status) {
    return "exit " + std::to_string(run.status) + ", not " + std::to_string(status) + ": " + run.err;
}

}  // namespace

ToolRun runTool(const std::string& tool, const Words& words, const std::function<void()>& inside) {
    int out[2];
    int err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
        std::abort();
    }
    const pid_t child = ::fork();
    if (child == 0) {
        const int nowhere = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        (void)::dup2(nowhere, STDIN_FILENO);
        (void)::dup2(out[1], STDOUT_FILENO);
        (void)::dup2(err[1], STDERR_FILENO);
        become(tool, words, inside);
    }
    (void)::close(out[1]);
    (void)::close(err[1]);
    ToolRun run;
    run.out = readAll(out[0]);
    run.err = readAll(err[0]);
    int status = 0;
    if (child != -1 && ::waitpid(child, &status, 0) == child) {
        run.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    return run;
}

std::string wrongWith(const ToolRun& run, const std::string& path, const Complaint& expected) {
    if (run.status != expected.status) {
        return wrongStatus(run, expected.status);
    }
    static const char* const PATTERN = "genreg: [^\n]*\n  try: [^\n]*   \\[0x[0-9a-f]{8}\\]\n";
    if (matched(run.err, PATTERN).empty()) {
        return "no message with an advice and a code: " + run.err;
    }
    const std::size_t advice = run.err.find("\n  try: ");
    const std::string message = run.err.substr(0, advice);
    if (!holds(message, path)) {
        return missing("the file", run);
    }
    if (!holds(message, expected.reason)) {
        return missing("the reason (" + expected.reason + ")", run);
    }
    if (!holds(run.err.substr(advice), expected.remedy)) {
        return missing("the remedy (" + expected.remedy + ")", run);
    }
    return run.out.empty() ? "" : "a failure has a result: " + run.out;
}

std::string wrongWithJson(const ToolRun& run, const std::string& path, const Complaint& expected) {
    if (run.status != expected.status) {
        return wrongStatus(run, expected.status);
    }
    static const char* const PATTERN =
        "\\{\"schema\":1,\"kind\":\"[a-z-]+\",\"exit\":([0-9]+),\"code\":\"0x[0-9a-f]{8}\",\"operation\":\"[a-z ]+\","
        "\"path\":\"([^\"]*)\",\"message\":\"([^\"]*)\",\"hint\":\"([^\"]*)\"\\}\n";
    const std::vector<std::string> parts = matched(run.err, PATTERN);
    if (parts.empty()) {
        return "no object with all members: " + run.err;
    }
    const bool good = parts[1] == std::to_string(expected.status) && parts[2] == path &&
                      holds(parts[3], expected.reason) && holds(parts[4], expected.remedy);
    return good ? "" : missing("a part", run);
}

}  // namespace prove

// Runs the built tool as a child process, in a folder of the test's own.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <sstream>

#include "support/GlobalScratch.h"
#include "support/ParsedJson.h"

struct Result {
    int status = -1;  // as a shell tells it: 128 plus the signal for a process that a signal ended
    std::string out;
    std::string err;
};

struct Surroundings {
    std::string standardOutput;  // instead of a file that is read back
    unsigned long fileSizeLimit = 0;
    bool unprivileged = false;  // when the test runs as root
    unsigned long memoryLimit = 0;
    std::string terminal{};  // for standard input and standard error, which are not read back
};

class ToolTest : public GlobalScratch {
protected:
    using Words = std::vector<std::string>;
    using Json = ParsedJson;

    // The tool is given the words of a line, which ends at blanks, and more that may be anything.
    Result genreg(const std::string& line, const Words& more = {}, const Surroundings& around = {}) {
        return finish(start(line, more, around));
    }
    int status(const std::string& line, const Words& more = {}) { return genreg(line, more).status; }
    // What it prints when it succeeds, and the first of the objects.
    std::string out(const std::string& line, const Words& more = {}) {
        const Result result = genreg(line, more);
        EXPECT_EQ(result.status, 0) << line << ": " << result.err;
        return result.out;
    }
    Json object(const std::string& line, const Words& more = {}) { return objects(out("--json " + line, more)).at(0); }
    // It must end like that, say so, and print nothing else.
    void expectFailure(int status, const std::string& said, const std::string& line, const Words& more = {}) {
        const Result result = genreg(line, more);
        EXPECT_EQ(result.status, status) << line << ": " << result.err;
        EXPECT_EQ(result.out, "") << line;
        EXPECT_NE(result.err.find(said), std::string::npos) << line << ": " << result.err;
    }

    // Starts the tool in the folder; its outputs go to files that finish() reads.
    struct Running {
        pid_t pid;
        std::string out;
        std::string err;
    };
    Running start(const std::string& line, const Words& more = {}, const Surroundings& around = {}) {
        Words words{program_};
        std::istringstream stream(line);
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
        words.insert(words.end(), more.begin(), more.end());
        const std::string base = folder() + ".run" + std::to_string(++runs_);
        Running running{0, around.standardOutput.empty() ? base + ".out" : around.standardOutput,
                        around.terminal.empty() ? base + ".err" : around.terminal};
        running.pid = ::fork();
        if (running.pid == 0) {
            become(words, running, around);
        }
        return running;
    }
    Result finish(const Running& running) {
        const int ended = waitFor(running.pid);
        Result result{ended < 0 ? 128 - ended : ended, "", ""};
        if (running.err.ends_with(".err")) {
            result.err = taken(running.err);
        }
        if (running.out.ends_with(".out")) {
            result.out = taken(running.out);
        }
        return result;
    }

    // Another one that is made of the tool's rooms.
    void runProgram(const std::string& program) { program_ = program; }

    static std::vector<Json> objects(const std::string& lines) {
        std::vector<Json> result;
        std::istringstream stream(lines);
        for (std::string line; std::getline(stream, line);) {
            result.push_back(Json::parse(line));
        }
        return result;
    }

private:
    [[nodiscard]] std::string taken(const std::string& file) const {
        std::string bytes = read(file);
        remove(file);
        return bytes;
    }

    [[noreturn]] void become(Words& words, const Running& running, const Surroundings& around) const {
        constexpr int CANNOT_START = 99;
        constexpr uid_t NOBODY = 65534;
        if (std::freopen(running.out.c_str(), "w", stdout) == nullptr ||
            std::freopen(running.err.c_str(), "w", stderr) == nullptr ||
            std::freopen(around.terminal.empty() ? "/dev/null" : around.terminal.c_str(), "r", stdin) == nullptr ||
            ::chdir(folder().c_str()) != 0) {
            ::_exit(CANNOT_START);
        }
        if (around.fileSizeLimit != 0) {
            const rlimit limit{around.fileSizeLimit, around.fileSizeLimit};
            (void)::setrlimit(RLIMIT_FSIZE, &limit);
        }
        if (around.memoryLimit != 0) {
            const rlimit limit{around.memoryLimit, around.memoryLimit};
            (void)::setrlimit(RLIMIT_AS, &limit);
        }
        if (around.unprivileged && ::getuid() == 0 && ::setuid(NOBODY) != 0) {
            ::_exit(CANNOT_START);
        }
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        ::execv(arguments[0], arguments.data());
        ::_exit(CANNOT_START);
    }

    std::string program_ = BUILT_TOOL;
    int runs_ = 0;
};

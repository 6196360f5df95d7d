// Runs the built tool as a child process, in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

struct Result {
    int status = -1;  // as a shell tells it: 128 plus the signal for a process that a signal ended
    std::string out;
    std::string err;
};

struct Surroundings {
    std::string standardOutput;  // instead of a file that is read back
    unsigned long fileSizeLimit = 0;
    bool unprivileged = false;  // when the test runs as root
};

class Scratch : public testing::Test {
protected:
    Scratch() {
        std::string name = std::filesystem::temp_directory_path() / "genreg-test.XXXXXX";
        folder_ = mkdtemp(name.data());
        std::filesystem::permissions(folder_, std::filesystem::perms(0755));
    }
    ~Scratch() override { std::filesystem::remove_all(folder_); }

    std::string at(const std::string& name) const { return folder_ / name; }

    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(at(name), std::ios::binary) << bytes;
    }
    std::string read(const std::string& name) const {
        std::ifstream stream(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    // Names in the folder; hidden ones too.
    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            result.push_back(entry.path().filename());
        }
        std::sort(result.begin(), result.end());
        return result;
    }

    // Starts the tool in the folder; its outputs go to files that finish() reads.
    struct Running {
        pid_t pid;
        std::string out;
        std::string err;
    };
    Running start(const std::vector<std::string>& arguments, const Surroundings& around = {}) {
        const std::string base = folder_.string() + ".run" + std::to_string(++runs_);
        Running running{0, around.standardOutput.empty() ? base + ".out" : around.standardOutput, base + ".err"};
        running.pid = fork();
        if (running.pid == 0) {
            become(arguments, running, around);
        }
        return running;
    }
    static Result finish(const Running& running) {
        int ended = 0;
        EXPECT_EQ(waitpid(running.pid, &ended, 0), running.pid);
        Result result;
        result.status = WIFSIGNALED(ended) ? 128 + WTERMSIG(ended) : WEXITSTATUS(ended);
        result.err = slurp(running.err);
        if (running.out.ends_with(".out")) {
            result.out = slurp(running.out);
        }
        return result;
    }
    Result genreg(const std::vector<std::string>& arguments, const Surroundings& around = {}) {
        return finish(start(arguments, around));
    }

    static std::vector<nlohmann::ordered_json> objects(const std::string& lines) {
        std::vector<nlohmann::ordered_json> result;
        std::istringstream stream(lines);
        for (std::string line; std::getline(stream, line);) {
            result.push_back(nlohmann::ordered_json::parse(line));
        }
        return result;
    }

private:
    static std::string slurp(const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(stream), {}};
        std::filesystem::remove(path);
        return bytes;
    }

    [[noreturn]] void become(const std::vector<std::string>& arguments, const Running& running,
                             const Surroundings& around) const {
        constexpr int CANNOT_START = 99;
        constexpr uid_t NOBODY = 65534;
        if (std::freopen(running.out.c_str(), "w", stdout) == nullptr ||
            std::freopen(running.err.c_str(), "w", stderr) == nullptr ||
            std::freopen("/dev/null", "r", stdin) == nullptr || chdir(folder_.c_str()) != 0) {
            _exit(CANNOT_START);
        }
        if (around.fileSizeLimit != 0) {
            const rlimit limit{around.fileSizeLimit, around.fileSizeLimit};
            (void)setrlimit(RLIMIT_FSIZE, &limit);
        }
        if (around.unprivileged && getuid() == 0 && setuid(NOBODY) != 0) {
            _exit(CANNOT_START);
        }
        std::vector<char*> words{const_cast<char*>(RVN_TOOL)};
        for (const std::string& argument : arguments) {
            words.push_back(const_cast<char*>(argument.c_str()));
        }
        words.push_back(nullptr);
        execv(words[0], words.data());
        _exit(CANNOT_START);
    }

    std::filesystem::path folder_;
    int runs_ = 0;
};

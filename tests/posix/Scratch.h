// What the platform's tests share: a directory of their own, and children that report through their exit code.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class Scratch : public ::testing::Test {
protected:
    Scratch() {
        char pattern[] = "/tmp/rvn-platform-XXXXXX";
        directory_ = ::mkdtemp(pattern);
        ::chmod(directory_.c_str(), 0755);
    }
    ~Scratch() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] std::string path(const std::string& name) const { return directory_ + "/" + name; }

    [[nodiscard]] std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name)) << text;
        return path(name);
    }

    [[nodiscard]] static std::string read(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string directory_;
};

inline int waitFor(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Runs the body in a forked child; its result is the child's exit code.
template <typename Body>
int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    return waitFor(child);
}

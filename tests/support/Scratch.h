// A folder of the test's own, its environment, and children that report through their exit code.
#pragma once

#include <ThisSystem.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class Scratch : public ::testing::Test {
protected:
    Scratch() {
        std::string pattern = std::filesystem::temp_directory_path() / "rvn-test-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        ::chmod(folder_.c_str(), 0755);
    }
    ~Scratch() override { std::filesystem::remove_all(folder_); }

    [[nodiscard]] std::string folder() const { return folder_; }
    // Names are those of the folder; a full path is taken as it is.
    [[nodiscard]] std::string path(const std::string& name) const { return folder_ / name; }
    [[nodiscard]] bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] std::vector<std::string> lines(const std::string& name) const {
        std::vector<std::string> found;
        std::ifstream file(path(name));
        for (std::string line; std::getline(file, line);) {
            found.push_back(line);
        }
        return found;
    }
    void remove(const std::string& name) const { std::filesystem::remove_all(path(name)); }
    void link(const std::string& target, const std::string& name) const {
        std::filesystem::create_symlink(target, path(name));
    }

    // All names but one, sorted, hidden ones too: ".reg.lock reg".
    [[nodiscard]] std::string names(const std::string& without = "") const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        std::string all;
        for (const std::string& name : found) {
            all += name == without ? "" : (all.empty() ? "" : " ") + name;
        }
        return all;
    }

private:
    std::filesystem::path folder_;
};

// A variable of the environment for as long as the object lives; null: unset.
class Variable {
public:
    Variable(const char* name, const char* value) : name_(name) {
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~Variable() { ::unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
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

// Runs the test case Scenario.DISABLED_<scenario> of this program anew, with no variables but these; its exit code.
inline int runAnew(const std::string& scenario, std::vector<std::string> variables) {
    std::vector<std::string> arguments = {this_system::PROGRAM, "--gtest_filter=Scenario.DISABLED_" + scenario,
                                          "--gtest_also_run_disabled_tests", "--gtest_brief=1"};
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> all;
        for (std::string& text : texts) {
            all.push_back(text.data());
        }
        all.push_back(nullptr);
        return all;
    };
    return inChild([&] {
        ::execve(arguments[0].c_str(), pointers(arguments).data(), pointers(variables).data());
        return 127;
    });
}

// What this process holds open, without the diagnostic log, which stays open once a failure was written to it.
inline long openDescriptors() {
    const char* const log = std::getenv("RVN_DIAG_LOG");
    long count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(this_system::OPEN_DESCRIPTORS)) {
        std::error_code ignored;
        const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), ignored);
        count += log != nullptr && target == log ? 0 : 1;
    }
    return count;
}

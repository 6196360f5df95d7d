// A program at a terminal of the test's own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

class Terminal {
public:
    // Runs the words in a session of its own, in the folder, with these settings of the environment ("NAME=value").
    Terminal(const std::vector<std::string>& words, const std::string& folder,
             const std::vector<std::string>& environment, unsigned short columns = 80) {
        master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) {
            return;
        }
        const std::string name = ::ptsname(master_);
        child_ = ::fork();
        if (child_ == 0) {
            become(words, folder, environment, name, columns);
        }
    }
    ~Terminal() {
        if (child_ > 0) {
            ::kill(child_, SIGKILL);
            (void)::waitpid(child_, nullptr, 0);
        }
        if (master_ >= 0) {
            ::close(master_);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& keys) const {
        ASSERT_EQ(::write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    // Whether the text came before the patience ended. What was shown stays in shown().
    bool shows(const std::string& text) {
        return readUntil([&] { return shown_.find(text) != std::string::npos; });
    }
    void forget() { shown_.clear(); }
    [[nodiscard]] const std::string& shown() const { return shown_; }

    // Reads to the end; as a shell tells it: 128 plus the signal for one that a signal ended.
    int ended() {
        (void)readUntil([] { return false; });
        int result = 0;
        if (::waitpid(child_, &result, 0) != child_) {
            return -1;
        }
        child_ = -1;
        return WIFSIGNALED(result) ? 128 + WTERMSIG(result) : WEXITSTATUS(result);
    }

private:
    bool readUntil(const std::function<bool()>& enough) {
        constexpr std::chrono::seconds PATIENCE{20};
        const auto end = std::chrono::steady_clock::now() + PATIENCE;
        while (!enough()) {
            pollfd ready{master_, POLLIN, 0};
            char bytes[4096];
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            if (::poll(&ready, 1, 100) <= 0) {
                continue;
            }
            const ssize_t count = ::read(master_, bytes, sizeof bytes);
            if (count <= 0) {
                return enough();
            }
            shown_.append(bytes, static_cast<std::size_t>(count));
        }
        return true;
    }

    [[noreturn]] static void become(const std::vector<std::string>& words, const std::string& folder,
                                    const std::vector<std::string>& environment, const std::string& name,
                                    unsigned short columns) {
        ::setsid();
        const int terminal = ::open(name.c_str(), O_RDWR);
        const winsize size{24, columns, 0, 0};
        (void)::ioctl(terminal, TIOCSCTTY, 0);
        (void)::ioctl(terminal, TIOCSWINSZ, &size);
        for (const int standard : {0, 1, 2}) {
            (void)::dup2(terminal, standard);
        }
        for (const std::string& setting : environment) {
            (void)::putenv(const_cast<char*>(setting.c_str()));
        }
        std::vector<char*> arguments;
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        if (::chdir(folder.c_str()) == 0) {
            ::execvp(arguments[0], arguments.data());
        }
        ::_exit(99);
    }

    int master_ = -1;
    pid_t child_ = -1;
    std::string shown_;
};

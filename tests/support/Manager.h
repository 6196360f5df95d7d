// The manager that starts services, as a program that it has started sees it.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "support/Scratch.h"

// Listens as the manager that starts services does, at a path or, with @ in front, at a name in no file system.
class Manager {
public:
    explicit Manager(const std::string& name)
        : variable_("NOTIFY_SOCKET", name.c_str()), socket_(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
        (void)::fcntl(socket_, F_SETFD, FD_CLOEXEC);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path);
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), length), 0);
    }
    ~Manager() { ::close(socket_); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // What is told next; nothing when nothing is for a long time.
    [[nodiscard]] std::string next() const {
        constexpr int PATIENCE_MILLISECONDS = 20000;
        pollfd polled{socket_, POLLIN, 0};
        char text[4096];
        const bool told = ::poll(&polled, 1, PATIENCE_MILLISECONDS) == 1;
        const ssize_t length = told ? ::recv(socket_, text, sizeof text, 0) : 0;
        return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
    }
    // Whether it is told some time, and the first thing when it is asked to be.
    [[nodiscard]] bool hears(const std::string& begin, bool first = false) const {
        std::string told = next();
        while (!first && !told.empty() && !told.starts_with(begin)) {
            told = next();
        }
        return told.starts_with(begin);
    }

private:
    Variable variable_;
    int socket_;
};

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "Tool.h"

namespace {

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

class ServiceManager : public ToolTest {
protected:
    int end(const Running& running) {
        ::kill(running.pid, SIGTERM);
        return finish(running).status;
    }
};

TEST_F(ServiceManager, IsToldWhatAWatcherDoes) {
    write("lines", "a = 1\nb = 2\n");
    const Manager manager(path("notify"));
    const Running running = start("watch lines --exec", {"echo [$NOTIFY_SOCKET] > seen"});
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=lines: 2 lines");
    EXPECT_EQ(status("varval add lines c 3"), 0);
    EXPECT_TRUE(manager.hears("READY=1\nSTATUS=lines: 3 lines"));
    EXPECT_EQ(read("seen"), "[]\n") << "a command must not speak for the tool";
    EXPECT_EQ(end(running), 0);
    EXPECT_TRUE(manager.hears("STOPPING=1"));
}

TEST_F(ServiceManager, ThatIsGoneOrNowhereStopsNobody) {
    write("lines", "a = 1\n");
    for (const std::string& name : {std::string("@"), path("nobody"), std::string("relative"), std::string(200, '/')}) {
        const Variable variable("NOTIFY_SOCKET", name.c_str());
        const Running running = start("watch lines --exec", {"kill $PPID"});
        while (read(running.err).find("watching") == std::string::npos) {
            ::usleep(1000);
        }
        EXPECT_EQ(status("varval set lines a " + std::to_string(name.size() + 2)), 0);
        EXPECT_EQ(finish(running).status, 0) << name;
    }
}

using MonitorOfManager = InPrivateWorld<ServiceManager, Programs::AreRun>;

TEST_F(MonitorOfManager, TellsThatASignalHasItLookAnew) {
    const Manager manager("@genreg-test-" + std::to_string(::getpid()));
    const Running running = start("watch");
    EXPECT_TRUE(manager.hears("READY=1\nSTATUS=" + registry() + ": 0 records", true));
    ::kill(running.pid, SIGHUP);
    const std::string told = manager.next();
    EXPECT_TRUE(told.starts_with("RELOADING=1\nMONOTONIC_USEC=")) << told;
    EXPECT_TRUE(manager.hears("READY=1", true));
    EXPECT_EQ(end(running), 0);
    EXPECT_TRUE(manager.hears("STOPPING=1", true));
}

}  // namespace

#include <signal.h>

#include "Tool.h"
#include "support/Manager.h"

namespace {

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

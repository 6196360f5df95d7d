#include <fcntl.h>
#include <poll.h>
#include <signal.h>

#include <ctime>
#include <functional>
#include <thread>

#include "Tool.h"

namespace {

class Watch : public ToolTest {
protected:
    Running watch(const std::string& options, const Words& more = {}) {
        Running running = start("watch " + options, more);
        EXPECT_TRUE(tells(running.err, "watching")) << read(running.err);
        return running;
    }
    void set(const std::string& fields) { EXPECT_EQ(status("instance set RVN 9.7.0.2 " + fields), 0); }
    static std::string instanceFrame(const std::string& name) {
        return frame(RecordImage(1, 0x7).text("RVN").version().text(name).end());
    }

    // Until it holds; no test waits for ever.
    static bool soon(const std::function<bool()>& holds) {
        for (int i = 0; i < 2000; ++i) {
            if (holds()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }
    [[nodiscard]] bool tells(const std::string& file, const std::string& text) const {
        return soon([&] { return read(file).find(text) != std::string::npos; });
    }
};

TEST_F(Watch, AFollowerTellsBeforeAndAfter) {
    set("inst1");
    const Running table = watch("--follow");
    const Running lines = watch("--follow --json");
    set("inst2 startAtBoot=1");
    EXPECT_TRUE(tells(lines.out, "\"inst2\"") && tells(table.out, "inst2"));
    set("inst2 startAtBoot=");
    EXPECT_TRUE(tells(lines.out, "\"change\"") && tells(table.out, "change"));
    EXPECT_EQ(status("instance remove RVN 9.7.0.2 inst1"), 0);
    EXPECT_TRUE(tells(lines.out, "\"delete\""));
    EXPECT_TRUE(tells(table.out, "delete   instance RVN 9.7.0.2 inst1"));
    ::kill(table.pid, SIGINT);
    ::kill(lines.pid, SIGTERM);
    const Result shown = finish(table);
    EXPECT_EQ(shown.status, 0);
    EXPECT_NE(shown.out.find("change   instance RVN 9.7.0.2 inst2  startAtBoot: 1 -> "), std::string::npos)
        << shown.out;
    const Result told = finish(lines);
    EXPECT_EQ(told.status, 0);
    const auto changes = objects(told.out);
    ASSERT_EQ(changes.size(), 3U);
    EXPECT_EQ(changes[0]["before"], nullptr);
    EXPECT_EQ(changes[0]["after"]["startAtBoot"], 1);
    EXPECT_EQ(changes[1]["service"].text() + changes[1]["versionCode"].text() + changes[1]["instanceName"].text(),
              "RVN9.7.0.2inst2");
    EXPECT_EQ(changes[1]["operation"].text() + changes[1]["type"].text(), "watchinstance");
    EXPECT_EQ(changes[1]["changed"], true);
    EXPECT_EQ(changes[1]["before"]["startAtBoot"], 1);
    EXPECT_EQ(changes[2]["after"], nullptr);
}

TEST_F(Watch, TextsOfRecordsAreShownAsOneFieldAndHarmless) {
    const auto record = [](const std::string& comment, const std::string& item) {
        return frame(RecordImage(1, 0x607).text("RVN").version().text("i").text(comment).item(item).end());
    };
    write("global.reg", record("a", "\x01"));
    const Running table = watch("--follow");
    const Running lines = watch("--follow --json");
    write("new", record("\x1b]0;x\x07 \" y: 1\\\xc2\x9b\xe2\x80\xae\x7f", "\x02"));
    std::filesystem::rename(path("new"), path("global.reg"));
    EXPECT_TRUE(tells(table.out, "\n"));
    EXPECT_TRUE(tells(lines.out, "\n"));
    ::kill(table.pid, SIGINT);
    ::kill(lines.pid, SIGINT);
    const std::string shown = finish(table).out;
    EXPECT_NE(shown.find(R"(i  comment: a -> "\x1b]0;x\x07 \" y: 1\\\xc2\x9b\xe2\x80\xae\x7f" 0x400: 01 -> 02)"
                         "\n"),
              std::string::npos)
        << shown;
    const std::string told = finish(lines).out;
    for (const char* raw : {"\x1b", "\xc2\x9b", "\x7f", "\xe2\x80\xae"}) {
        EXPECT_EQ(told.find(raw), std::string::npos) << told;
    }
    const Json change = objects(told).at(0);
    EXPECT_EQ(change["after"]["comment"], "\x1b]0;x\x07 \" y: 1\\\xc2\x9b\xe2\x80\xae\x7f");
    EXPECT_EQ(change["after"]["unknown"].dump(), R"([{"bit":"0x400","base64":"Ag=="}])");
}

TEST_F(Watch, ADamagedFileIsNoDeletion) {
    write("global.reg", instanceFrame("inst1"));
    const Running running = watch("--follow --json");
    write("global.reg", instanceFrame("inst1").substr(0, 20));
    EXPECT_TRUE(tells(running.err, "damaged at offset 0"));
    write("global.reg", instanceFrame("inst1") + instanceFrame("inst2"));
    EXPECT_TRUE(tells(running.out, "inst2"));
    remove("global.reg");
    EXPECT_TRUE(soon([&] { return objects(read(running.out)).size() == 3; })) << read(running.out);
    ::kill(running.pid, SIGTERM);
    const auto changes = objects(finish(running).out);
    EXPECT_EQ(changes.at(0)["action"], "add");
    EXPECT_EQ(changes.at(1)["action"], "delete");
}

TEST_F(Watch, ACommandRunsForEachChange) {
    const Running running =
        watch("--follow --exec", {"cat >> got; echo \"$GENREG_ACTION $GENREG_NAME\" >> names; exit 3"});
    write("global.reg", instanceFrame("inst1") + instanceFrame("inst2"));
    EXPECT_TRUE(tells("names", "add inst2"));
    EXPECT_TRUE(tells(running.err, "ended with 3"));
    ::kill(running.pid, SIGTERM);
    EXPECT_EQ(finish(running).status, 0);
    EXPECT_EQ(read("names"), "add inst1\nadd inst2\n");
    EXPECT_EQ(objects(read("got")).at(1)["instanceName"], "inst2");
    // One that does not end is ended with the watcher.
    const Running slow = watch("--follow --exec", {"echo $$ > pid; sleep 60"});
    write("global.reg", instanceFrame("inst1"));
    EXPECT_TRUE(tells("pid", "\n"));
    ::kill(slow.pid, SIGTERM);
    EXPECT_EQ(finish(slow).status, 0);
    EXPECT_NE(::kill(std::stoi(read("pid")), 0), 0);
}

// It is asked first and given time, then killed with all that it started; an orphan would hold the pipe open.
TEST_F(Watch, ACommandThatIgnoresTheEndIsKilledInTheEnd) {
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    const int pipe = ::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const Running running =
        watch("--follow --exec", {"exec 3> pipe; trap '' TERM; echo $$ > pid; sleep 15; touch survived"});
    write("global.reg", instanceFrame("inst1"));
    EXPECT_TRUE(tells("pid", "\n"));
    ::kill(running.pid, SIGTERM);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_EQ(::kill(std::stoi(read("pid")), 0), 0) << "it is given time";
    EXPECT_EQ(finish(running).status, 0);
    pollfd end = {pipe, 0, 0};
    EXPECT_EQ(::poll(&end, 1, 2000), 1) << "a child of the command lives on";
    EXPECT_FALSE(exists("survived"));
    ::close(pipe);
}

TEST_F(Watch, LinesAreToldByWhatFindsThem) {
    write("v", "# top\na = 1 # c\nb = 2\n");
    write("services", "http 80/tcp www\nhttp 80/udp\n");
    const Running lines = watch("v services --json");
    const Running table = watch("services v");
    const auto told = [&](std::size_t count) {
        EXPECT_TRUE(soon([&] { return objects(read(lines.out)).size() >= count; })) << read(lines.out);
        return objects(read(lines.out)).at(count - 1);
    };
    EXPECT_EQ(status("varval set v a 3"), 0);
    const Json change = told(1);
    EXPECT_EQ(change["path"].text() + " " + change["type"].text() + " " + change["name"].text(), "v varval a");
    EXPECT_EQ(change["before"].dump(), R"({"line":2,"value":"1","comment":"c","text":"a = 1 # c"})");
    EXPECT_EQ(change["after"].dump(), R"({"line":2,"value":"3","comment":"c","text":"a = 3 # c"})");
    EXPECT_EQ(status("services set services http 8080/udp"), 0);
    EXPECT_EQ(told(2)["protocol"], "udp");
    EXPECT_EQ(told(2)["before"]["port"], 80);
    EXPECT_EQ(status("services delete services http/tcp"), 0);
    EXPECT_EQ(told(3)["action"].text() + " " + told(3)["protocol"].text(), "delete tcp");
    // A line that only moved is no change; one that nothing finds is told as it is, and so is what the fields hide.
    write("new", "b = 2\n# bottom\na  = 3 # c\nodd\n");
    std::filesystem::rename(path("new"), path("v"));
    EXPECT_EQ(told(7)["after"]["text"], "odd");
    std::string actions;
    const std::vector<Json> all = objects(read(lines.out));
    for (std::size_t i = 3; i < all.size(); ++i) {
        actions += all[i]["action"].text() + " " + all[i]["type"].text() + " " +
                   (all[i]["after"] == nullptr ? all[i]["before"] : all[i]["after"])["text"].text() + "; ";
    }
    EXPECT_EQ(actions, "delete line # top; add line # bottom; change varval a  = 3 # c; add line odd; ");
    EXPECT_TRUE(tells(table.out, "odd"));
    ::kill(lines.pid, SIGTERM);
    ::kill(table.pid, SIGTERM);
    EXPECT_EQ(finish(lines).status, 0);
    const std::string shown = finish(table).out;
    for (const char* line :
         {"Z  v  change   varval a  value: 1 -> 3\n", "Z  services  change   services http udp  port: 80 -> 8080\n",
          "Z  v  delete   line 1  # top\n", "Z  v  change   varval a  line: \"a = 3 # c\" -> \"a  = 3 # c\"\n"}) {
        EXPECT_NE(shown.find(line), std::string::npos) << shown;
    }
}

TEST_F(Watch, AFileThatIsNotThereIsWaitedFor) {
    const Running running =
        watch("v --exec", {"echo \"$GENREG_ACTION $GENREG_TYPE $GENREG_NAME$GENREG_LINE\" >> names"});
    EXPECT_TRUE(tells(running.err, "it is waited for"));
    write("v", "a = 1\nb = 1\n");
    EXPECT_TRUE(tells("names", "add varval b\n"));
    remove("v");
    EXPECT_TRUE(soon([&] { return read(running.err).find("waited for") != read(running.err).rfind("waited for"); }));
    write("v", "a = 1\n# c\n");
    EXPECT_TRUE(tells("names", "add line 2\n"));
    ::kill(running.pid, SIGTERM);
    EXPECT_EQ(finish(running).status, 0);
    EXPECT_EQ(read("names"), "add varval a\nadd varval b\ndelete varval b\nadd line 2\n");
}

TEST_F(Watch, BinaryFilesAreToldAsWhatTheyHold) {
    EXPECT_EQ(status("binvar add b x 1"), 0);
    const Running running = watch("b g --json");
    EXPECT_EQ(status("binvar set b x 2"), 0);
    EXPECT_TRUE(tells(running.out, "binvar"));
    write("g", instanceFrame("inst1"));
    EXPECT_TRUE(tells(running.out, "inst1"));
    ::kill(running.pid, SIGTERM);
    const auto changes = objects(finish(running).out);
    ASSERT_EQ(changes.size(), 2U);
    EXPECT_EQ(changes[0]["after"].dump(), R"({"record":1,"value":2,"comment":""})");
    EXPECT_EQ(changes[1]["type"], "instance");
}

using Monitor = InPrivateWorld<Watch, Programs::AreRun>;

constexpr char LOCK[] = "/var/rvn/.fmcd.lock";

// This process holds the lock: as one that the system cannot name, then as a monitor.
TEST_F(Monitor, IsNotWokenByARehearsal) {
    const int file = ::open(LOCK, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    set("inst1");
    ASSERT_EQ(this_system::lockOpenFile(file, &lock), 0);
    const Json shown = object("status")["monitor"];
    EXPECT_EQ(shown["held"], true);
    EXPECT_TRUE(shown["pid"].is_null());
    lock.l_type = F_UNLCK;
    ASSERT_EQ(this_system::lockOpenFile(file, &lock), 0);
    lock.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(file, F_SETLK, &lock), 0);
    sigset_t hangup;
    sigemptyset(&hangup);
    sigaddset(&hangup, SIGHUP);
    ASSERT_EQ(::sigprocmask(SIG_BLOCK, &hangup, nullptr), 0);
    const auto takeHangup = [&hangup] {
        sigset_t pending;
        int taken = 0;
        return ::sigpending(&pending) == 0 && sigismember(&pending, SIGHUP) == 1 && ::sigwait(&hangup, &taken) == 0;
    };
    set("inst2 -n");
    EXPECT_FALSE(takeHangup());
    set("inst2");
    EXPECT_TRUE(takeHangup());
    ASSERT_EQ(::sigprocmask(SIG_UNBLOCK, &hangup, nullptr), 0);
    ::close(file);
}

TEST_F(Monitor, IsTheOneThatWritersWake) {
    link("/tmp/elsewhere", LOCK);
    const Running refused = start("watch");
    EXPECT_TRUE(tells(refused.err, "symbolic links")) << "one is planted where the lock should be";
    ::kill(refused.pid, SIGTERM);
    EXPECT_EQ(finish(refused).status, 3);
    EXPECT_FALSE(exists("/tmp/elsewhere"));
    std::filesystem::remove_all("/var/rvn");  // as on a machine where nothing was recorded yet
    const Running monitor = watch("--json");
    EXPECT_NE(read(monitor.err).find("/var/rvn\",\"message\":\"the folder is new\""), std::string::npos);
    expectFailure(4, "pid " + std::to_string(monitor.pid), "watch");
    set("inst1");
    EXPECT_TRUE(tells(monitor.out, "inst1"));
    ::kill(monitor.pid, SIGHUP);
    set("inst2 startAtBoot=1");
    EXPECT_TRUE(tells(monitor.out, "inst2")) << "a signal does not end it";
    ::kill(monitor.pid, SIGTERM);
    const Result told = finish(monitor);
    EXPECT_EQ(told.status, 0);
    EXPECT_EQ(objects(told.out).size(), 2U);
    const Running next = watch("");
    ::kill(next.pid, SIGINT);
    EXPECT_EQ(finish(next).status, 0) << "the lock was given back";
}

TEST_F(Watch, ADirectoryThatIsMovedAwayAndMadeAnewIsNoticed) {
    std::filesystem::create_directory(path("d"));
    const Running running = start("watch --follow --registry d/g");
    EXPECT_TRUE(tells(running.err, "watching")) << read(running.err);
    write("d/g", instanceFrame("inst1"));
    EXPECT_TRUE(tells(running.out, "add      instance RVN 9.7.0.2 inst1"));
    std::filesystem::rename(path("d"), path("e"));
    EXPECT_TRUE(tells(running.out, "delete   instance RVN 9.7.0.2 inst1"));
    std::filesystem::create_directory(path("d"));
    write("d/g", instanceFrame("inst2"));
    EXPECT_TRUE(tells(running.out, "add      instance RVN 9.7.0.2 inst2"));
    ::kill(running.pid, SIGTERM);
    EXPECT_EQ(finish(running).status, 0);
}

TEST_F(Watch, ACommandInheritsNothingOfTheTools) {
    const Running running = watch("--follow --exec", {"ls -l /proc/self/fd > fds; touch done"});
    set("inst1");
    EXPECT_TRUE(soon([&] { return exists("done"); }));
    ::kill(running.pid, SIGTERM);
    EXPECT_EQ(finish(running).status, 0);
    const std::string files = read("fds");
    EXPECT_EQ(files.find(running.out), std::string::npos) << files;
    EXPECT_EQ(files.find("(deleted)"), files.rfind("(deleted)")) << "the change, on standard input\n" << files;
}

TEST_F(Watch, AFullDiskEndsIt) {
    Surroundings full;
    full.standardOutput = "/dev/full";
    const Running running = start("watch --follow", {}, full);
    EXPECT_TRUE(tells(running.err, "watching")) << read(running.err);
    set("inst1");
    const Result ended = finish(running);
    EXPECT_EQ(ended.status, 8);
    EXPECT_NE(ended.err.find("no space left"), std::string::npos) << ended.err;
}

}  // namespace

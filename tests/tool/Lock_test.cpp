#include <fcntl.h>

#include <thread>

#include "Tool.h"
#include "support/Ways.h"

namespace {

class Lock : public ToolTest {
protected:
    // A holder of the lock of "f"; it holds it once the file "held" is there.
    Running hold(const std::string& seconds) {
        Running holder = start("lock run f -- sh -c", {"echo $$ > made; mv made held; exec sleep " + seconds});
        while (!exists("held")) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return holder;
    }
    void SetUp() override { write("f", "a = 1\n"); }
};

TEST_F(Lock, ACommandRunsUnderItAndItsStatusIsPassedOn) {
    const Result inside =
        genreg("lock run f -- sh -c",
               {std::string("echo out; '") + BUILT_TOOL + "' lock status f --json; exit 7", "--", "-x"});
    EXPECT_EQ(inside.status, 7);
    EXPECT_EQ(inside.out.substr(0, 4), "out\n");
    const Json report = objects(inside.out.substr(4)).at(0);
    EXPECT_EQ(report["held"], true);
    EXPECT_EQ(report["program"], "sh") << "for whom it is held";
    EXPECT_EQ(status("lock run f -- sh -c", {"kill -9 $$"}), 137);
    EXPECT_EQ(status("lock run f -- sh -c", {"kill -PIPE $$"}), 141) << "what the tool ignores is not its";
    EXPECT_EQ(status("lock run f -- no-such-command"), 127);
    EXPECT_EQ(status("lock run f -- ./f"), 126);
    EXPECT_EQ(status("lock run f"), 2);
    EXPECT_EQ(out("lock status f"), "f: free\n") << "the note that is left tells of nobody";
}

TEST_F(Lock, WhoWaitsIsToldForWhom) {
    const Running holder = hold("30");
    const std::string owner = "pid " + std::to_string(holder.pid) + " (sh)";
    const Result told = genreg("lock status f");
    EXPECT_EQ(told.status, 4);
    EXPECT_NE(told.out.find("held by " + owner), std::string::npos) << told.out;
    const Result atOnce = genreg("varval set f a 2 --wait 0");
    EXPECT_EQ(atOnce.status, 4);
    EXPECT_NE(atOnce.err.find("f is locked by " + owner + " for "), std::string::npos) << atOnce.err;
    EXPECT_NE(atOnce.err.find("[0x900001bc]"), std::string::npos) << atOnce.err;
    const Result later = genreg("lock run f --wait 1.5 -- true");
    EXPECT_EQ(later.status, 4);
    EXPECT_NE(later.err.find("waiting up to 1.5 s"), std::string::npos) << later.err;
    EXPECT_NE(later.err.find("gave up after 1.5 s"), std::string::npos) << later.err;
    EXPECT_EQ(out("varval get f a"), "1\n") << "reading needs no lock";

    // A holder that is killed leaves nothing that anybody has to clean up: where its command has the lock, that keeps
    // it to its end.
    ::kill(holder.pid, SIGKILL);
    EXPECT_EQ(finish(holder).status, 137);
    if (LENDS_LOCKS) {
        EXPECT_EQ(status("lock status f"), 4);
        ::kill(std::stoi(read("held")), SIGKILL);
    }
    while (status("lock status f") != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(status("lock status f"), 0);
    EXPECT_EQ(status("varval set f a 2 --wait 0"), 0);
}

TEST_F(Lock, APatienceCoversTheFileItself) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {  // a program that knows of no lock file
        const int descriptor = ::open(path("f").c_str(), O_RDWR);
        (void)!::write(ready[1], lockAsOthers(descriptor) == 0 ? "+" : "-", 1);
        ::pause();
    }
    char sign = 0;
    ASSERT_EQ(::read(ready[0], &sign, 1), 1);
    const std::string holder = NAMES_HOLDERS ? "pid " + std::to_string(child) : "another process, which left no note";
    for (const char* command : {"varval get f a", "varval list f", "varval get f a --type int", "varval set f a 2",
                                "services list f", "inittab list f", "binvar list f"}) {
        const Result told = genreg(std::string(command) + " --wait 0");
        EXPECT_EQ(told.status, 4) << command;
        EXPECT_NE(told.err.find("f is itself locked by " + holder), std::string::npos) << told.err;
    }
    EXPECT_NE(genreg("varval get f a --wait 1.2").err.find("gave up after 1.2 s"), std::string::npos);
    ::kill(child, SIGKILL);
    (void)waitFor(child);
    EXPECT_EQ(out("varval get f a --wait 0"), "1\n");
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(Lock, AWriterThroughALinkWaitsForTheRealFile) {
    std::filesystem::create_directory(path("d"));
    link("../f", "d/link");
    link("d/link", "chain");
    const Running holder = hold("0.4");
    EXPECT_EQ(status("lock status chain"), 4);
    EXPECT_EQ(status("varval set chain a 2"), 0);
    EXPECT_EQ(finish(holder).status, 0);
    EXPECT_EQ(read("f"), "a = 2\n");
    EXPECT_TRUE(std::filesystem::is_symlink(path("chain")));
}

TEST_F(Lock, ASignalReachesTheCommandAndTheLockEndsWithIt) {
    const Running holder = hold("30");
    ::kill(holder.pid, SIGTERM);
    EXPECT_EQ(finish(holder).status, 128 + SIGTERM);
    EXPECT_EQ(status("lock status f"), 0);
    EXPECT_TRUE(object("lock status f")["pid"].is_null()) << "who held it is nobody who holds it";
}

TEST_F(Lock, WhatRunsUnderItWorksUnderIt) {
    if (!LENDS_LOCKS) {
        GTEST_SKIP() << "locks have no parts here";
    }
    const std::string tool = std::string(BUILT_TOOL) + " ";
    write("g", "");
    link("f", "link");
    // Several at once, through a link, under a lock on another file, and under one more on the same.
    const auto under = [&](const std::string& script) {
        return genreg("lock run f --wait 0 -- sh -c", {"set -e; genreg() { " + tool + "\"$@\"; }; " + script});
    };
    const Result all = under(
        "genreg varval set link a 2 --wait 0; for i in 1 2 3 4 5 6; do genreg varval add f n$i $i & done; wait; "
        "genreg lock run g -- " +
        tool +
        "varval set f a 3 --wait 0; genreg varval add g x 1 --wait 0; "
        "genreg lock run f --wait 0 -- sh -c '" +
        tool + "varval set f a 4 --wait 0; " + tool + "lock run --wait 0 f -- " + tool +
        "varval add f b 5 --wait 0'; genreg varval set f a 6 --wait 0; exit 9");
    EXPECT_EQ(all.status, 9) << all.err;
    EXPECT_EQ(out("varval get f a") + out("varval get f b") + out("varval get g x"), "6\n5\n1\n");
    EXPECT_EQ(lines("f").size(), 8U);

    // It is told of what is not so: a descriptor that is closed, another file's, or one that holds no lock.
    for (const char* lie : {"exec 9<&-", "exec 9<g", "exec 9<>.f.lock"}) {
        const Result waits =
            genreg("lock run f -- sh -c", {std::string("export GENREG_HELD_LOCKS=9:${GENREG_HELD_LOCKS#*:}; ") + lie +
                                           "; printenv GENREG_HELD_LOCKS; exec " + tool + "varval set f a 0 --wait 0"});
        EXPECT_EQ(waits.status, 4) << lie << waits.err;
        EXPECT_EQ(std::count(waits.out.begin(), waits.out.end(), ':'), 4) << waits.out;
    }
    // Nor has anybody the lock who was told of it when it is over.
    const Result past =
        genreg("lock run f -- sh -c", {"(while [ ! -e go ]; do sleep 0.01; done; " + tool +
                                       "varval set f a 0 --wait 0 2> late; echo $? > done) > /dev/null &"});
    EXPECT_EQ(past.status, 0);
    const Running holder = hold("30");
    write("go", "");
    while (read("done").empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(read("done"), "4\n") << read("late");
    ::kill(holder.pid, SIGTERM);
    (void)finish(holder);
    EXPECT_EQ(out("varval get f a"), "6\n");
}

TEST_F(Lock, BelowASharedOneTheFileIsRead) {
    const std::string tool = std::string(BUILT_TOOL) + " ";
    const Result below =
        genreg("lock run --shared f -- sh -c",
               {tool + "varval get f a; " + tool + "lock run --shared f -- true; " + tool +
                "varval set f a 2 --wait 60; echo $?; " + tool + "lock run f --wait 60 -- true; echo $?"});
    EXPECT_EQ(below.out, "1\n4\n4\n") << below.err;
    EXPECT_NE(below.err.find("may read the file, not write it"), std::string::npos) << below.err;
    EXPECT_EQ(status("varval set f a 2 --wait 0"), 0);
}

TEST_F(Lock, StatusExplainsWhatAKilledWriterLeft) {
    EXPECT_EQ(status("lock run f -- sh -c", {"printf 'a =' > f.tmp; ln f .f.bkp; kill -9 $PPID"}), 137);
    const Json report = object("status f");
    EXPECT_EQ(report["lock"]["held"], false);
    std::map<std::string, std::string> found;
    for (const Json& companion : report["companions"].elements()) {
        found[companion["companion"].text()] = companion["meaning"].text();
    }
    EXPECT_NE(found["tmp"].find("interrupted"), std::string::npos);
    EXPECT_NE(found["bkp"].find("second name"), std::string::npos);
    EXPECT_EQ(status("varval set f a 2"), 0);
    EXPECT_EQ(read("f.cor"), "a =");
    EXPECT_EQ(names(), ".f.lock f f.cor");
    EXPECT_NE(out("status f").find("set aside"), std::string::npos);
}

}  // namespace

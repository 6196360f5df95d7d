#include <csignal>
#include <thread>

#include "Tool.h"

namespace {

class Lock : public Scratch {
protected:
    // A holder of the lock of "f"; it holds it once the file "held" is there.
    Running hold(const std::string& seconds) {
        Running holder = start({"lock", "run", "f", "--", "sh", "-c", "touch held; exec sleep " + seconds});
        while (!std::filesystem::exists(at("held"))) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return holder;
    }
    void SetUp() override { write("f", "a = 1\n"); }
};

TEST_F(Lock, ACommandRunsUnderItAndItsStatusIsPassedOn) {
    const Result inside =
        genreg({"lock", "run", "f", "--", "sh", "-c",
                std::string("echo out; '") + RVN_TOOL + "' lock status f --json; exit 7", "--", "-x"});
    EXPECT_EQ(inside.status, 7);
    EXPECT_EQ(inside.out.substr(0, 4), "out\n");
    const auto report = objects(inside.out.substr(4)).at(0);
    EXPECT_EQ(report["held"], true);
    EXPECT_EQ(report["program"], "genreg");
    EXPECT_EQ(genreg({"lock", "run", "f", "--", "sh", "-c", "kill -9 $$"}).status, 137);
    EXPECT_EQ(genreg({"lock", "run", "f", "--", "no-such-command"}).status, 127);
    EXPECT_EQ(genreg({"lock", "run", "f", "--", "./f"}).status, 126);
    EXPECT_EQ(genreg({"lock", "run", "f"}).status, 2);
    const Result after = genreg({"lock", "status", "f"});
    EXPECT_EQ(after.status, 0);
    EXPECT_EQ(after.out, "f: free\n") << "the note that is left tells of nobody";
}

TEST_F(Lock, WhoWaitsIsToldForWhom) {
    const Running holder = hold("30");
    const std::string pid = std::to_string(holder.pid);
    const Result status = genreg({"lock", "status", "f"});
    EXPECT_EQ(status.status, 4);
    EXPECT_NE(status.out.find("held by pid " + pid + " (genreg)"), std::string::npos) << status.out;

    const Result atOnce = genreg({"varval", "set", "f", "a", "2", "--wait", "0"});
    EXPECT_EQ(atOnce.status, 4);
    EXPECT_NE(atOnce.err.find("f is locked by pid " + pid + " (genreg) for "), std::string::npos) << atOnce.err;
    EXPECT_NE(atOnce.err.find("[0x900001bc]"), std::string::npos) << atOnce.err;
    const Result later = genreg({"lock", "run", "f", "--wait", "1.5", "--", "true"});
    EXPECT_EQ(later.status, 4);
    EXPECT_NE(later.err.find("waiting up to 1.5 s"), std::string::npos) << later.err;
    EXPECT_NE(later.err.find("gave up after 1.5 s"), std::string::npos) << later.err;
    // Reading needs no lock.
    EXPECT_EQ(genreg({"varval", "get", "f", "a"}).out, "1\n");

    // A holder that is killed leaves nothing that anybody has to clean up.
    kill(holder.pid, SIGKILL);
    EXPECT_EQ(finish(holder).status, 137);
    EXPECT_EQ(genreg({"lock", "status", "f"}).status, 0);
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2", "--wait", "0"}).status, 0);
}

TEST_F(Lock, AWriterThatWaitsGoesOnWhenTheLockIsFree) {
    const Running holder = hold("0.4");
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2"}).status, 0);
    EXPECT_EQ(finish(holder).status, 0);
    EXPECT_EQ(read("f"), "a = 2\n");
}

TEST_F(Lock, ASignalReachesTheCommandAndTheLockEndsWithIt) {
    const Running holder = hold("30");
    kill(holder.pid, SIGTERM);
    EXPECT_EQ(finish(holder).status, 128 + SIGTERM);
    EXPECT_EQ(genreg({"lock", "status", "f"}).status, 0);
}

TEST_F(Lock, LinksLeadToTheLockOfTheRealFile) {
    std::filesystem::create_directory(at("d"));
    std::filesystem::create_symlink("../f", at("d/link"));
    std::filesystem::create_symlink("d/link", at("chain"));
    const Running holder = hold("0.4");
    EXPECT_EQ(genreg({"lock", "status", "chain"}).status, 4);
    EXPECT_EQ(genreg({"varval", "set", "chain", "a", "2"}).status, 0);
    EXPECT_EQ(finish(holder).status, 0);
    EXPECT_EQ(read("f"), "a = 2\n");
    EXPECT_TRUE(std::filesystem::is_symlink(at("chain")));
}

TEST_F(Lock, StatusExplainsWhatAKilledWriterLeft) {
    const std::string half = "printf 'a =' > f.tmp; ln f .f.bkp; kill -9 $PPID";
    EXPECT_EQ(genreg({"lock", "run", "f", "--", "sh", "-c", half}).status, 137);
    const auto report = objects(genreg({"status", "f", "--json"}).out).at(0);
    EXPECT_EQ(report["lock"]["held"], false);
    std::map<std::string, std::string> found;
    for (const auto& companion : report["companions"]) {
        found[companion["companion"]] = companion["meaning"];
    }
    EXPECT_NE(found["tmp"].find("interrupted"), std::string::npos);
    EXPECT_NE(found["bkp"].find("second name"), std::string::npos);
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2"}).status, 0);
    EXPECT_EQ(read("f.cor"), "a =");
    EXPECT_EQ(names(), (std::vector<std::string>{".f.lock", "f", "f.cor"}));
    EXPECT_NE(genreg({"status", "f"}).out.find("set aside"), std::string::npos);
}

}  // namespace

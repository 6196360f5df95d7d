// What the tool does where its streams fail or are closed, and where a signal or a wrong word comes in between.
#include <csignal>
#include <thread>

#include "Tool.h"

namespace {

class Streams : public ToolTest {
protected:
    Streams() { write("f", "a = 1\n"); }

    // The exit status of a shell's command line, in the folder.
    [[nodiscard]] int shell(const std::string& line) const {
        write("script", "cd '" + folder() + "'; genreg() { '" + BUILT_TOOL + "' \"$@\"; }\n" + line + "\n");
        const int ended = std::system(("bash '" + path("script") + "'").c_str());
        return WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
    }
};

TEST_F(Streams, StandardErrorThatCannotBeWrittenChangesNothing) {
    const struct {
        std::string line;
        int status;
    } cases[] = {
        {"genreg varval add new b 2 2>/dev/full", 0},
        {"genreg varval add f c 3 <&- >&- 2>&-", 0},
        {"genreg varval get f zz 2>/dev/full", 1},
        {"genreg varval get f zz --json 2>&- >out", 1},
        {"genreg varval get f a >&-", 8},
        {"genreg lock run f -- env -u GENREG_HELD_LOCKS '" + BUILT_TOOL + "' varval set f a 2 --wait 1.5 2>/dev/full",
         4},
        {"genreg varval get f a 0<&- 2>&- >out2", 0},
        {"mkfifo pipe; exec 3<>pipe 4>pipe 3<&-; genreg varval add newer b 2 2>&4", 0},  // nobody reads it
    };
    for (const auto& c : cases) {
        EXPECT_EQ(shell(c.line), c.status) << c.line;
    }
    EXPECT_EQ(read("new"), "b = 2\n");
    EXPECT_EQ(read("newer"), "b = 2\n");
    EXPECT_EQ(read("f"), "a = 1\nc = 3\n");
    EXPECT_EQ(read("out"), "") << "an error never lands on standard output";
    EXPECT_EQ(read("out2"), "1\n");
}

TEST_F(Streams, AResultThatIsLostSaysWhetherTheChangeStands) {
    Surroundings full;
    full.standardOutput = "/dev/full";
    const Result made = genreg("", {"varval", "set", "f", "a", "2", "--diff"}, full);
    EXPECT_EQ(made.status, 8);
    EXPECT_NE(made.err.find("the change itself stands"), std::string::npos) << made.err;
    EXPECT_EQ(read("f"), "a = 2\n");
    for (const char* option : {"--dry-run", "--json"}) {
        const Result none = genreg("", {"varval", "set", "f", "a", option[2] == 'd' ? "3" : "2", option}, full);
        EXPECT_EQ(none.status, 8);
        EXPECT_NE(none.err.find("nothing was changed"), std::string::npos) << none.err;
    }
    EXPECT_EQ(read("f"), "a = 2\n");
}

TEST_F(Streams, WaitsAndPathsThatAreNoneAreRefused) {
    for (const char* seconds : {"nan", "-1", "inf", "1e7", "x"}) {
        EXPECT_EQ(genreg("", {"varval", "set", "f", "a", "3", "--wait", seconds}).status, 2) << seconds;
    }
    std::string deep;
    for (int i = 0; i < 600; ++i) {
        deep += "./";
    }
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"path"}, {"service", "list"}, {"fixpack", "sync"}, {"watch", "--follow"}, {"dump"}, {"lock", "status"}}) {
        std::vector<std::string> words = command;
        words.insert(words.end(), {"--registry", deep + "g"});
        EXPECT_EQ(genreg("", words).status, 6) << words[0];
        EXPECT_EQ(shell("RVN_GLOBAL_REG_PATHNAME=" + deep + "g genreg " + words[0] + " " +
                        (command.size() > 1 ? command[1] : "")),
                  6)
            << words[0];
    }
    for (const char* command : {"status", "dump"}) {
        EXPECT_EQ(genreg("", {command, ""}).status, 2) << "an empty name is not the global registry";
    }
}

TEST_F(Streams, TheGlobalRegistryIsMeantWhereNoFileIsGiven) {
    const std::string registry = "export RVN_GLOBAL_REG_PATHNAME=f; ";
    EXPECT_EQ(shell(registry + "genreg lock status >out"), 0);
    EXPECT_EQ(read("out"), "f: free\n");
    EXPECT_EQ(shell(registry + "genreg lock run -- '" + BUILT_TOOL + "' lock status --json >out"), 4);
    EXPECT_EQ(objects(read("out")).at(0)["held"], true);
    EXPECT_EQ(genreg("", {"lock", "run", "--registry", "f", "--", "echo", "x"}).out, "x\n");
    EXPECT_EQ(shell(registry + "genreg lock run"), 2);
}

TEST_F(Streams, ARehearsalThatIsEndedLeavesNoCopy) {
    std::string many;
    for (int i = 0; i < 20000; ++i) {
        many += "v" + std::to_string(i) + " = 1\n";
    }
    write("f", many);
    std::filesystem::create_directory(path("tmp"));
    setenv("TMPDIR", path("tmp").c_str(), 1);
    int ended = 0;
    for (int i = 0; i < 30; ++i) {
        const Running running = start("", {"varval", "set", "f", "v1", "2", "--dry-run"});
        std::this_thread::sleep_for(std::chrono::milliseconds(1 + i));
        kill(running.pid, i % 2 == 0 ? SIGTERM : SIGINT);
        ended += finish(running).status > 128 ? 1 : 0;
    }
    unsetenv("TMPDIR");
    EXPECT_TRUE(std::filesystem::is_empty(path("tmp")));
    EXPECT_GT(ended, 0);
    EXPECT_EQ(read("f"), many);
}

}  // namespace

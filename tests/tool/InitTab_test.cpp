#include "Tool.h"

namespace {

using InitTab = Scratch;

const std::string HEAD =
    "# run levels\n"
    ":old layout\n"
    "id:3:initdefault:\n"
    "rc:3:wait:/etc/rc \\\n"
    "  3\n"
    "broken line\n";
const std::string TAIL =
    "fm:35:respawn:/opt/rvn/bin/rvnfmcd -a:b   #  caf\xe9 \n"
    "x0:2:once:/bin/x0#gone soon\n";

TEST_F(InitTab, EntriesAreReadAndEveryOtherLineStays) {
    write("f", HEAD + TAIL);
    EXPECT_EQ(genreg({"inittab", "get", "f", "rc"}).out, "3:wait:/etc/rc   3\n");
    EXPECT_EQ(genreg({"inittab", "list", "f"}).out,
              "ID  RUNLEVELS  ACTION       COMMAND                    COMMENT\n"
              "id  3          initdefault  \"\"                         -\n"
              "rc  3          wait         /etc/rc   3                -\n"
              "fm  35         respawn      /opt/rvn/bin/rvnfmcd -a:b   caf\\xe9 \n"
              "x0  2          once         /bin/x0                    gone soon\n");
    const auto entries = objects(genreg({"inittab", "list", "f", "--json"}).out);
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[3].dump(),
              "{\"schema\":1,\"line\":8,\"id\":\"x0\",\"run_levels\":\"2\",\"action\":\"once\",\"command\":\"/bin/x0\","
              "\"comment\":\"gone soon\"}");

    EXPECT_EQ(genreg({"inittab", "add", "f", "rv", "35", "respawn", "/bin/rv -x", "--comment", "new"}).status, 0);
    EXPECT_EQ(read("f"), HEAD + TAIL + "rv:35:respawn:/bin/rv -x # new\n");
    EXPECT_EQ(genreg({"inittab", "delete", "f", "rv"}).status, 0);
    EXPECT_EQ(read("f"), HEAD + TAIL);
    for (const char* levels : {"1", "2", "3", "4", "5", "35"}) {
        ASSERT_EQ(genreg({"inittab", "set", "f", "fm", levels, "off", "/bin/a:b"}).status, 0);
    }
    EXPECT_EQ(read("f"), HEAD + "fm:35:off:/bin/a:b   #  caf\xe9 \nx0:2:once:/bin/x0#gone soon\n");
    EXPECT_EQ(genreg({"inittab", "delete", "f", "fm"}).status, 0);
    EXPECT_EQ(read("f"), HEAD + "x0:2:once:/bin/x0#gone soon\n");
}

TEST_F(InitTab, ACommentAloneIsAChange) {
    write("f", HEAD + TAIL);
    EXPECT_EQ(genreg({"inittab", "set", "f", "x0", "2", "once", "/bin/x0", "--comment", "stays"}).status, 0);
    EXPECT_EQ(genreg({"inittab", "set", "f", "id", "3", "initdefault", "", "--comment", "default"}).status, 0);
    EXPECT_EQ(genreg({"inittab", "get", "f", "id"}).out, "3:initdefault:\n") << "no blank becomes the command";
    EXPECT_NE(read("f").find("x0:2:once:/bin/x0 # stays\n"), std::string::npos) << read("f");
    EXPECT_EQ(genreg({"inittab", "set", "f", "x0", "2", "once", "/bin/x0", "--comment", ""}).status, 0);
    EXPECT_NE(read("f").find("x0:2:once:/bin/x0\n"), std::string::npos) << read("f");
    EXPECT_NE(genreg({"inittab", "set", "f", "x0", "2", "once", "/bin/x0", "--comment", ""}).err.find("nothing"),
              std::string::npos);
}

TEST_F(InitTab, ConflictsAndWhatALineCannotHoldAreRefused) {
    const std::string before = HEAD + TAIL + "x0:3:once:/bin/x1\n";
    write("f", before);
    const struct {
        std::vector<std::string> words;
        int status;
    } cases[] = {
        {{"inittab", "add", "f", "fm", "3", "off", "x"}, 5},
        {{"inittab", "set", "f", "x0", "3", "off", "x"}, 5},
        {{"inittab", "delete", "f", "x0"}, 5},
        {{"inittab", "set", "f", "fm", "3", "off", "x", "--if-value", "3:off:x"}, 5},
        {{"inittab", "set", "f", "fn", "3", "off", "x"}, 1},
        {{"inittab", "add", "f", "", "3", "off", "x"}, 6},
        {{"inittab", "add", "f", "a:b", "3", "off", "x"}, 6},
        {{"inittab", "add", "f", "a", "3#", "off", "x"}, 6},
        {{"inittab", "add", "f", "a", "3", "o:f", "x"}, 6},
        {{"inittab", "add", "f", "a", "3", "off", "x # y"}, 6},
        {{"inittab", "add", "f", "a", "3", "off", "x\ny"}, 6},
        {{"inittab", "add", "f", "a", "3", "off", "x "}, 6},
        {{"inittab", "add", "f", "a", "3", "off", "x\\"}, 6},
        {{"inittab", "add", "f", "a", "3", "off", "x", "--comment", "c\\"}, 6},
        {{"inittab", "add", "f", "a", "3", "off", std::string(2100, 'x')}, 6},
        {{"inittab", "delete", "f", "fm", "-n"}, 0},
    };
    for (const auto& c : cases) {
        const Result result = genreg(c.words);
        EXPECT_EQ(result.status, c.status) << c.words[1] << " " << result.err;
        EXPECT_EQ(read("f"), before);
    }
    EXPECT_EQ(genreg({"inittab", "set", "f", "x0", "4", "off", "y", "--all"}).status, 0);
    EXPECT_EQ(genreg({"inittab", "get", "f", "x0", "--all"}).out, "4:off:y\n4:off:y\n");
    EXPECT_EQ(genreg({"inittab", "delete", "f", "x0", "--all", "-y"}).status, 0);
}

}  // namespace

#include "Tool.h"

namespace {

using InitTab = ToolTest;

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
    EXPECT_EQ(out("inittab get f rc"), "3:wait:/etc/rc   3\n");
    EXPECT_EQ(out("inittab list f"),
              "ID  RUNLEVELS  ACTION       COMMAND                    COMMENT\n"
              "id  3          initdefault  \"\"                         -\n"
              "rc  3          wait         /etc/rc   3                -\n"
              "fm  35         respawn      /opt/rvn/bin/rvnfmcd -a:b   caf\\xe9 \n"
              "x0  2          once         /bin/x0                    gone soon\n");
    EXPECT_EQ(objects(out("inittab list f --json")).at(3).dump(),
              R"({"schema":1,"line":8,"id":"x0","runLevels":"2","action":"once","command":"/bin/x0",)"
              R"("comment":"gone soon"})");

    EXPECT_EQ(status("inittab add f rv 35 respawn", {"/bin/rv -x", "--comment", "new"}), 0);
    EXPECT_EQ(read("f"), HEAD + TAIL + "rv:35:respawn:/bin/rv -x # new\n");
    EXPECT_EQ(status("inittab delete f rv"), 0);
    EXPECT_EQ(read("f"), HEAD + TAIL);
    for (const char* levels : {"1", "2", "35"}) {
        ASSERT_EQ(status("inittab set f fm", {levels, "off", "/bin/a:b"}), 0);
    }
    EXPECT_EQ(read("f"), HEAD + "fm:35:off:/bin/a:b   #  caf\xe9 \nx0:2:once:/bin/x0#gone soon\n");
    EXPECT_EQ(status("inittab delete f fm"), 0);
    EXPECT_EQ(read("f"), HEAD + "x0:2:once:/bin/x0#gone soon\n");
}

TEST_F(InitTab, ACommentAloneIsAChange) {
    write("f", HEAD + TAIL);
    EXPECT_EQ(status("inittab set f x0 2 once /bin/x0 --comment stays"), 0);
    EXPECT_EQ(status("inittab set f id 3 initdefault", {"", "--comment", "default"}), 0);
    EXPECT_EQ(out("inittab get f id"), "3:initdefault:\n") << "no blank becomes the command";
    EXPECT_NE(read("f").find("x0:2:once:/bin/x0 # stays\n"), std::string::npos) << read("f");
    EXPECT_EQ(status("inittab add f y0 3 once", {"", "--comment", "no command"}), 0);
    EXPECT_NE(read("f").find("y0:3:once:# no command\n"), std::string::npos) << read("f");
    EXPECT_EQ(status("inittab set f rc 4 wait", {"/etc/rc   3"}), 0);
    EXPECT_NE(read("f").find("rc:4:wait:/etc/rc \\\n  3\n"), std::string::npos) << "its continuation stays";
    EXPECT_EQ(status("inittab set f x0 2 once /bin/x0 --comment", {""}), 0);
    EXPECT_NE(read("f").find("x0:2:once:/bin/x0\n"), std::string::npos) << read("f");
}

TEST_F(InitTab, WhatALineCannotHoldIsRefused) {
    const std::string before = HEAD + TAIL;
    write("f", before);
    const struct {
        const char* line;
        Words more;
    } cases[] = {
        {"add f", {"", "3", "off", "x"}},
        {"add f a:b 3 off x", {}},
        {"add f a 3# off x", {}},
        {"add f a 3 o:f x", {}},
        {"add f a 3 off", {"x # y"}},
        {"add f a 3 off", {"x\ny"}},
        {"add f a 3 off", {"x "}},
        {"add f a 3 off x\\", {}},
        {"add f a 3 off x --comment c\\", {}},
        {"add f a 3 off", {std::string(2100, 'x')}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(status(std::string("inittab ") + c.line, c.more), 6) << c.line;
        EXPECT_EQ(read("f"), before);
    }
}

}  // namespace

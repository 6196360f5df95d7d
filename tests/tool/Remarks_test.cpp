// What is said of files of lines that are not what they seem.
#include "Tool.h"

namespace {

class Remarks : public ToolTest {
protected:
    // What is said on standard error, whatever the answer.
    std::string said(const std::string& line, const Words& more = {}) { return genreg(line, more).err; }
};

TEST_F(Remarks, AListTellsWhatItDoesNotShow) {
    write("v", "a = 1#x\nno pair\n# c\nb = \"open\nc = x\\\nd = 2 # fine\n" + std::string(2100, 'x') + "\n");
    EXPECT_EQ(said("varval list v"),
              "genreg: v: of another form, and not shown, 3 lines: 2, 4, 7\n"
              "genreg: v: \"#\" without a blank before it ends the value on 1 line: 1\n"
              "genreg: v: a backslash, which continues no line, ends the value on 1 line: 5\n");
    EXPECT_EQ(said("varval list v -q"), "");
    EXPECT_EQ(objects(said("varval list v --json")).at(0)["kind"], "other-form");
    write("v", "# c\n\na = 1\n");
    EXPECT_EQ(said("varval list v"), "");
    write("s", "a 1/tcp\nb\nc 2\nd\ne\nf\ng\nh\n");
    EXPECT_NE(said("services list s").find("7 lines: 2, 3, 4, 5, 6, ...\n"), std::string::npos);
    write("i", "a:1:2:c \\\n d\nb:1\n");
    EXPECT_EQ(said("inittab list i"), "genreg: i: of another form, and not shown, 1 line: 3\n");
}

TEST_F(Remarks, AnEmptyListTellsOfAnotherKind) {
    write("s", "# c\na 1/tcp\nb 2/udp\n");
    EXPECT_NE(said("varval list s").find("try genreg services list s\n"), std::string::npos) << said("varval list s");
    write("i", "a:1:2:c\n");
    EXPECT_NE(said("services list i").find("try genreg inittab list i\n"), std::string::npos);
    write("v", "a = 1\n");
    EXPECT_NE(said("inittab list v").find("try genreg varval list v\n"), std::string::npos);
    EXPECT_EQ(status("binvar add b x 1"), 0);
    EXPECT_NE(said("varval list b").find("try genreg binvar list b\n"), std::string::npos);
    write("empty", "");
    EXPECT_EQ(said("varval list empty"), "");
}

TEST_F(Remarks, ALineThatSeemsToBeTheOneIsNamedAndNotAdded) {
    write("v", "port = \"80\nname = x#y\npath = c:\\\n");
    const std::string line = "genreg: v: line 1 begins with port, but is no pair: a quote is never closed\n";
    for (const char* command : {"varval get v port", "varval set v port 81", "varval delete v port"}) {
        const Result result = genreg(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.err.starts_with(line)) << result.err;
        EXPECT_EQ(result.err.find("add"), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("try: mend line 1"), std::string::npos) << result.err;
    }
    EXPECT_EQ(said("varval add v port 81"), line);
    EXPECT_EQ(said("varval get v name"), "genreg: v: line 2: \"#\" without a blank before it ends the value\n");
    EXPECT_EQ(said("varval get v path"), "genreg: v: line 3: the value ends in a backslash, which continues no line\n");
    // Not of this name, and said once where the change is rehearsed first.
    EXPECT_NE(said("varval set v por 1").find("add it"), std::string::npos);
    EXPECT_EQ(said("varval set v name z --diff"),
              "genreg: v: line 2: \"#\" without a blank before it ends the value\n");
    write("s", "http 80\nhttps 443/tcp\n");
    EXPECT_NE(said("services set s http 80/tcp").find("its port has no \"/\" and protocol"), std::string::npos);
    EXPECT_NE(said("services get s http/tcp").find("mend line 1"), std::string::npos);
    EXPECT_EQ(said("services get s https"), "");
    write("i", "a:1:once\n");
    EXPECT_NE(said("inittab set i a 1 once x").find("fewer than three \":\""), std::string::npos);
}

}  // namespace

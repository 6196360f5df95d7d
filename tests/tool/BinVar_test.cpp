#include <cstring>

#include "Tool.h"

namespace {

class BinVar : public ToolTest {
protected:
    // A frame of the file: length, name, value, comment; the machine's byte order.
    static std::string frame(const std::string& name, int value, const std::string& comment) {
        std::string bytes(40, '\0');
        const unsigned int length = 36;
        std::memcpy(bytes.data(), &length, 4);
        std::memcpy(bytes.data() + 4, name.data(), name.size());
        std::memcpy(bytes.data() + 20, &value, 4);
        std::memcpy(bytes.data() + 24, comment.data(), comment.size());
        return bytes;
    }
};

TEST_F(BinVar, TheBytesOnDiskAreTheFramesOfTheSchema) {
    EXPECT_EQ(status("binvar add f port 5000 --comment main"), 0);
    EXPECT_EQ(status("binvar add f fifteen_letters -2147483648"), 0);
    EXPECT_EQ(read("f"), frame("port", 5000, "main") + frame("fifteen_letters", -2147483647 - 1, ""));
    EXPECT_EQ(out("binvar get f fifteen_letters"), "-2147483648\n");
    EXPECT_EQ(out("binvar list f"),
              "NAME             VALUE        COMMENT\nport             5000         main\n"
              "fifteen_letters  -2147483648  \"\"\n");
    EXPECT_EQ(object("binvar get f port").dump(),
              R"({"schema":1,"record":1,"name":"port","value":5000,"comment":"main"})");
    EXPECT_EQ(status("binvar set f port 2147483647"), 0);
    EXPECT_EQ(status("binvar delete f fifteen_letters"), 0);
    EXPECT_EQ(read("f"), frame("port", 2147483647, "main"));
}

TEST_F(BinVar, ACommentAloneIsAChangeAndBytesBehindATextStay) {
    const std::string rest("x\0rest", 6);
    write("f", frame("a", 1, rest) + frame("b", 2, ""));
    EXPECT_NE(genreg("binvar set f a 1 --comment x").err.find("nothing to change"), std::string::npos);
    EXPECT_EQ(status("binvar set f b 2 --comment c\xc3\xa9"), 0);
    EXPECT_EQ(read("f"), frame("a", 1, rest) + frame("b", 2, "c\xc3\xa9"));
    EXPECT_EQ(status("binvar set f a 3"), 0);
    EXPECT_EQ(read("f"), frame("a", 3, rest) + frame("b", 2, "c\xc3\xa9"));
    EXPECT_EQ(status("binvar set f a 3 --comment", {""}), 0);
    EXPECT_EQ(read("f"), frame("a", 3, "") + frame("b", 2, "c\xc3\xa9"));
}

TEST_F(BinVar, LimitsConflictsAndDamageAreToldApart) {
    const std::string before = frame("a", 1, "x") + frame("b", 0, "") + frame("a", 2, "y");
    write("f", before);
    expectFailure(6, "room for 15", "binvar add f sixteen_letters_ 1");
    expectFailure(6, "room for 15", "binvar set f b 0 --comment sixteen_letters!");
    expectFailure(6, "32 bits", "binvar set f b 2147483648");
    expectFailure(6, "no whole number", "binvar set f b 1x");
    expectFailure(6, "empty", "binvar add f", {"", "1"});
    expectFailure(5, "there already (record 2)", "binvar add f b 1");
    EXPECT_EQ(objects(genreg("binvar add f b 1 -n --json").err).at(0)["path"], "f") << "not the rehearsal's copy";
    expectFailure(5, "records: 1, 3", "binvar set f a 1");
    expectFailure(5, "records: 1, 3", "binvar delete f a");
    expectFailure(5, "b is 0, not 7", "binvar set f b 1 --if-value 7");
    expectFailure(1, "no variable c", "binvar get f c");
    EXPECT_EQ(out("binvar set f b 5 -n"), "--- f\n+++ f\n@@ -1,3 +1,3 @@\n a = 1 # x\n-b = 0\n+b = 5\n a = 2 # y\n");
    EXPECT_EQ(read("f"), before);
    EXPECT_EQ(out("binvar get-all f a"), "1\n2\n");
    EXPECT_EQ(status("binvar set f a 1 --all"), 0);
    EXPECT_EQ(read("f"), frame("a", 1, "x") + frame("b", 0, "") + frame("a", 1, "y"));
    EXPECT_EQ(status("binvar delete f a --all -y"), 0);
    EXPECT_EQ(read("f"), frame("b", 0, ""));

    // Frames of another schema, and bytes that are none.
    for (const std::string& bytes : {std::string("\x04\0\0\0abcd", 8), before.substr(0, 50)}) {
        write("f", bytes);
        EXPECT_EQ(status("binvar list f"), 7);
        EXPECT_EQ(status("binvar add f n 1"), 7);
        EXPECT_EQ(read("f"), bytes);
    }
}

}  // namespace

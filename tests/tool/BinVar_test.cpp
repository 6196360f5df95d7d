#include <cstring>

#include "Tool.h"

namespace {

class BinVar : public Scratch {
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

TEST_F(BinVar, TheBytesOnDiskAreTheFramesOfTheForm) {
    EXPECT_EQ(genreg({"binvar", "add", "f", "port", "5000", "--comment", "main"}).status, 0);
    EXPECT_EQ(genreg({"binvar", "add", "f", "fifteen_letters", "-2147483648"}).status, 0);
    EXPECT_EQ(read("f"), frame("port", 5000, "main") + frame("fifteen_letters", -2147483647 - 1, ""));
    EXPECT_EQ(genreg({"binvar", "get", "f", "fifteen_letters"}).out, "-2147483648\n");
    EXPECT_EQ(genreg({"binvar", "list", "f"}).out,
              "NAME             VALUE        COMMENT\nport             5000         main\n"
              "fifteen_letters  -2147483648  \"\"\n");
    EXPECT_EQ(genreg({"binvar", "get", "f", "port", "--json"}).out,
              "{\"schema\":1,\"record\":1,\"name\":\"port\",\"value\":5000,\"comment\":\"main\"}\n");
    EXPECT_EQ(genreg({"binvar", "set", "f", "port", "2147483647"}).status, 0);
    EXPECT_EQ(genreg({"binvar", "delete", "f", "fifteen_letters"}).status, 0);
    EXPECT_EQ(read("f"), frame("port", 2147483647, "main"));
}

TEST_F(BinVar, ACommentAloneIsAChangeAndBytesBehindATextStay) {
    const std::string odd = frame("a", 1, std::string("x\0rest", 6));
    write("f", odd + frame("b", 2, ""));
    EXPECT_NE(genreg({"binvar", "set", "f", "a", "1", "--comment", "x"}).err.find("nothing to change"),
              std::string::npos);
    EXPECT_EQ(genreg({"binvar", "set", "f", "b", "2", "--comment", "c\xc3\xa9"}).status, 0);
    EXPECT_EQ(read("f"), odd + frame("b", 2, "c\xc3\xa9"));
    EXPECT_EQ(genreg({"binvar", "set", "f", "a", "3"}).status, 0);
    EXPECT_EQ(read("f"), frame("a", 3, std::string("x\0rest", 6)) + frame("b", 2, "c\xc3\xa9"));
    EXPECT_EQ(genreg({"binvar", "set", "f", "a", "3", "--comment", ""}).status, 0);
    EXPECT_EQ(read("f"), frame("a", 3, "") + frame("b", 2, "c\xc3\xa9"));
}

TEST_F(BinVar, LimitsConflictsAndDamageAreToldApart) {
    const std::string before = frame("a", 1, "x") + frame("b", 0, "") + frame("a", 2, "y");
    write("f", before);
    const struct {
        std::vector<std::string> words;
        int status;
        std::string reason;
    } cases[] = {
        {{"binvar", "add", "f", "sixteen_letters_", "1"}, 6, "room for 15"},
        {{"binvar", "set", "f", "b", "0", "--comment", "sixteen letters!"}, 6, "room for 15"},
        {{"binvar", "set", "f", "b", "2147483648"}, 6, "32 bits"},
        {{"binvar", "set", "f", "b", "1x"}, 6, "no whole number"},
        {{"binvar", "add", "f", "", "1"}, 6, "empty"},
        {{"binvar", "add", "f", "b", "1"}, 5, "there already (record 2)"},
        {{"binvar", "set", "f", "a", "1"}, 5, "records: 1, 3"},
        {{"binvar", "delete", "f", "a"}, 5, "records: 1, 3"},
        {{"binvar", "set", "f", "b", "1", "--if-value", "7"}, 5, "b is 0, not 7"},
        {{"binvar", "get", "f", "c"}, 1, "no variable c"},
        {{"binvar", "set", "f", "b", "5", "-n"}, 0, ""},
    };
    for (const auto& c : cases) {
        const Result result = genreg(c.words);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_NE(result.err.find(c.reason), std::string::npos) << result.err;
        EXPECT_EQ(read("f"), before);
    }
    EXPECT_EQ(genreg({"binvar", "set", "f", "b", "5", "-n"}).out,
              "--- f\n+++ f\n@@ -1,3 +1,3 @@\n a = 1 # x\n-b = 0\n+b = 5\n a = 2 # y\n");
    EXPECT_EQ(genreg({"binvar", "get-all", "f", "a"}).out, "1\n2\n");
    EXPECT_EQ(genreg({"binvar", "set", "f", "a", "1", "--all"}).status, 0);
    EXPECT_EQ(read("f"), frame("a", 1, "x") + frame("b", 0, "") + frame("a", 1, "y"));
    EXPECT_EQ(genreg({"binvar", "delete", "f", "a", "--all", "-y"}).status, 0);
    EXPECT_EQ(read("f"), frame("b", 0, ""));

    // Frames of another form, and bytes that are none.
    write("other", std::string("\x04\0\0\0abcd", 8));
    write("torn", before.substr(0, 50));
    for (const char* file : {"other", "torn"}) {
        const std::string bytes = read(file);
        for (const auto& words :
             std::vector<std::vector<std::string>>{{"binvar", "list", file}, {"binvar", "add", file, "n", "1"}}) {
            const Result result = genreg(words);
            EXPECT_EQ(result.status, 7) << result.err;
        }
        EXPECT_EQ(read(file), bytes);
    }
}

}  // namespace

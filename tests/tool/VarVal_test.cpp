#include "Tool.h"

namespace {

using VarVal = ToolTest;

const std::string SAMPLE =
    "# settings\n"
    "port\t=  5000   # main port\n"
    "name = \xc3\x89t\xc3\xa9 # caf\xc3\xa9 \xe9\n"
    "\n"
    "no pair here\n"
    "empty =\n"
    "bare = 1 #\n"
    "port = 6000\n";

TEST_F(VarVal, ReadsTheFirstLineOrEveryLineOfAName) {
    write("f", SAMPLE);
    EXPECT_EQ(out("varval get f port"), "5000\n");
    EXPECT_EQ(out("varval get f empty"), "\n");
    EXPECT_EQ(out("varval get-all f port"), "5000\n6000\n");
    EXPECT_EQ(out("varval list f"),
              "NAME   VALUE  COMMENT\n"
              "port   5000   main port\n"
              "name   \xc3\x89t\xc3\xa9    caf\xc3\xa9 \\xe9\n"
              "empty  \"\"     -\n"
              "bare   1      \"\"\n"
              "port   6000   -\n");
    // As objects, absent differs from empty, and text from bytes.
    EXPECT_EQ(out("varval list f --json"),
              R"({"schema":1,"line":2,"name":"port","value":"5000","comment":"main port"})"
              "\n{\"schema\":1,\"line\":3,\"name\":\"name\",\"value\":\"\xc3\x89t\xc3\xa9\",\"commentBase64\":"
              "\"Y2Fmw6kg6Q==\"}\n"
              R"({"schema":1,"line":6,"name":"empty","value":"","comment":null})"
              "\n"
              R"({"schema":1,"line":7,"name":"bare","value":"1","comment":""})"
              "\n"
              R"({"schema":1,"line":8,"name":"port","value":"6000","comment":null})"
              "\n");
    expectFailure(1, "port", "varval get f prot");
    for (const char* noText : {"\xed\xa0\x80", "\xc0\xaf", "\xf4\x90\x80\x80"}) {
        write("f", std::string("odd = ") + noText + "\n");
        EXPECT_TRUE(object("varval get f odd").contains("valueBase64")) << "no UTF-8, though it looks so";
    }
}

TEST_F(VarVal, TypedValuesAreConvertedWholeOrRefused) {
    write("f", "i = -12\nu = 18446744073709551615\nr = 1.5e3\nt = On\nq = \"5\"\nx = 12x\ne =\n");
    EXPECT_EQ(out("varval get f i --type int"), "-12\n");
    EXPECT_EQ(out("varval get f u --type uint"), "18446744073709551615\n");
    EXPECT_EQ(out("varval get f r --type double"), "1500\n");
    EXPECT_EQ(out("varval get f t --type bool"), "true\n");
    EXPECT_EQ(out("varval get f q --type string"), "\"5\"\n");
    EXPECT_EQ(object("varval get f t --type bool")["value"], true);
    for (const char* refused : {"i --type uint", "u --type int", "x --type int", "i --type bool", "e --type double"}) {
        expectFailure(6, "", std::string("varval get f ") + refused);
    }
    write("f", "a = 1\nb = 7\na = +2\na=1\nz = 1\nz = x\n");
    EXPECT_EQ(out("varval get-all f a --type int"), "1\n2\n1\n");
    EXPECT_EQ(objects(out("varval get-all f a --type uint --json")).at(1)["value"], 2);
    expectFailure(6, "z is x in line 6, which is no int", "varval get-all f z --type int");
}

TEST_F(VarVal, SetKeepsTheLineAroundTheValue) {
    const struct {
        std::string before, value, after;
    } cases[] = {
        {"a\t=  1\n", "2", "a\t=  2\n"},
        {"a = 1   #note\n", "2", "a = 2 #note\n"},
        {"a=1#caf\xc3\xa9 \xe9\x01\n", "2", "a=2 #caf\xc3\xa9 \xe9\x01\n"},
        {"a = 1 # c\r\n", "2", "a = 2 # c\r\n"},
        {"a = 1 # c\n", "", "a = # c\n"},
        {"a = 1", "2", "a = 2\n"},
    };
    for (const auto& c : cases) {
        write("f", "# first\n" + c.before);
        EXPECT_EQ(status("varval set f a", {c.value}), 0) << c.before;
        EXPECT_EQ(read("f"), "# first\n" + c.after);
    }
}

TEST_F(VarVal, CommentsAreSetKeptAndRemoved) {
    write("f", "a = 1\nb = 2 #old\n");
    EXPECT_EQ(status("varval set f a 1 --comment n\xc3\xa9w"), 0);
    const auto written = std::filesystem::last_write_time(path("f"));
    EXPECT_EQ(genreg("varval set f b 2 --comment old").err, "genreg: f: set b: nothing to change\n");
    EXPECT_EQ(genreg("varval set f b 2 -q").err, "");
    EXPECT_EQ(object("varval set f b 2")["changed"], false);
    EXPECT_EQ(std::filesystem::last_write_time(path("f")), written);
    EXPECT_EQ(read("f"), "a = 1 # n\xc3\xa9w\nb = 2 #old\n");
    EXPECT_EQ(status("varval set f b 2 --comment", {""}), 0);
    EXPECT_EQ(status("varval add f c 3 --comment", {"x # y"}), 0);
    EXPECT_EQ(status("varval set f c 3 --comment", {"two\nlines"}), 6);
    EXPECT_EQ(read("f"), "a = 1 # n\xc3\xa9w\nb = 2\nc = 3 # x # y\n");
}

TEST_F(VarVal, AValueReadsBackAsGivenOrIsRefused) {
    const std::string before = "a = 1 # c\n";
    const std::string fits(2046 - std::string("a =  # c").size(), 'x');
    const struct {
        std::string value, written;
    } good[] = {{" lead", "\" lead\""},
                {"two  blanks", "\"two  blanks\""},
                {"\"q  q\"", "\"q  q\""},
                {"a \"b  c\" d", "a \"b  c\" d"},
                {"-5", "-5"},
                {fits, fits}};
    for (const auto& c : good) {
        write("f", before);
        EXPECT_EQ(status("varval set f a", {c.value}), 0) << c.value;
        EXPECT_EQ(read("f"), "a = " + c.written + " # c\n");
        EXPECT_EQ(out("varval get f a"), c.written + "\n");
    }
    write("f", before);
    for (const std::string& value : Words{"a#b", "\"a#b\"", "\"open", "\"q\" x", "a\"  \"b  c", "x\ny", "t\tt", "\x01",
                                          fits + "x", std::string(3000, 'x')}) {
        expectFailure(6, "cannot set a: ", "varval set f a", {value});
    }
    for (const std::string name : {"", "a=b", "a#b", " a", "a  b", "a\tb", "a\nb"}) {
        EXPECT_EQ(status("varval add f", {name, "1"}), 6) << name;
    }
    EXPECT_EQ(read("f"), before);
}

TEST_F(VarVal, ASecondLineOfTheNameIsAConflictUnlessAllAreMeant) {
    const std::string before = "a = 1 # x\nb = 0\na = 2 # y\n";
    write("f", before);
    for (const char* words : {"set f a 1", "delete f a", "add f a 3", "delete f a --if-value 1"}) {
        EXPECT_EQ(status(std::string("varval ") + words), 5) << words;
        EXPECT_EQ(read("f"), before);
    }
    EXPECT_EQ(status("varval set f a 3 --all --if-value 2"), 0);
    EXPECT_EQ(read("f"), "a = 1 # x\nb = 0\na = 3 # y\n");
    // A line that is as asked already does not keep the other from being changed.
    EXPECT_EQ(status("varval set f a 1 --all"), 0);
    EXPECT_EQ(read("f"), "a = 1 # x\nb = 0\na = 1 # y\n");
    EXPECT_EQ(status("varval add f a 4 --all"), 0);
    expectFailure(2, "at a terminal", "varval delete f a --all");  // nobody to ask
    EXPECT_EQ(status("varval delete f a --all -y"), 0);
    EXPECT_EQ(read("f"), "b = 0\n");
}

TEST_F(VarVal, IfValueComparesBeforeItChanges) {
    write("f", "a = \"x  y\"\n");
    EXPECT_EQ(status("varval set f a 2 --if-value 1"), 5);
    EXPECT_EQ(status("varval delete f a --if-value 1"), 5);
    EXPECT_EQ(status("varval set f a 2 --if-value", {"x  y"}), 0);
    EXPECT_EQ(status("varval set f b 2 --if-value x"), 1);
    EXPECT_EQ(read("f"), "a = 2\n");
    EXPECT_EQ(status("varval delete f a --if-value 2"), 0);
    EXPECT_EQ(read("f"), "");
}

TEST_F(VarVal, ANewLineLooksLikeTheLastOne) {
    const struct {
        std::string before, after;
    } cases[] = {{"", "n = 1\n"},
                 {"a=1\n", "a=1\nn=1\n"},
                 {"# c\n", "# c\nn = 1\n"},
                 {"a  =1\n", "a  =1\nn = 1\n"},
                 {"a = 1\r\n", "a = 1\r\nn = 1\r\n"},
                 {"a=\n", "a=\nn = 1\n"}};
    for (const auto& c : cases) {
        write("f", c.before);
        EXPECT_EQ(status("varval add f n 1"), 0);
        EXPECT_EQ(read("f"), c.after);
    }
    EXPECT_NE(genreg("varval add new/f n 1 --parents").err.find("new"), std::string::npos);
    EXPECT_EQ(read("new/f"), "n = 1\n");
}

TEST_F(VarVal, ARehearsalShowsTheChangeAndWritesNothing) {
    write("f", "a = 1\nb = 2\n");
    const std::string difference = "--- f\n+++ f\n@@ -1,2 +1,2 @@\n a = 1\n-b = 2\n+b = 3\n";
    EXPECT_EQ(out("-n varval set f b 3"), difference);
    EXPECT_EQ(status("varval delete f x --dry-run"), 1);
    EXPECT_EQ(out("varval add new x 1 --dry-run"), "--- new\n+++ new\n@@ -0,0 +1 @@\n+x = 1\n");
    EXPECT_EQ(out("varval set f b 3 -n --json"),
              R"({"schema":1,"operation":"varval set","path":"f","type":"varval","name":"b","action":"change",)"
              R"("before":{"line":2,"value":"2","comment":null,"text":"b = 2"},)"
              R"("after":{"line":2,"value":"3","comment":null,"text":"b = 3"},"changed":true,"dryRun":true})"
              "\n");
    EXPECT_EQ(names(), "f");
    EXPECT_EQ(read("f"), "a = 1\nb = 2\n");
    EXPECT_EQ(out("varval set f b 3 --diff"), difference);
    EXPECT_EQ(read("f"), "a = 1\nb = 3\n");
}

}  // namespace

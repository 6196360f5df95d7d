#include "Tool.h"

namespace {

using VarVal = Scratch;

const std::string SAMPLE =
    "# settings\n"
    "port\t=  5000   # main port\n"
    "name = \xc3\x89t\xc3\xa9 # caf\xc3\xa9 \xe9\n"
    "\n"
    "no pair here\n"
    "flag=yes\n"
    "empty =\n"
    "bare = 1 #\n"
    "port = 6000\n";

TEST_F(VarVal, ReadsTheFirstLineOrEveryLineOfAName) {
    write("f", SAMPLE);
    EXPECT_EQ(genreg({"varval", "get", "f", "port"}).out, "5000\n");
    EXPECT_EQ(genreg({"varval", "get-all", "f", "port"}).out, "5000\n6000\n");
    const Result list = genreg({"varval", "list", "f"});
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out,
              "NAME   VALUE  COMMENT\n"
              "port   5000   main port\n"
              "name   \xc3\x89t\xc3\xa9    caf\xc3\xa9 \\xe9\n"
              "flag   yes    -\n"
              "empty  \"\"     -\n"
              "bare   1      \"\"\n"
              "port   6000   -\n");
}

TEST_F(VarVal, JsonTellsAbsentFromEmptyAndTextFromBytes) {
    write("f", SAMPLE);
    const Result list = genreg({"varval", "list", "f", "--json"});
    EXPECT_EQ(list.out,
              "{\"schema\":1,\"line\":2,\"name\":\"port\",\"value\":\"5000\",\"comment\":\"main port\"}\n"
              "{\"schema\":1,\"line\":3,\"name\":\"name\",\"value\":\"\xc3\x89t\xc3\xa9\",\"comment_b64\":"
              "\"Y2Fmw6kg6Q==\"}\n"
              "{\"schema\":1,\"line\":6,\"name\":\"flag\",\"value\":\"yes\",\"comment\":null}\n"
              "{\"schema\":1,\"line\":7,\"name\":\"empty\",\"value\":\"\",\"comment\":null}\n"
              "{\"schema\":1,\"line\":8,\"name\":\"bare\",\"value\":\"1\",\"comment\":\"\"}\n"
              "{\"schema\":1,\"line\":9,\"name\":\"port\",\"value\":\"6000\",\"comment\":null}\n");
    EXPECT_EQ(genreg({"varval", "get", "f", "empty"}).out, "\n");
    const Result absent = genreg({"varval", "get", "f", "prot", "--json"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(absent.out, "");
    EXPECT_NE(objects(absent.err).at(0)["hint"].get<std::string>().find("port"), std::string::npos);
}

TEST_F(VarVal, TypedValuesAreConvertedWholeOrRefused) {
    write("f", "i = -12\nu = 18446744073709551615\nr = 1.5e3\nt = On\nq = \"5\"\nx = 12x\ne =\n");
    const struct {
        const char *type, *name, *out;
        int status;
    } cases[] = {
        {"int", "i", "-12\n", 0},      {"uint", "i", "", 6},       {"uint", "u", "18446744073709551615\n", 0},
        {"int", "u", "", 6},           {"int", "x", "", 6},        {"double", "r", "1500\n", 0},
        {"int", "q", "", 6},           {"bool", "t", "true\n", 0}, {"bool", "i", "", 6},
        {"string", "q", "\"5\"\n", 0}, {"uint", "e", "", 6},       {"double", "e", "", 6},
        {"int", "absent", "", 1},      {"integer", "i", "", 2},
    };
    for (const auto& c : cases) {
        const Result result = genreg({"varval", "get", "f", c.name, "--type", c.type});
        EXPECT_EQ(result.status, c.status) << c.type << " " << c.name;
        EXPECT_EQ(result.out, c.out) << c.type << " " << c.name;
    }
    EXPECT_EQ(objects(genreg({"--json", "varval", "get", "f", "t", "--type", "bool"}).out).at(0)["value"], true);
}

TEST_F(VarVal, SetKeepsTheLineAroundTheValue) {
    const struct {
        std::string before, value, after;
    } cases[] = {
        {"a\t=  1\n", "2", "a\t=  2\n"},
        {" \ta=1 \t\n", "22", " \ta=22 \t\n"},
        {"a = 1 # note  with  blanks \n", "2", "a = 2 # note  with  blanks \n"},
        {"a = 1   #note\n", "2", "a = 2 #note\n"},
        {"a=1#caf\xc3\xa9 \xe9\x01\n", "2", "a=2 #caf\xc3\xa9 \xe9\x01\n"},
        {"a = 1\r\n", "2", "a = 2\r\n"},
        {"a = 1 # c\r\n", "2", "a = 2 # c\r\n"},
        {"a = \"x y\" # c\n", "z", "a = z # c\n"},
        {"a = # c\n", "1", "a = 1 # c\n"},
        {"a = 1 # c\n", "", "a = # c\n"},
        {"a = 1", "2", "a = 2\n"},
        {"a = 1 ## c = 2\n", "x=y", "a = x=y ## c = 2\n"},
    };
    for (const auto& c : cases) {
        write("f", "# first\n" + c.before);
        EXPECT_EQ(genreg({"varval", "set", "f", "a", c.value}).status, 0) << c.before;
        EXPECT_EQ(read("f"), "# first\n" + c.after);
    }
}

TEST_F(VarVal, TenChangesInARowLeaveACommentWhereItStood) {
    write("f", "a = 0   #  \xc3\xa4rger \xff\nempty = # c\n");
    for (int i = 1; i <= 10; ++i) {
        ASSERT_EQ(genreg({"varval", "set", "f", "a", std::to_string(i)}).status, 0);
        ASSERT_EQ(genreg({"varval", "set", "f", "empty", i % 2 == 1 ? "1" : ""}).status, 0);
    }
    EXPECT_EQ(read("f"), "a = 10 #  \xc3\xa4rger \xff\nempty = # c\n");
}

TEST_F(VarVal, CommentsAreSetKeptAndRemoved) {
    write("f", "a = 1\nb = 2 #old\n");
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "1", "--comment", "n\xc3\xa9w"}).status, 0);
    EXPECT_EQ(genreg({"varval", "set", "f", "b", "2", "--comment", "old"}).err,
              "genreg: f: set b: nothing to change\n");
    EXPECT_EQ(read("f"), "a = 1 # n\xc3\xa9w\nb = 2 #old\n");
    EXPECT_EQ(genreg({"varval", "set", "f", "b", "2", "--comment", ""}).status, 0);
    EXPECT_EQ(genreg({"varval", "add", "f", "c", "3", "--comment", "x # y"}).status, 0);
    EXPECT_EQ(genreg({"varval", "set", "f", "c", "3", "--comment", "two\nlines"}).status, 6);
    EXPECT_EQ(read("f"), "a = 1 # n\xc3\xa9w\nb = 2\nc = 3 # x # y\n");
}

TEST_F(VarVal, LinesThatAreNotMeantSurviveByteForByte) {
    const std::string around = "\xef\xbb\xbf# bom\r\n\t \nq = \"open\n=\nlong " + std::string(5000, 'x') +
                               " = 1\nzero = \x01\x7f\nback \\\nslash\n";
    write("f", around + "a = 1\n" + around + "last = 1");
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2"}).status, 0);
    EXPECT_EQ(genreg({"varval", "add", "f", "b", "3"}).status, 0);
    EXPECT_EQ(read("f"), around + "a = 2\n" + around + "last = 1\nb = 3\n");
    EXPECT_EQ(genreg({"varval", "delete", "f", "b"}).status, 0);
    EXPECT_EQ(genreg({"varval", "delete", "f", "a"}).status, 0);
    EXPECT_EQ(read("f"), around + around + "last = 1\n");
    const std::string hidden("nul = 1\0more\nlast = 1", 21);
    write("f", hidden);
    EXPECT_EQ(genreg({"varval", "set", "f", "nul", "2"}).status, 6);
    EXPECT_EQ(read("f"), hidden);
}

TEST_F(VarVal, AValueReadsBackAsGivenOrIsRefused) {
    const std::string before = "a = 1 # c\n";
    const std::string fits(2046 - std::string("a =  # c").size(), 'x');
    const struct {
        std::string value, written;
    } good[] = {
        {" lead", "\" lead\""},   {"two  blanks", "\"two  blanks\""},
        {"\"q  q\"", "\"q  q\""}, {"a \"b  c\" d", "a \"b  c\" d"},
        {"[a,b]", "[a,b]"},       {"-5", "-5"},
        {"it's", "it's"},         {fits, fits},
    };
    for (const auto& c : good) {
        write("f", before);
        EXPECT_EQ(genreg({"varval", "set", "f", "a", c.value}).status, 0) << c.value;
        EXPECT_EQ(read("f"), "a = " + c.written + " # c\n");
        EXPECT_EQ(genreg({"varval", "get", "f", "a"}).out, c.written + "\n");
    }
    for (const std::string& value : {std::string("a#b"), std::string("\"a#b\""), std::string("\"open"),
                                     std::string("\"q\" x"), std::string("a\"  \"b  c"), std::string("x\ny"),
                                     std::string("t\tt"), std::string("\x01"), fits + "x", std::string(3000, 'x')}) {
        write("f", before);
        const Result result = genreg({"varval", "set", "f", "a", value});
        EXPECT_EQ(result.status, 6) << value;
        EXPECT_NE(result.err.find("cannot set a: "), std::string::npos);
        EXPECT_EQ(read("f"), before);
    }
    for (const std::string name : {"", "a=b", "a#b", " a", "a  b", "a\tb", "a\nb"}) {
        EXPECT_EQ(genreg({"varval", "add", "f", name, "1"}).status, 6) << name;
    }
}

TEST_F(VarVal, ASecondLineOfTheNameIsAConflictUnlessAllAreMeant) {
    const std::string before = "a = 1 # x\nb = 0\na = 2 # y\n";
    write("f", before);
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"varval", "set", "f", "a", "1"},
                                               {"varval", "delete", "f", "a"},
                                               {"varval", "add", "f", "a", "3"},
                                               {"varval", "delete", "f", "a", "--if-value", "1"}}) {
        EXPECT_EQ(genreg(arguments).status, 5) << arguments[1];
        EXPECT_EQ(read("f"), before);
    }
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "3", "--all", "--if-value", "2"}).status, 0);
    EXPECT_EQ(read("f"), "a = 1 # x\nb = 0\na = 3 # y\n");
    // A line that is as asked already does not keep the other from being changed.
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "1", "--all"}).status, 0);
    EXPECT_EQ(read("f"), "a = 1 # x\nb = 0\na = 1 # y\n");
    EXPECT_NE(genreg({"varval", "set", "f", "a", "1", "--all"}).err.find("nothing to change"), std::string::npos);
    EXPECT_EQ(genreg({"varval", "add", "f", "a", "4", "--all"}).status, 0);
    EXPECT_EQ(genreg({"varval", "delete", "f", "a", "--all"}).status, 2) << "nobody to ask";
    EXPECT_EQ(genreg({"varval", "delete", "f", "a", "--all", "-y"}).status, 0);
    EXPECT_EQ(read("f"), "b = 0\n");
}

TEST_F(VarVal, IfValueComparesBeforeItChanges) {
    write("f", "a = \"x  y\"\n");
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2", "--if-value", "1"}).status, 5);
    EXPECT_EQ(genreg({"varval", "delete", "f", "a", "--if-value", "1"}).status, 5);
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2", "--if-value", "x  y"}).status, 0);
    EXPECT_EQ(genreg({"varval", "set", "f", "b", "2", "--if-value", "x"}).status, 1);
    EXPECT_EQ(read("f"), "a = 2\n");
    EXPECT_EQ(genreg({"varval", "delete", "f", "a", "--if-value", "2"}).status, 0);
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
        EXPECT_EQ(genreg({"varval", "add", "f", "n", "1"}).status, 0);
        EXPECT_EQ(read("f"), c.after);
    }
    const Result created = genreg({"varval", "add", "new/f", "n", "1"});
    EXPECT_EQ(created.status, 0);
    EXPECT_NE(created.err.find("new"), std::string::npos);
    EXPECT_EQ(read("new/f"), "n = 1\n");
}

TEST_F(VarVal, ARehearsalShowsTheChangeAndWritesNothing) {
    write("f", "a = 1\nb = 2\n");
    const std::string difference = "--- f\n+++ f\n@@ -1,2 +1,2 @@\n a = 1\n-b = 2\n+b = 3\n";
    EXPECT_EQ(genreg({"-n", "varval", "set", "f", "b", "3"}).out, difference);
    EXPECT_EQ(genreg({"varval", "delete", "f", "x", "--dry-run"}).status, 1);
    EXPECT_EQ(genreg({"varval", "add", "new", "x", "1", "--dry-run"}).out, "--- new\n+++ new\n@@ -0,0 +1 @@\n+x = 1\n");
    const Result json = genreg({"varval", "set", "f", "b", "3", "-n", "--json"});
    EXPECT_EQ(
        json.out,
        "{\"schema\":1,\"operation\":\"varval set\",\"path\":\"f\",\"name\":\"b\",\"value\":\"3\",\"changed\":true,"
        "\"dry_run\":true,\"difference\":[{\"op\":\"remove\",\"line\":2,\"text\":\"b = 2\"},{\"op\":\"insert\","
        "\"line\":2,\"text\":\"b = 3\"}]}\n");
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
    EXPECT_EQ(read("f"), "a = 1\nb = 2\n");
    EXPECT_EQ(genreg({"varval", "set", "f", "b", "3", "--diff"}).out, difference);
    EXPECT_EQ(read("f"), "a = 1\nb = 3\n");
}

TEST_F(VarVal, UnchangedIsNoFailureAndTouchesNothing) {
    write("f", "a   =   1   # c\n");
    const auto written = std::filesystem::last_write_time(at("f"));
    const Result result = genreg({"varval", "set", "f", "a", "1", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(objects(result.out).at(0)["changed"], false);
    EXPECT_EQ(objects(result.err).at(0)["kind"], "unchanged");
    EXPECT_EQ(std::filesystem::last_write_time(at("f")), written);
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "1", "-q"}).err, "");
}

TEST_F(VarVal, ManyWritersLoseNothing) {
    write("f", "# shared\n");
    std::vector<Running> writers;
    constexpr std::size_t WRITERS = 8;
    constexpr std::size_t EACH = 10;
    for (std::size_t round = 0; round < EACH; ++round) {
        for (std::size_t writer = 0; writer < WRITERS; ++writer) {
            const std::string name = "v" + std::to_string(writer) + "." + std::to_string(round);
            writers.push_back(start({"varval", "add", "f", name, "1", "--wait", "60"}));
        }
    }
    for (const Running& writer : writers) {
        const Result result = finish(writer);
        EXPECT_EQ(result.status, 0) << result.err;
    }
    EXPECT_EQ(objects(genreg({"varval", "list", "f", "--json"}).out).size(), WRITERS * EACH);
}

TEST_F(VarVal, OfManyThatClaimANameOneWins) {
    write("f", "owner = nobody\n");
    for (const char* command : {"add", "set"}) {
        std::vector<Running> claims;
        for (int i = 0; i < 8; ++i) {
            std::vector<std::string> arguments{"varval", command, "f", "claim", "mine", "--wait", "60"};
            if (arguments[1] == "set") {
                arguments[3] = "owner";
                arguments.insert(arguments.end(), {"--if-value", "nobody"});
            }
            claims.push_back(start(arguments));
        }
        int won = 0;
        for (const Running& claim : claims) {
            const int status = finish(claim).status;
            EXPECT_TRUE(status == 0 || status == 5) << status;
            won += status == 0 ? 1 : 0;
        }
        EXPECT_EQ(won, 1) << command;
    }
    EXPECT_EQ(read("f"), "owner = mine\nclaim = mine\n");
}

}  // namespace

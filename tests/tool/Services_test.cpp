#include "Tool.h"

namespace {

class Services : public Scratch {
protected:
    // The machine's own file, or what every such file holds.
    Services() {
        std::ifstream stream("/etc/services", std::ios::binary);
        original_.assign(std::istreambuf_iterator<char>(stream), {});
        if (original_.find("\ndomain\t\t53/udp\n") == std::string::npos) {
            original_ =
                "# services\nhttp\t\t80/tcp\t\twww\t\t# World \xe9\ndomain\t\t53/tcp\t# dns\ndomain\t\t53/udp\n\n";
        }
        original_ += "mine\t5000/tcp  one   two\t#  caf\xc3\xa9 \xff\x01 \nlong " + std::string(5000, 'x') + "\nbad\n";
        write("s", original_);
    }

    // The original with one piece of it replaced.
    std::string with(const std::string& from, const std::string& to) const {
        std::string text = original_;
        const std::size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? text : text.replace(at, from.size(), to);
    }
    std::string original_;
};

TEST_F(Services, EveryOtherLineStaysByteForByte) {
    EXPECT_EQ(genreg({"services", "add", "s", "rvnadm", "50002/tcp", "rvnadmin", "--comment", "adm"}).status, 0);
    EXPECT_EQ(read("s"), original_ + "rvnadm\t\t50002/tcp\trvnadmin\t# adm\n");
    EXPECT_EQ(genreg({"services", "get", "s", "rvnadm"}).out, "50002/tcp\n");
    EXPECT_EQ(genreg({"services", "delete", "s", "rvnadm"}).status, 0);
    EXPECT_EQ(read("s"), original_);
    EXPECT_EQ(genreg({"services", "set", "s", "domain", "5353/udp"}).status, 0);
    EXPECT_EQ(read("s"), with("domain\t\t53/udp\n", "domain\t\t5353/udp\n"));
    EXPECT_EQ(genreg({"services", "delete", "s", "domain/udp"}).status, 0);
    EXPECT_EQ(read("s"), with("domain\t\t53/udp\n", ""));
}

TEST_F(Services, WhatIsNotGivenStaysHoweverOftenALineIsSet) {
    const std::string line = "mine\t5000/tcp  one   two\t#  caf\xc3\xa9 \xff\x01 \n";
    for (int port = 6001; port <= 6010; ++port) {
        ASSERT_EQ(genreg({"services", "set", "s", "mine", std::to_string(port) + "/tcp"}).status, 0);
    }
    EXPECT_EQ(read("s"), with("mine\t5000", "mine\t6010"));
    EXPECT_EQ(genreg({"services", "set", "s", "mine", "5000/tcp", "one", "two"}).status, 0);
    EXPECT_EQ(read("s"), original_);
    // Aliases alone, the comment alone: the line keeps its place.
    EXPECT_EQ(genreg({"services", "set", "s", "mine", "5000/tcp", "three"}).status, 0);
    EXPECT_EQ(read("s"), with("one   two", "three"));
    EXPECT_EQ(genreg({"services", "set", "s", "mine", "5000/tcp", "--no-aliases", "--comment", ""}).status, 0);
    EXPECT_EQ(read("s"), with(line, "mine\t5000/tcp\n"));
    EXPECT_EQ(genreg({"services", "set", "s", "mine", "5000/tcp", "x", "--comment", "n\xc3\xa9w # y"}).status, 0);
    EXPECT_EQ(read("s"), with(line, "mine\t5000/tcp\tx\t# n\xc3\xa9w # y\n"));
    const auto written = std::filesystem::last_write_time(at("s"));
    EXPECT_NE(genreg({"services", "set", "s", "mine", "5000/tcp", "x"}).err.find("nothing to change"),
              std::string::npos);
    EXPECT_EQ(std::filesystem::last_write_time(at("s")), written);
}

TEST_F(Services, TwinsAreToldApart) {
    for (const char* command : {"get", "delete"}) {
        const Result result = genreg({"services", command, "s", "domain"});
        EXPECT_EQ(result.status, 5);
        EXPECT_NE(result.err.find("domain/tcp, domain/udp"), std::string::npos) << result.err;
    }
    EXPECT_EQ(genreg({"services", "get", "s", "domain", "--all"}).out, "53/tcp\n53/udp\n");
    EXPECT_EQ(genreg({"services", "get", "s", "domain/udp"}).out, "53/udp\n");
    EXPECT_EQ(genreg({"services", "get", "s", "domain/sctp"}).status, 1);
    EXPECT_EQ(genreg({"services", "set", "s", "domain", "53/sctp"}).status, 1);
    EXPECT_EQ(genreg({"services", "add", "s", "domain", "54/udp"}).status, 5);
    EXPECT_EQ(genreg({"services", "set", "s", "domain", "54/udp", "--if-value", "55/udp"}).status, 5);
    EXPECT_EQ(genreg({"services", "delete", "s", "domain", "--all"}).status, 2) << "nobody to ask";
    EXPECT_EQ(read("s"), original_);
    EXPECT_EQ(genreg({"services", "delete", "s", "domain", "--all", "-y", "--if-value", "53/udp"}).status, 0);
    EXPECT_EQ(read("s"), with("domain\t\t53/udp\n", ""));
    EXPECT_EQ(genreg({"services", "delete", "s", "domain"}).status, 0);
}

TEST_F(Services, SeveralLinesOfOneServiceAreEditedEachByItself) {
    const std::string before = "a 1/tcp x # 1\na 2/tcp y # 2\na 9/tcp z #3\n";
    write("f", before);
    EXPECT_EQ(genreg({"services", "set", "f", "a", "9/tcp"}).status, 5);
    EXPECT_EQ(genreg({"services", "delete", "f", "a/tcp"}).status, 5);
    EXPECT_EQ(read("f"), before);
    EXPECT_EQ(genreg({"services", "set", "f", "a", "9/tcp", "--all"}).status, 0);
    EXPECT_EQ(read("f"), "a 9/tcp x # 1\na 9/tcp y # 2\na 9/tcp z #3\n");
    EXPECT_NE(genreg({"services", "set", "f", "a", "9/tcp", "--all"}).err.find("nothing to change"), std::string::npos);
    EXPECT_EQ(genreg({"services", "add", "f", "a", "8/tcp", "--all"}).status, 0);
    EXPECT_EQ(genreg({"services", "set", "f", "a", "7/tcp", "--all", "--if-value", "8/tcp"}).status, 0);
    EXPECT_EQ(read("f"), "a 9/tcp x # 1\na 9/tcp y # 2\na 9/tcp z #3\na\t\t7/tcp\n");
}

TEST_F(Services, WhatALineCannotHoldIsRefusedWithTheReason) {
    const std::string longComment(2100, 'c');
    std::vector<std::string> many{"services", "add", "s", "n", "1/tcp"};
    for (int i = 0; i < 128; ++i) {
        many.push_back("a" + std::to_string(i));
    }
    const struct {
        std::vector<std::string> words;
        std::string reason;
    } cases[] = {
        {{"services", "add", "s", "n", "0/tcp"}, "1 to 65535"},
        {{"services", "add", "s", "n", "65536/tcp"}, "1 to 65535"},
        {{"services", "add", "s", "n", "80x/tcp"}, "1 to 65535"},
        {{"services", "add", "s", "n", "80"}, "lacks its protocol"},
        {{"services", "add", "s", "n", "80/"}, "protocol is empty"},
        {{"services", "add", "s", "n", "80/t/p"}, "protocol"},
        {{"services", "add", "s", "n m", "80/tcp"}, "blank"},
        {{"services", "add", "s", "n#", "80/tcp"}, "blank"},
        {{"services", "add", "s", "", "80/tcp"}, "empty"},
        {{"services", "add", "s", "n", "80/tcp", "a/b"}, "alias"},
        {{"services", "add", "s", "n", "80/tcp", "a\nb"}, "line break"},
        {{"services", "add", "s", "n", "80/dccp", "alias"}, "aliases are read for"},
        {{"services", "set", "s", "mine", "80/tcp", "--comment", "two\nlines"}, "line break"},
        {{"services", "set", "s", "mine", "80/tcp", "--comment", longComment}, "2046"},
        {{"services", "add", "s", "n", "80/tcp", "--comment", longComment}, "2046"},
        {many, "at most 127"},
    };
    for (const auto& c : cases) {
        const Result result = genreg(c.words);
        EXPECT_EQ(result.status, 6) << c.words[3] << " " << c.words[4];
        EXPECT_NE(result.err.find(c.reason), std::string::npos) << result.err;
    }
    EXPECT_EQ(read("s"), original_);
    many.pop_back();
    EXPECT_EQ(genreg(many).status, 0);
    const Result got = genreg({"--json", "services", "get", "s", "n"});
    EXPECT_EQ(objects(got.out).at(0)["aliases"].size(), 127U);
    EXPECT_EQ(genreg({"services", "add", "s", "u", "80/dccp"}).status, 0);
}

TEST_F(Services, ListsAreTablesAndObjects) {
    write("f", "b 2/tcp x y # c\na\t2/udp\n# no service\na 1/tcp #\nnoport\n");
    EXPECT_EQ(genreg({"services", "list", "f"}).out,
              "NAME  PORT   ALIASES  COMMENT\nb     2/tcp  x y      c\na     2/udp  -        -\n"
              "a     1/tcp  -        \"\"\n");
    EXPECT_EQ(
        genreg({"services", "list", "f", "--json"}).out,
        "{\"schema\":1,\"line\":1,\"name\":\"b\",\"port\":2,\"protocol\":\"tcp\",\"aliases\":[\"x\",\"y\"],"
        "\"comment\":\"c\"}\n"
        "{\"schema\":1,\"line\":2,\"name\":\"a\",\"port\":2,\"protocol\":\"udp\",\"aliases\":[],\"comment\":null}\n"
        "{\"schema\":1,\"line\":4,\"name\":\"a\",\"port\":1,\"protocol\":\"tcp\",\"aliases\":[],\"comment\":\"\"}\n");
    EXPECT_EQ(genreg({"services", "ports", "f"}).out, "PORT  SERVICES\n1     a/tcp\n2     b/tcp a/udp\n");
    const Result absent = genreg({"services", "get", "f", "aa", "--json"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(objects(absent.err).at(0)["kind"], "not-found");
}

TEST_F(Services, ARehearsalLeavesTheBytes) {
    const Result dry = genreg({"services", "set", "s", "mine", "5001/tcp", "-n", "--json"});
    EXPECT_EQ(dry.status, 0);
    const auto object = objects(dry.out).at(0);
    EXPECT_EQ(object["changed"], true);
    EXPECT_EQ(object["difference"].size(), 2U);
    EXPECT_EQ(genreg({"services", "delete", "s", "mine", "-n"}).status, 0);
    EXPECT_EQ(read("s"), original_);
    EXPECT_EQ(names(), std::vector<std::string>{"s"});
}

}  // namespace

#include "Tool.h"

namespace {

class Services : public ToolTest {
protected:
    // The machine's own file, or what every such file holds.
    Services() {
        original_ = read("/etc/services");
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
    EXPECT_EQ(status("services add s rvnadm 50002/tcp rvnadmin --comment adm"), 0);
    EXPECT_EQ(read("s"), original_ + "rvnadm\t\t50002/tcp\trvnadmin\t# adm\n");
    EXPECT_EQ(out("services get s rvnadm"), "50002/tcp\n");
    EXPECT_EQ(status("services delete s rvnadm"), 0);
    EXPECT_EQ(read("s"), original_);
    EXPECT_EQ(status("services set s domain 5353/udp"), 0);
    EXPECT_EQ(read("s"), with("domain\t\t53/udp\n", "domain\t\t5353/udp\n"));
    EXPECT_EQ(status("services delete s domain/udp"), 0);
    EXPECT_EQ(read("s"), with("domain\t\t53/udp\n", ""));
}

TEST_F(Services, WhatIsNotGivenStaysHoweverOftenALineIsSet) {
    const std::string line = "mine\t5000/tcp  one   two\t#  caf\xc3\xa9 \xff\x01 \n";
    for (const char* port : {"6001/tcp", "6002/tcp", "6010/tcp"}) {
        ASSERT_EQ(status("services set s mine", {port}), 0);
    }
    EXPECT_EQ(read("s"), with("mine\t5000", "mine\t6010"));
    EXPECT_EQ(status("services set s mine 5000/tcp one two"), 0);
    EXPECT_EQ(read("s"), original_);
    // Aliases alone, the comment alone: the line keeps its place.
    EXPECT_EQ(status("services set s mine 5000/tcp three"), 0);
    EXPECT_EQ(read("s"), with("one   two", "three"));
    EXPECT_EQ(status("services set s mine 5000/tcp --no-aliases --comment", {""}), 0);
    EXPECT_EQ(read("s"), with(line, "mine\t5000/tcp\n"));
    EXPECT_EQ(status("services set s mine 5000/tcp x --comment", {"n\xc3\xa9w # y"}), 0);
    EXPECT_EQ(read("s"), with(line, "mine\t5000/tcp\tx\t# n\xc3\xa9w # y\n"));
    EXPECT_NE(genreg("services set s mine 5000/tcp x").err.find("nothing to change"), std::string::npos);
}

TEST_F(Services, TwinsAreToldApart) {
    expectFailure(5, "domain/tcp, domain/udp", "services get s domain");
    expectFailure(5, "domain/tcp, domain/udp", "services delete s domain");
    EXPECT_EQ(out("services get s domain --all"), "53/tcp\n53/udp\n");
    EXPECT_EQ(out("services get s domain/udp"), "53/udp\n");
    EXPECT_EQ(status("services get s domain/sctp"), 1);
    EXPECT_EQ(status("services set s domain 53/sctp"), 1);
    EXPECT_EQ(status("services add s domain 54/udp"), 5);
    EXPECT_EQ(status("services set s domain 54/udp --if-value 55/udp"), 5);
    EXPECT_EQ(status("services delete s domain --all"), 2) << "nobody to ask";
    EXPECT_EQ(read("s"), original_);
    EXPECT_EQ(status("services delete s domain --all -y --if-value 53/udp"), 0);
    EXPECT_EQ(read("s"), with("domain\t\t53/udp\n", ""));
    EXPECT_EQ(status("services delete s domain"), 0);
}

TEST_F(Services, WhatALineCannotHoldIsRefusedWithTheReason) {
    const std::string longComment(2100, 'c');
    Words most{"n", "1/tcp"};
    for (int i = 0; i < 127; ++i) {
        most.push_back("a" + std::to_string(i));
    }
    Words tooMany = most;
    tooMany.emplace_back("b");
    expectFailure(6, "1 to 65535", "services add s n 0/tcp");
    expectFailure(6, "1 to 65535", "services add s n 65536/tcp");
    expectFailure(6, "lacks its protocol", "services add s n 80");
    expectFailure(6, "protocol is empty", "services add s n 80/");
    expectFailure(6, "blank", "services add s", {"n m", "80/tcp"});
    expectFailure(6, "empty", "services add s", {"", "80/tcp"});
    expectFailure(6, "alias", "services add s n 80/tcp a/b");
    expectFailure(6, "aliases are read for", "services add s n 80/dccp alias");
    expectFailure(6, "line break", "services set s mine 80/tcp --comment", {"two\nlines"});
    expectFailure(6, "2046", "services set s mine 80/tcp --comment", {longComment});
    expectFailure(6, "at most 127", "services add s", tooMany);
    EXPECT_EQ(read("s"), original_);
    EXPECT_EQ(status("services add s", most), 0);
    EXPECT_EQ(object("services get s n")["aliases"].size(), 127U);
    EXPECT_EQ(status("services add s u 80/dccp"), 0);
}

TEST_F(Services, ListsAreTablesAndObjects) {
    write("f", "b 2/tcp x y # c\na\t2/udp\n# no service\na 1/tcp #\nnoport\n");
    EXPECT_EQ(out("services list f"),
              "NAME  PORT   ALIASES  COMMENT\nb     2/tcp  x y      c\na     2/udp  -        -\n"
              "a     1/tcp  -        \"\"\n");
    const auto list = objects(out("services list f --json"));
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0].dump(),
              R"({"schema":1,"line":1,"name":"b","port":2,"protocol":"tcp","aliases":["x","y"],"comment":"c"})");
    EXPECT_EQ(list[2].dump(),
              R"({"schema":1,"line":4,"name":"a","port":1,"protocol":"tcp","aliases":[],"comment":""})");
    EXPECT_EQ(out("services ports f"), "PORT  SERVICES\n1     a/tcp\n2     b/tcp a/udp\n");
    expectFailure(1, "not-found", "services get f aa --json");
}

}  // namespace

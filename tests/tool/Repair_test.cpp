#include <genreg/Checksum.h>

#include <ctime>

#include "Tool.h"

namespace {

const std::string JUNK = "JUNK!!!";

std::string instanceFrame(const std::string& name) {
    return frame(RecordImage(1, 0x27).text("RVN").version().text(name).number(1).end());
}

class Repair : public ToolTest {
protected:
    const std::string one_ = instanceFrame("inst1");
    const std::string two_ = instanceFrame("inst2");

    // The damaged file gives this one, and is kept.
    void expectRepaired(const std::string& damaged, const std::string& sound, const std::string& what) {
        write("f", damaged);
        const Json told = object("repair -y f");
        EXPECT_EQ(read("f"), sound) << what;
        EXPECT_EQ(read(told["original"].text()), damaged) << what;
        EXPECT_NE(status("check f"), 7) << what;
        remove(told["original"].text());
        EXPECT_EQ(names(), ".f.lock f") << what;
    }
    static std::string stamped(const std::string& body) {
        std::string header = std::to_string(static_cast<int>(sqlzChecksumXOR(body.data(), body.size())));
        header.resize(32);
        return header + body;
    }
    static std::string bigEndian(std::string bytes) {
        std::reverse(bytes.begin(), bytes.begin() + 4);
        return bytes;
    }
};

TEST_F(Repair, EverySoundRecordIsKept) {
    const std::string both = one_ + two_;
    expectRepaired(both + JUNK, both, "behind");
    expectRepaired(one_ + JUNK + two_, both, "between");
    expectRepaired(JUNK + both, both, "in front");
    expectRepaired(std::string("\0\0\0\5", 4) + JUNK + both, both, "what looks like the other order of bytes");
    expectRepaired(std::string("12345\0x", 7) + both, both, "what looks like a checksum header");
    expectRepaired(both.substr(0, 100), one_, "cut");
    std::string length = both;
    length[0] = 0x70;
    expectRepaired(length, two_, "a length that leads into the next record");
    std::string field = one_ + one_ + two_;
    field[58 + 24] = 0x50;
    expectRepaired(field, both, "a field that does not fit");

    expectRepaired(stamped(both) + JUNK, stamped(both), "a checksum header");
    expectRepaired(stamped(both).insert(32, JUNK), stamped(both), "junk behind one");
    expectRepaired(JUNK + stamped(both), stamped(both), "one behind junk");
    expectRepaired(bigEndian(one_) + JUNK + bigEndian(two_), bigEndian(one_) + bigEndian(two_), "big-endian");
    const std::string variable = frame(std::string("limit\0..........\xfe\xff\xff\xffwhy\0............", 36));
    expectRepaired(variable + JUNK + variable + one_, variable + variable, "a record of another kind among variables");
    expectRepaired(frame("abc") + frame("defg") + JUNK, frame("abc") + frame("defg"), "records of no known kind");
}

TEST_F(Repair, ItTellsWhatIsLostAndWhereTheOldOneIs) {
    write("f", one_ + JUNK + two_);
    ASSERT_EQ(::chmod(path("f").c_str(), 0640), 0);
    EXPECT_EQ(object("-n repair f").dump(),
              R"({"schema":1,"operation":"repair","path":"f","kept":2,"lost":[{"offset":58,"length":7,"message":)"
              R"("the length says 1263424842 bytes, and the file ends after 61 bytes"}],"original":null,"into":null,)"
              R"("changed":true,"dryRun":true})");
    EXPECT_EQ(read("f"), one_ + JUNK + two_);
    EXPECT_EQ(names(), "f") << "a rehearsal touches nothing";
    const Result result = genreg("repair -y f");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.find("f: 2 sound records to be kept; 7 bytes in 1 place to be lost\n  offset 58, 7 bytes: "),
              0U);
    const std::size_t name = result.out.find("f.damaged-");
    ASSERT_NE(name, std::string::npos);
    const std::string kept = result.out.substr(name, std::string("f.damaged-20260101T000000Z").size());
    EXPECT_EQ(read(kept), one_ + JUNK + two_);
    EXPECT_EQ(object("status f")["mode"], "0640");
    EXPECT_EQ(std::filesystem::hard_link_count(path("f")), 1U);

    const Result again = genreg("repair f");
    EXPECT_EQ(again.status, 0);
    EXPECT_NE(again.err.find("it is sound"), std::string::npos);
    EXPECT_EQ(object("repair f")["changed"], false);
    EXPECT_EQ(names(), ".f.lock f " + kept) << "nothing is done to a sound one";
}

TEST_F(Repair, NothingIsOverwritten) {
    std::string expected;
    for (std::time_t now = std::time(nullptr), i = 0; i < 20; ++i) {
        const std::time_t second = now + i;
        char name[64];
        (void)std::strftime(name, sizeof name, "f.damaged-%Y%m%dT%H%M%SZ", std::gmtime(&second));
        write(name, "another");
        expected = name;
    }
    write("f", one_ + JUNK);
    const std::string kept = object("repair -y f")["original"].text();
    EXPECT_TRUE(kept.ends_with("Z-2")) << kept;
    EXPECT_EQ(read(kept), one_ + JUNK);
    EXPECT_EQ(read(kept.substr(0, kept.size() - 2)), "another");
}

TEST_F(Repair, IntoAnotherFileLeavesTheDamagedOneAlone) {
    write("f", one_ + JUNK);
    ASSERT_EQ(::chmod(path("f").c_str(), 0600), 0);
    EXPECT_EQ(object("repair f --into new")["into"], "new");
    EXPECT_EQ(read("new"), one_);
    EXPECT_EQ(object("status new")["mode"], "0600") << "it shows no more than the damaged one";
    EXPECT_EQ(read("f"), one_ + JUNK);
    EXPECT_EQ(names(), ".new.lock f new");
    write("new", "another");
    EXPECT_EQ(status("repair f --into new"), 5);
    EXPECT_EQ(read("new"), "another");
    EXPECT_EQ(status("repair f --into new -y"), 0);
    EXPECT_EQ(read("new"), one_);
    EXPECT_EQ(status("repair f --into f -y"), 2);
    EXPECT_EQ(status("repair f --into none/new"), 3);
    EXPECT_EQ(status("repair f --into", {""}), 2);
    EXPECT_EQ(names(), ".new.lock f new");
}

TEST_F(Repair, WhatItCannotDoItRefuses) {
    write("f", one_ + JUNK);
    EXPECT_EQ(status("repair f"), 2) << "nobody to ask";
    write("lines", "a = 1\n");
    expectFailure(2, "it is a file of lines", "repair lines -y");
    write("junk", std::string("a\0b\0", 4) + std::string(500, '\xee'));
    expectFailure(7, "no sound record", "repair junk -y");
    EXPECT_EQ(status("repair none"), 3);
    std::filesystem::create_directory(path("folder"));
    EXPECT_EQ(status("repair folder"), 3);
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0644), 0);
    EXPECT_EQ(status("repair pipe"), 3);
    EXPECT_EQ(names(), "f folder junk lines pipe");
    // Of a record with another value the checksum alone tells, and not which one.
    std::string body = one_ + two_;
    const std::string header = stamped(body).substr(0, 32);
    body[42] = 'X';
    write("f", header + body);
    const Result result = genreg("repair f -y");
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("may hold a wrong value"), std::string::npos);
    EXPECT_EQ(read("f"), stamped(body));
}

}  // namespace

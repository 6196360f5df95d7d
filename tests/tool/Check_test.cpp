#include "Tool.h"

namespace {

std::string serviceFrame() {
    return frame(RecordImage(2, 0x3).text("RVN").version().end());
}

std::string instanceFrame(const std::string& name) {
    return frame(RecordImage(1, 0x27).text("RVN").version().text(name).number(1).end());
}

class Check : public ToolTest {
protected:
    // The severity and kind of each thing that is found, in their order.
    std::string found(int status, const std::string& line) {
        const Result result = genreg("--json check " + line);
        EXPECT_EQ(result.status, status) << line << ": " << result.out << result.err;
        told_ = objects(result.out);
        std::string all;
        for (const Json& object : told_) {
            all += (all.empty() ? "" : " ") + object["severity"].text() + ":" + object["kind"].text();
        }
        return all;
    }
    [[nodiscard]] const Json& told(std::size_t index) const { return told_.at(index); }

private:
    std::vector<Json> told_;
};

TEST_F(Check, DamageIsToldWhereItIs) {
    const std::string one = instanceFrame("inst1");
    const std::string two = instanceFrame("inst2");
    const std::string junk = "JUNK!!!";
    EXPECT_EQ(one.size(), 58U);
    const std::pair<std::string, int> files[] = {
        {one + two + junk, 116}, {one + junk + two, 58}, {junk + one + two, 0}};
    for (const auto& [bytes, offset] : files) {
        write("f", bytes);
        EXPECT_EQ(found(7, "f"), "error:damage");
        EXPECT_EQ(told(0)["offset"], offset);
        EXPECT_EQ(told(0)["length"], 7);
    }
    EXPECT_EQ(told(0).dump().find(R"({"schema":1,"severity":"error","kind":"damage","path":"f","offset":0,"length":7,)"
                                  R"("line":null,"message":"no record: the length says)"),
              0U);
    write("f", (one + two).substr(0, 100));
    EXPECT_EQ(found(7, "f"), "error:damage");
    write("f", std::string(100, '\0'));
    EXPECT_EQ(found(7, "f"), "error:damage") << "no writer makes records of no bytes";
    EXPECT_NE(told(0)["hint"].text().find("saved copy"), std::string::npos) << "nothing is left to be repaired";
    std::string words = std::string(20, '\xee') + "\na = 1\n";
    for (int i = 0; i < 50; ++i) {
        words += std::string("\xee\0\n", 3);
    }
    write("f", words);
    EXPECT_EQ(found(7, "f"), "error:damage") << "junk in which a line looks like a pair";
    EXPECT_EQ(names(), "f") << "looking leaves nothing behind";
    // Many of them are told in a screenful.
    std::string many;
    for (int i = 0; i < 100; ++i) {
        many += one + junk;
    }
    write("f", many);
    const Result result = genreg("check f");
    EXPECT_LT(std::count(result.out.begin(), result.out.end(), '\n'), 50);
    EXPECT_NE(result.out.find("and 80 more of the kind"), std::string::npos);
    EXPECT_NE(result.out.find("f: damaged: 100 errors"), std::string::npos);
}

TEST_F(Check, ARecordIsHeldAgainstTheOthers) {
    const std::string later = frame(RecordImage(4, 0x403).text("RVN").text("v").item("\x01\xff").end());
    write("f", instanceFrame("inst1") + later + instanceFrame("inst1"));
    EXPECT_EQ(found(0, "f"), "note:later-items") << "a note is no complaint";
    EXPECT_EQ(told(0)["offset"], 58);
    EXPECT_EQ(found(1, "f --deep"), "note:later-items warning:duplicate-key warning:no-service warning:no-service");
    EXPECT_NE(told(1)["message"].text().find("at offset 0"), std::string::npos);
    EXPECT_NE(told(2)["hint"].text().find("genreg --registry f service set RVN 9.7.0.2 "), std::string::npos);
    write("f", instanceFrame("inst1") + serviceFrame());
    EXPECT_EQ(found(0, "f --deep"), "");
    EXPECT_EQ(genreg("check f").out, "f: sound: 2 records\n");
    EXPECT_EQ(names(), "f") << "the rehearsal leaves nothing behind";
    // A file without a name is the global registry, and nothing else than records.
    write("global.reg", "a = 1\n");
    EXPECT_EQ(found(7, ""), "error:damage");
    remove("global.reg");
    EXPECT_EQ(status("check"), 3);

    const std::string variable("limit\0..........\xfe\xff\xff\xffwhy\0............", 36);
    write("v", frame(variable) + frame(variable));
    EXPECT_EQ(found(1, "v --deep"), "warning:duplicate-key");
    std::string open = variable;
    open.replace(5, 1, "!");
    open.replace(15, 1, "!");
    write("v", frame(variable) + frame(open) + frame(variable).replace(4, 1, "L"));
    EXPECT_EQ(found(7, "v"), "error:damage") << "a name without an end among others";
    EXPECT_EQ(told(0)["offset"], 40);
}

TEST_F(Check, LinesAreReadInTheirForm) {
    write("f", std::string("a = 1\nno pair\na = 2\nb = 1\0x\nc = 1#2\n", 36));
    EXPECT_EQ(found(0, "f"), "");
    EXPECT_EQ(found(1, "f --deep"), "warning:other-form warning:hidden note:cut warning:duplicate-key");
    EXPECT_EQ(told(0)["line"], 2);
    EXPECT_EQ(told(1)["line"], 4);
    EXPECT_EQ(told(3)["line"], 3);
    write("s", "http 80/tcp\nhttp 80/udp\n");
    EXPECT_EQ(found(0, "s --deep"), "") << "told by its lines";
    EXPECT_EQ(found(1, "s --deep --form varval"), "warning:other-form warning:other-form");
    EXPECT_EQ(status("check s --form hosts"), 2);
    EXPECT_EQ(found(7, "s --form binvar"), "error:damage");
    write("words", "no form\nat all\n");
    EXPECT_EQ(found(1, "words --deep"), "warning:form-unknown");
    write("empty", "");
    EXPECT_EQ(found(0, "empty --deep"), "");
}

TEST_F(Check, WhatStandsBesideItIsJudged) {
    write("f", "a = 1\n");
    write("f.tmp", "a = ");
    write("f.cor", "a");
    std::filesystem::create_hard_link(path("f"), path(".f.bkp"));
    EXPECT_EQ(found(1, "f"), "warning:companion note:companion note:companion");
    EXPECT_NE(told(0)["hint"].text().find("genreg diff f "), std::string::npos);
    remove("f.tmp");
    EXPECT_EQ(found(0, "f"), "note:companion note:companion") << "its own backup is no other name";
    std::filesystem::create_hard_link(path("f"), path("other"));
    EXPECT_EQ(found(1, "f"), "note:companion note:companion warning:hard-link");
    remove("other");
    remove(".f.bkp");
    remove("f.cor");
    std::filesystem::create_directory(path("f.cor"));
    link("nowhere", ".f.lock");
    EXPECT_EQ(found(1, "f"), "error:lock-file error:companion");
    EXPECT_EQ(status("varval set f a 2"), 3) << "which is so";
}

TEST_F(Check, AnUpdateThatCannotWorkIsForeseen) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "takes other users";
    }
    write("f", "a = 1\n");
    Surroundings another;
    another.unprivileged = true;
    const auto kinds = [&](const std::string& line) {
        std::string all;
        for (const Json& object : objects(genreg("--json check " + line, {}, another).out)) {
            all += object["kind"].text() + " ";
        }
        return all;
    };
    EXPECT_EQ(kinds("f"), "folder ");
    std::filesystem::permissions(folder(), std::filesystem::perms(01777));
    EXPECT_EQ(kinds("f --deep"), "folder ") << "of a sticky folder";
    EXPECT_EQ(names(), "f");
    ASSERT_EQ(::chown(path("f").c_str(), 65534, 65534), 0);
    EXPECT_EQ(kinds("f --deep"), "");
    write(".f.lock", "");
    ASSERT_EQ(::chmod(path(".f.lock").c_str(), 0644), 0);
    EXPECT_EQ(kinds("f"), "lock-file ");
    EXPECT_EQ(found(1, "f"), "warning:lock-file") << "root may; the owner may not";
}

}  // namespace

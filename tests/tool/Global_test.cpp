#include <genreg/Checksum.h>
#include <genreg/InstanceInfo.h>

#include "GlobalImages.h"
#include "Tool.h"

namespace {

class Global : public Scratch {
protected:
    void SetUp() override {
        setenv("RVN_GLOBAL_REG_PATHNAME", at("global.reg").c_str(), 1);
        unsetenv("RVNINSTANCE");
    }
    void TearDown() override { unsetenv("RVN_GLOBAL_REG_PATHNAME"); }

    // What is told of a file with --json, and the exit status.
    std::vector<nlohmann::ordered_json> dump(const std::string& bytes, int status) {
        write("f", bytes);
        const Result result = genreg({"dump", "f", "--json"});
        EXPECT_EQ(result.status, status) << result.err;
        return objects(result.out);
    }
};

TEST_F(Global, VersionsGoFromFormToForm) {
    const std::vector<std::vector<std::string>> sound = {
        {"encode", "9.7.0.2", "0x0009000700000002"}, {"encode", "10.65535", "0x000affff00000000"},
        {"decode", "0x0009000700000002", "9.7.0.2"}, {"decode", "18446744073709551615", "65535.65535.65535.65535"},
        {"to-level", "9.7.0.2", "9070002"},          {"to-level", "0x0009000700000002", "9070002"},
        {"from-level", "9070002", "9.7.0.2"},        {"from-level", "99999999", "99.99.99.99"},
    };
    for (const auto& row : sound) {
        EXPECT_EQ(genreg({"version", row[0], row[1]}).out, row[2] + "\n") << row[0] << " " << row[1];
    }
    for (const char* text : {"", ".", "9..0", "9.7.0.2.1", "9.7 ", "-1", "65536", "9.x", "0x9"}) {
        const Result result = genreg({"version", "encode", "--", text});
        EXPECT_EQ(result.status, 6) << text << result.out;
        EXPECT_NE(result.err.find("is no version"), std::string::npos) << result.err;
    }
    EXPECT_EQ(genreg({"version", "decode", "0x10000000000000000"}).status, 6);
    EXPECT_EQ(genreg({"version", "to-level", "9.100"}).status, 6) << "two digits a part";
    EXPECT_EQ(genreg({"version", "from-level", "109070002"}).status, 6);
    EXPECT_EQ(objects(genreg({"version", "encode", "9.100", "--json"}).out).at(0)["level"], nullptr);
}

TEST_F(Global, ThePathTellsWhichRuleChoseIt) {
    const auto rule = [&](const std::vector<std::string>& more) {
        std::vector<std::string> words{"path", "--explain", "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return objects(genreg(words).out).at(0);
    };
    EXPECT_EQ(rule({})["rule"], "environment");
    EXPECT_EQ(rule({})["path"], at("global.reg"));
    EXPECT_EQ(rule({"--default-path"})["rule"], "environment") << "it wins over the default that is asked for";
    EXPECT_EQ(rule({"--registry", "other"})["path"], "other");
    setenv("RVN_GLOBAL_REG_PATHNAME", "", 1);
    EXPECT_EQ(genreg({"path"}).status, 3);
    unsetenv("RVN_GLOBAL_REG_PATHNAME");
    EXPECT_EQ(rule({"--default-path"})["rule"], "default-asked");
    EXPECT_EQ(rule({"--default-path"})["path"], "/var/rvn/global.reg");
    setenv("RVN_INSTALL_PATH_OVERRIDE", at("rvnhome").c_str(), 1);
    EXPECT_EQ(rule({})["rule"], "default");
    EXPECT_EQ(rule({})["tool"], at("rvnhome/adm/rvntool"));
    if (getuid() == 0) {
        std::filesystem::create_directories(at("rvnhome/adm"));
        write("rvnhome/adm/rvntool", "");
        EXPECT_EQ(rule({})["tool_vouches"], false) << "not before it is a set-user-ID program";
        std::filesystem::permissions(at("rvnhome/adm/rvntool"), std::filesystem::perms(04755));
        EXPECT_EQ(rule({})["rule"], "instance");
        EXPECT_EQ(rule({})["path"], at("rvnhome/global.reg"));
    }
    unsetenv("RVN_INSTALL_PATH_OVERRIDE");
    setenv("RVNINSTANCE", "no-such-user", 1);
    const Result nobody = genreg({"path"});
    EXPECT_EQ(nobody.status, 3);
    EXPECT_NE(nobody.err.find("RVNINSTANCE names \"no-such-user\""), std::string::npos) << nobody.err;
    unsetenv("RVNINSTANCE");
}

TEST_F(Global, ADumpShowsFieldsWithTheirPlaces) {
    const std::string later = frame(image(4, 0x403, textItem("RVN") + textItem("v") + item("\x01\xff")));
    const auto told = dump(instanceFrame("inst1") + later, 0);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0]["offset"], 0);
    EXPECT_EQ(told[0]["length"], 54);
    EXPECT_EQ(told[0]["record"], "instance");
    EXPECT_EQ(told[0]["field_mask"], "0x27");
    EXPECT_EQ(told[0]["fields"][1].dump(),
              "{\"name\":\"versionCode\",\"bit\":\"0x2\",\"offset\":30,\"length\":8,\"value\":\"9.7.0.2\"}");
    EXPECT_EQ(told[0]["fields"][3]["value"], 1);
    EXPECT_EQ(told[1]["offset"], 58);
    EXPECT_EQ(told[1]["fields"][2].dump(),
              "{\"name\":null,\"bit\":\"0x400\",\"offset\":92,\"length\":2,\"value_b64\":\"Af8=\"}");

    const Result raw = genreg({"dump", "f", "--raw"});
    EXPECT_NE(raw.out.find("0x00000028  instanceName     inst1"), std::string::npos) << raw.out;
    EXPECT_NE(raw.out.find("00000000: 36 00 00 00 01 00 00 00 27"), std::string::npos) << raw.out;
    EXPECT_EQ(objects(genreg({"dump", "f", "--raw", "--json"}).out).at(1)["hex"].get<std::string>().substr(0, 16),
              "2600000004000000");
}

TEST_F(Global, ADumpKnowsTheOtherForms) {
    std::string variable("limit\0..........\xfe\xff\xff\xffwhy\0............", 36);
    const auto told = dump(frame(variable) + frame(variable), 0);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1]["fields"][0]["value"], "limit");
    EXPECT_EQ(told[1]["fields"][1]["value"], -2);

    const std::string big = std::string("\0\0\0\3", 4) + "abc" + std::string("\0\0\0\4", 4) + "defg";
    EXPECT_EQ(dump(big, 0).size(), 2U);
    EXPECT_NE(genreg({"dump", "f"}).out.find("lengths big-endian"), std::string::npos);

    const std::string body = instanceFrame("inst1");
    std::string header = std::to_string(static_cast<int>(sqlzChecksumXOR(body.data(), body.size())));
    header.resize(32);
    EXPECT_EQ(dump(header + body, 0).at(1)["offset"], 32);
    std::string flipped = body;
    flipped[45] = static_cast<char>(flipped[45] ^ 1);  // a letter of the name: the record stays whole
    const auto differs = dump(header + flipped, 7);
    EXPECT_EQ(differs.at(0)["fits"], false);
    EXPECT_EQ(differs.at(1)["damage"], nullptr);
    EXPECT_EQ(dump("", 0).size(), 0U);
}

// Three records of 58 bytes with something wrong: the damage is told where it is, and the others all the same.
TEST_F(Global, ADumpGoesOnBehindDamage) {
    const std::string one = instanceFrame("inst1");
    const std::string three = one + instanceFrame("inst2") + instanceFrame("inst3");
    struct Case {
        std::size_t place;
        char byte;
        std::size_t damage;
        std::size_t frames;
    };
    for (const Case& c : {Case{58, 0x70, 58, 2},         // a length that leads into the next record
                          Case{59, 0x7f, 58, 2},         // one that leads beyond the end
                          Case{0, 0x10, 0, 2},           // the first one is too short
                          Case{62, 9, 62, 3},            // no such type
                          Case{58 + 24, 0x50, 82, 3},    // a text longer than its record allows
                          Case{58 + 8, 0x26, 98, 3},     // a field fewer than there are
                          Case{116 + 49, 1, 164, 3}}) {  // a length of 260 in the last field of all
        std::string bytes = three;
        bytes[c.place] = c.byte;
        const auto told = dump(bytes, 7);
        std::size_t frames = 0;
        std::vector<std::size_t> damages;
        for (const auto& part : told) {
            frames += part["kind"] == "frame" ? 1 : 0;
            if (!part["damage"].is_null()) {
                damages.push_back(part["damage"]["offset"]);
            }
        }
        EXPECT_EQ(frames, c.frames) << c.place;
        ASSERT_EQ(damages.size(), 1U) << c.place;
        EXPECT_EQ(damages[0], c.damage) << c.place;
    }
    const auto cut = dump(three.substr(0, 118), 7);
    EXPECT_EQ(cut.back()["damage"]["message"], "the file ends inside a length");
    EXPECT_EQ(cut.back()["offset"], 116);
    EXPECT_NE(genreg({"dump", "f"}).err.find("damaged in 1 place, the first at offset 116"), std::string::npos);
    EXPECT_EQ(genreg({"dump", "none"}).status, 3);
}

constexpr char LINE[] =
    "TS=\"Sat Jan 31 12:00:00 2026\";CALLER=ossSetInstanceInfo;PID=4242;U=0;BL=s100514;FP=2;"
    "PATH=/var/rvn/global.reg;ACT=";

TEST_F(Global, TheLogIsReadBack) {
    const std::string instance = "I,RVN,9.7.0.2,inst1,,,1,,,,";
    const std::string changed = "I,RVN,9.7.0.2,inst1,/home/a!b,,0,,,,";
    write("log", LINE + std::string("Add;CL=N/A;REC=") + instance + "\n" +  //
                     LINE + "Change;CL=\"x;REC= y\";REC=" + instance + "!" + changed + "\n" + "what is this\n" + LINE +
                     "Delete;CL=N/A;REC=I,RVN,9.7.0.2,a,b,c,d,e,f,g,h,i\n");
    const Result shown = genreg({"log", "show", "log", "--json"});
    EXPECT_EQ(shown.status, 0);
    const auto lines = objects(shown.out);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0]["time"], "Sat Jan 31 12:00:00 2026");
    EXPECT_EQ(lines[0]["pid"], 4242);
    EXPECT_EQ(lines[0]["level"], "s100514");
    EXPECT_EQ(lines[0]["command_line"], nullptr);
    EXPECT_EQ(lines[0]["record"]["startAtBoot"], 1);
    EXPECT_EQ(lines[0]["record"]["usage"], nullptr);
    EXPECT_EQ(lines[1]["command_line"], "x;REC= y");
    EXPECT_EQ(lines[1]["record"]["instancePath"], nullptr);
    EXPECT_EQ(lines[1]["new_record"]["instancePath"], "/home/a!b");
    EXPECT_EQ(lines[2]["raw"], "what is this");
    EXPECT_EQ(lines[3]["record"], nullptr) << "commas within a text leave several readings";
    EXPECT_EQ(lines[3]["record_text"], "I,RVN,9.7.0.2,a,b,c,d,e,f,g,h,i");
    EXPECT_NE(shown.err.find("1 of 4 lines"), std::string::npos) << shown.err;
    EXPECT_NE(genreg({"log", "show", "log"}).out.find("line 3: what is this"), std::string::npos);
}

// Those that touch /tmp/globalreg.debug.
class ChangeLog : private PrivateWorld, public Scratch {
protected:
    void SetUp() override {
        if (!isOwn()) {
            GTEST_SKIP() << "no mount namespace of its own: not root, or forbidden";
        }
        setenv("RVN_GLOBAL_REG_PATHNAME", at("global.reg").c_str(), 1);
    }
    void TearDown() override { unsetenv("RVN_GLOBAL_REG_PATHNAME"); }
};

TEST_F(ChangeLog, IsSwitchedOnAndOff) {
    const std::filesystem::path log = "/tmp/globalreg.debug";
    EXPECT_EQ(genreg({"log", "show"}).status, 3);
    EXPECT_EQ(genreg({"log", "on"}).status, 0);
    EXPECT_EQ(std::filesystem::status(log).permissions(), std::filesystem::perms(0666));
    OSSInstanceInfo_t info = {};
    info.versionCode = VERSION_9702;
    std::snprintf(info.service, sizeof info.service, "RVN");
    std::snprintf(info.instanceName, sizeof info.instanceName, "inst1");
    ASSERT_EQ(ossSetInstanceInfo(&info), 0U);
    EXPECT_EQ(genreg({"log", "on"}).status, 0) << "on already: the lines stay";
    const auto line = objects(genreg({"log", "show", "--json"}).out).at(0);
    EXPECT_EQ(line["caller"], "ossSetInstanceInfo");
    EXPECT_EQ(line["record"]["instanceName"], "inst1");
    EXPECT_EQ(genreg({"log", "off"}).status, 2) << "nobody to ask";
    EXPECT_TRUE(std::filesystem::exists(log));
    EXPECT_EQ(genreg({"log", "off", "-y"}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(log));
    std::filesystem::create_symlink(at("elsewhere"), log);
    for (const char* command : {"on", "status", "show"}) {
        EXPECT_EQ(genreg({"log", command}).status, 5) << command;
    }
    EXPECT_FALSE(std::filesystem::exists(at("elsewhere")));
}

TEST_F(ChangeLog, ARehearsedSynchronisationLeavesNoTrace) {
    std::filesystem::create_directories(at("copy/adm"));
    write("copy/adm/level", "version=9.7.0.2\nbuild=s1\nfixpack=5\n");
    setenv("RVN_INSTALL_PATH_OVERRIDE", at("copy").c_str(), 1);
    const auto service = [](int fixpack) {
        return frame(image(
            2, 0x23,
            textItem("RVN") + item(little(VERSION_9702, 8)) + item(little(static_cast<unsigned long>(fixpack), 4))));
    };
    write("global.reg", service(1));
    EXPECT_EQ(genreg({"log", "on"}).status, 0);
    const auto rehearsed = objects(genreg({"fixpack", "sync", "-n", "--json"}).out).at(0);
    EXPECT_EQ(rehearsed["updated"], 1);
    EXPECT_EQ(rehearsed["dry_run"], true);
    EXPECT_EQ(read("global.reg"), service(1));
    EXPECT_EQ(std::filesystem::file_size("/tmp/globalreg.debug"), 0U);
    EXPECT_EQ(objects(genreg({"fixpack", "sync", "--json"}).out).at(0)["updated"], 1);
    EXPECT_EQ(objects(genreg({"dump", "--json"}).out).at(0)["fields"][2]["value"], 5);
    EXPECT_NE(std::filesystem::file_size("/tmp/globalreg.debug"), 0U);
    EXPECT_EQ(objects(genreg({"fixpack", "sync", "--json"}).out).at(0)["updated"], 0);
    unsetenv("RVN_INSTALL_PATH_OVERRIDE");
}

}  // namespace

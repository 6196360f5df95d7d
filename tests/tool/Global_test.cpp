#include <genreg/InstanceInfo.h>

#include "Tool.h"

namespace {

// An instance of RVN 9.7.0.2 that starts at boot: a frame of 58 bytes for a name of five letters.
std::string instanceFrame(const std::string& name) {
    return frame(RecordImage(1, 0x27).text("RVN").version().text(name).number(1).end());
}

class Global : public ToolTest {
protected:
    // What is told of a file with --json, and the exit status.
    std::vector<Json> dump(const std::string& bytes, int status) {
        write("f", bytes);
        const Result result = genreg("dump f --json");
        EXPECT_EQ(result.status, status) << result.err;
        return objects(result.out);
    }
};

TEST_F(Global, VersionsGoFromFormToForm) {
    EXPECT_EQ(out("version encode 10.65535"), "0x000affff00000000\n");
    EXPECT_EQ(out("version decode 18446744073709551615"), "65535.65535.65535.65535\n");
    EXPECT_EQ(out("version to-level 9.7.0.2"), "9070002\n");
    EXPECT_EQ(out("version from-level 99999999"), "99.99.99.99\n");
    for (const char* text : {"", ".", "9..0", "9.7.0.2.1", "9.7 ", "-1", "65536", "9.x", "0x9"}) {
        expectFailure(6, "is no version", "version encode --", {text});
    }
    EXPECT_EQ(status("version decode 0x10000000000000000"), 6);
    EXPECT_EQ(status("version to-level 9.100"), 6) << "two digits a part";
    EXPECT_EQ(status("version from-level 109070002"), 6);
    EXPECT_EQ(object("version encode 9.100")["level"], nullptr);
}

TEST_F(Global, ThePathTellsWhichRuleChoseIt) {
    const auto expectRule = [&](const char* rule, const std::string& file, const std::string& options = "") {
        Json told = object("path --explain " + options);
        EXPECT_EQ(told["rule"], rule) << options;
        EXPECT_EQ(told["path"], file) << options;
        return told;
    };
    expectRule("environment", registry());
    expectRule("environment", registry(), "--default-path");  // it wins over the default that is asked for
    EXPECT_EQ(object("path --explain --registry other")["path"], "other");
    ::setenv("RVN_GLOBAL_REG_PATHNAME", "", 1);
    EXPECT_EQ(status("path"), 3);
    ::unsetenv("RVN_GLOBAL_REG_PATHNAME");
    expectRule("default-asked", "/var/rvn/global.reg", "--default-path");
    {
        const Variable home("RVN_INSTALL_PATH_OVERRIDE", path("rvnhome").c_str());
        EXPECT_EQ(expectRule("default", "/var/rvn/global.reg")["tool"], path("rvnhome/adm/rvntool"));
        if (::getuid() == 0) {
            std::filesystem::create_directories(path("rvnhome/adm"));
            write("rvnhome/adm/rvntool", "");
            EXPECT_EQ(object("path --explain")["toolVouches"], false) << "not before it is a set-user-ID program";
            std::filesystem::permissions(path("rvnhome/adm/rvntool"), std::filesystem::perms(04755));
            expectRule("instance", path("rvnhome/global.reg"));
        }
    }
    const Variable instance("RVNINSTANCE", "no-such-user");
    expectFailure(3, "RVNINSTANCE names \"no-such-user\"", "path");
}

TEST_F(Global, ADumpShowsFieldsWithTheirPlaces) {
    const std::string later = frame(RecordImage(4, 0x403).text("RVN").text("v").item("\x01\xff").end());
    const auto told = dump(instanceFrame("inst1") + later, 0);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0]["offset"], 0);
    EXPECT_EQ(told[0]["length"], 54);
    EXPECT_EQ(told[0]["record"], "instance");
    EXPECT_EQ(told[0]["fieldMask"], "0x27");
    EXPECT_EQ(told[0]["fields"].at(1).dump(),
              R"({"name":"versionCode","bit":"0x2","offset":30,"length":8,"value":"9.7.0.2"})");
    EXPECT_EQ(told[0]["fields"].at(3)["value"], 1);
    EXPECT_EQ(told[1]["offset"], 58);
    EXPECT_EQ(told[1]["unknown"].dump(), R"([{"bit":"0x400","offset":92,"length":2,"base64":"Af8="}])");

    const std::string raw = out("dump f --raw");
    EXPECT_NE(raw.find("0x00000028  instanceName     inst1"), std::string::npos) << raw;
    EXPECT_NE(raw.find("00000000: 36 00 00 00 01 00 00 00 27"), std::string::npos) << raw;
    EXPECT_EQ(objects(out("dump f --raw --json")).at(1)["hex"].text().substr(0, 16), "2600000004000000");
}

TEST_F(Global, ADumpKnowsTheOtherForms) {
    const std::string variable("limit\0..........\xfe\xff\xff\xffwhy\0............", 36);
    const auto told = dump(frame(variable) + frame(variable), 0);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1]["fields"].at(0)["value"], "limit");
    EXPECT_EQ(told[1]["fields"].at(1)["value"], -2);

    EXPECT_EQ(dump(std::string("\0\0\0\3abc\0\0\0\4defg", 15), 0).size(), 2U);
    EXPECT_NE(out("dump f").find("lengths big-endian"), std::string::npos);
    EXPECT_EQ(dump("", 0).size(), 0U);
}

// Three records of 58 bytes with something wrong: the damage is told where it is, and the others all the same.
TEST_F(Global, ADumpGoesOnBehindDamage) {
    const std::string three = instanceFrame("inst1") + instanceFrame("inst2") + instanceFrame("inst3");
    const struct {
        std::size_t place;
        char byte;
        std::size_t damage;
        std::size_t frames;
    } cases[] = {
        {58, 0x70, 58, 2},       // a length that leads into the next record
        {59, 0x7f, 58, 2},       // one that leads beyond the end
        {0, 0x10, 0, 2},         // the first one is too short
        {62, 9, 62, 3},          // no such type
        {58 + 24, 0x50, 82, 3},  // a text longer than its record allows
        {58 + 8, 0x26, 98, 3},   // a field fewer than there are
        {116 + 49, 1, 164, 3},   // a length of 260 in the last field of all
    };
    for (const auto& c : cases) {
        std::string bytes = three;
        bytes[c.place] = c.byte;
        std::size_t frames = 0;
        std::vector<std::size_t> damages;
        for (const Json& part : dump(bytes, 7)) {
            frames += part["kind"] == "frame" ? 1 : 0;
            if (!part["damage"].is_null()) {
                damages.push_back(static_cast<std::size_t>(part["damage"]["offset"].number()));
            }
        }
        EXPECT_EQ(frames, c.frames) << c.place;
        EXPECT_EQ(damages, std::vector{c.damage}) << c.place;
    }
    const auto cut = dump(three.substr(0, 118), 7);
    EXPECT_EQ(cut.back()["damage"]["message"], "the file ends inside a length");
    EXPECT_EQ(cut.back()["offset"], 116);
    EXPECT_NE(genreg("dump f").err.find("f: damaged at offset 116: "), std::string::npos);
    EXPECT_EQ(status("dump none"), 3);
}

TEST_F(Global, TheLogIsReadBack) {
    const std::string line =
        "TS=\"Sat Jan 31 12:00:00 2026\";CALLER=ossSetInstanceInfo;PID=4242;U=0;BL=s100514;FP=2;"
        "PATH=/var/rvn/global.reg;ACT=";
    const std::string instance = "I,RVN,9.7.0.2,inst1,,,1,,,,";
    write("log", line + "Add;CL=N/A;REC=" + instance + "\n" + line + "Change;CL=\"x;REC= y\";REC=" + instance +
                     "!I,RVN,9.7.0.2,inst1,/home/a!b,,0,,,,\nwhat is this\n" + line +
                     "Delete;CL=N/A;REC=I,RVN,9.7.0.2,a,b,c,d,e,f,g,h,i\n");
    const Result shown = genreg("log show log --json");
    EXPECT_EQ(shown.status, 0);
    const auto told = objects(shown.out);
    ASSERT_EQ(told.size(), 4U);
    EXPECT_EQ(told[0]["time"], "Sat Jan 31 12:00:00 2026");
    EXPECT_EQ(told[0]["pid"], 4242);
    EXPECT_EQ(told[0]["level"], "s100514");
    EXPECT_EQ(told[0]["commandLine"], nullptr);
    EXPECT_EQ(told[0]["record"]["startAtBoot"], 1);
    EXPECT_EQ(told[0]["record"]["usage"], nullptr);
    EXPECT_EQ(told[1]["commandLine"], "x;REC= y");
    EXPECT_EQ(told[1]["record"]["instancePath"], nullptr);
    EXPECT_EQ(told[1]["newRecord"]["instancePath"], "/home/a!b");
    EXPECT_EQ(told[2]["raw"], "what is this");
    EXPECT_EQ(told[3]["record"], nullptr) << "commas within a text leave several readings";
    EXPECT_EQ(told[3]["recordText"], "I,RVN,9.7.0.2,a,b,c,d,e,f,g,h,i");
    EXPECT_NE(shown.err.find("1 of 4 lines"), std::string::npos) << shown.err;
    EXPECT_NE(out("log show log").find("line 3: what is this"), std::string::npos);
}

// Those that touch the log file.
using ChangeLog = InPrivateWorld<ToolTest, Programs::AreRun>;
constexpr char LOG[] = "/tmp/globalreg.debug";

TEST_F(ChangeLog, IsSwitchedOnAndOff) {
    EXPECT_EQ(status("log show"), 3);
    EXPECT_EQ(status("log on"), 0);
    EXPECT_EQ(std::filesystem::status(LOG).permissions(), std::filesystem::perms(0666));
    EXPECT_EQ(status("instance set RVN 9.7.0.2 inst1"), 0);
    EXPECT_EQ(status("log on"), 0) << "on already: the lines stay";
    EXPECT_EQ(object("log show")["record"]["instanceName"], "inst1");
    EXPECT_EQ(status("log off"), 2) << "nobody to ask";
    EXPECT_TRUE(exists(LOG));
    EXPECT_EQ(status("log off -y"), 0);
    EXPECT_FALSE(exists(LOG));
    link(path("elsewhere"), LOG);
    for (const char* command : {"log on", "log status", "log show"}) {
        EXPECT_EQ(status(command), 5) << command;
    }
    EXPECT_FALSE(exists("elsewhere"));
}

TEST_F(ChangeLog, ARehearsedSynchronisationLeavesNoTrace) {
    std::filesystem::create_directories(path("copy/adm"));
    write("copy/adm/level", "version=9.7.0.2\nbuild=s1\nfixpack=5\n");
    const Variable copy("RVN_INSTALL_PATH_OVERRIDE", path("copy").c_str());
    writeFrames({RecordImage(2, 0x23).text("RVN").version().number(1).end()});
    const std::string before = bytes();
    EXPECT_EQ(status("log on"), 0);
    const Json rehearsed = object("fixpack sync -n");
    EXPECT_EQ(rehearsed["before"].dump() + rehearsed["after"].dump(), R"({"fixpackNumber":1}{"fixpackNumber":5})");
    EXPECT_EQ(rehearsed["dryRun"], true);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(read(LOG), "");
    EXPECT_EQ(object("fixpack sync")["action"], "change");
    EXPECT_EQ(object("dump")["fields"].at(2)["value"], 5);
    EXPECT_NE(read(LOG), "");
    EXPECT_EQ(object("fixpack sync")["action"], "none");
}

}  // namespace

#include <genreg/GlobalRegRecord.h>

#include <chrono>
#include <thread>

#include "Tool.h"

namespace {

using Names = std::vector<std::string>;

std::string little(unsigned long value, std::size_t size) {
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xffU);
    }
    return bytes;
}

std::string text(const std::string& characters) {
    return little(characters.size() + 1, 2) + characters + '\0';
}

std::string version() {
    return little(8, 2) + little(0x0009000700000002, 8);
}

// A frame around a packed record.
std::string frame(unsigned int type, unsigned long fields, unsigned long missing, const std::string& items) {
    const std::string image = little(type, 4) + little(fields, 8) + little(missing, 8) + items + little(0, 4);
    return little(image.size(), 4) + image;
}

class Records : public Scratch {
protected:
    Records() { setenv("RVN_GLOBAL_REG_PATHNAME", at("g").c_str(), 1); }
    ~Records() override { unsetenv("RVN_GLOBAL_REG_PATHNAME"); }

    // Runs the tool, which must end like that.
    std::string out(int status, const Names& arguments) {
        const Result result = genreg(arguments);
        EXPECT_EQ(result.status, status) << result.out << result.err;
        return result.out;
    }
    std::string err(int status, const Names& arguments) {
        const Result result = genreg(arguments);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_EQ(result.out, "");
        return result.err;
    }
    nlohmann::ordered_json got(Names arguments) {
        arguments.insert(arguments.begin(), "--json");
        return objects(out(0, arguments)).at(0);
    }
};

const Names INST{"RVN", "9.7.0.2", "inst"};

Names instance(const char* verb, const Names& rest = {}) {
    Names words{"instance", verb};
    words.insert(words.end(), INST.begin(), INST.end());
    words.insert(words.end(), rest.begin(), rest.end());
    return words;
}

TEST_F(Records, WhatIsSetIsReadBackListedAndRemoved) {
    EXPECT_NE(err(0, {"service", "set", "RVN", "9.7.0.2", "servicePath=/opt/a b", "fixpackNumber=-2147483648",
                      "serviceFlag=x"})
                  .find("added"),
              std::string::npos);
    err(0, instance("set", {"instancePath=/home/i", "startAtBoot=YES", "maintenance=false", "comment=caf\xe9"}));
    err(0, {"variable", "set", "RVN", "V", "value=a=b", "variableText=-"});
    EXPECT_EQ(got({"service", "get", "RVN", "9.7.0.2"}).dump(),
              R"({"schema":1,"type":"service","service":"RVN","versionCode":"9.7.0.2","servicePath":"/opt/a b",)"
              R"("fixpackNumber":-2147483648,"serviceFlag":"x"})");
    EXPECT_EQ(got({"instance", "list", "RVN", "9.7.0.2"}).dump(),
              R"({"schema":1,"type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst",)"
              R"("instancePath":"/home/i","startAtBoot":1,"maintenance":0,"comment_b64":"Y2Fm6Q=="})");
    EXPECT_EQ(out(0, {"variable", "list"}),
              "service  variable  value  variableText\nRVN      V         a=b    \"-\"\n");
    EXPECT_EQ(out(0, {"variable", "get", "RVN", "V", "value"}), "a=b\n");
    EXPECT_EQ(out(0, {"instance", "list", "OTHER"}), "");
    err(1, {"variable", "get", "RVN", "V", "comment"});
    EXPECT_NE(err(1, {"instance", "get", "RVN", "9.7.0.2", "isnt"}).find("try: inst,"), std::string::npos);
    err(0, {"service", "remove", "RVN", "9.7.0.2"});
    err(1, {"service", "remove", "RVN", "9.7.0.2"});
    // A variable is found by its key, whatever its further text.
    err(0, {"variable", "remove", "RVN", "V"});
    err(0, instance("remove"));
    EXPECT_EQ(read("g"), "");
}

TEST_F(Records, SetWritesJustTheNamedFieldsAndCarriesThoseOfLaterReleases) {
    constexpr unsigned long LATER = 1UL << 40U;
    const unsigned long key = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;
    const std::string keyItems = text("RVN") + version() + text("inst");
    const std::string later = little(3, 2) + "\x01\xff\x02";
    const std::string other =
        frame(GLOBALREG_VARIABLE, VARIABLE_SERVICE | VARIABLE_NAME | 1UL << 20U,
              VARIABLE_VALUE | VARIABLE_TEXT | VARIABLE_COMMENT, text("RVN") + text("V") + little(0, 2));
    const auto image = [&](unsigned long fields, const std::string& items) {
        return other + frame(GLOBALREG_INSTANCE, key | fields | LATER, 0, keyItems + items + later);
    };
    write("g", other + frame(GLOBALREG_INSTANCE, key | INSTANCE_PATH | INSTANCE_START_AT_BOOT | LATER, 0,
                             keyItems + text("/home/i") + little(4, 2) + little(0, 4) + later));
    const std::string path = text("/home/i");
    const std::string off = little(4, 2) + little(0, 4);
    const std::string before = read("g");
    EXPECT_EQ(got(instance("get"))["fieldMask"], "0x1000000002f");
    EXPECT_NE(err(0, instance("set", {"startAtBoot=0", "usage="})).find("nothing to change"), std::string::npos);
    EXPECT_EQ(read("g"), before);
    err(0, instance("set", {"comment=c"}));
    EXPECT_EQ(read("g"), image(INSTANCE_PATH | INSTANCE_START_AT_BOOT | INSTANCE_COMMENT, path + off + text("c")));
    // Absent differs from 0.
    err(0, instance("set", {"startAtBoot="}));
    EXPECT_EQ(read("g"), image(INSTANCE_PATH | INSTANCE_COMMENT, path + text("c")));
    err(0, instance("set", {"startAtBoot=no", "comment="}));
    EXPECT_EQ(read("g"), before);
}

TEST_F(Records, ARehearsalShowsTheChangeAndWritesNothing) {
    EXPECT_EQ(out(0, {"-n", "variable", "set", "RVN", "V", "value=1"}),
              "--- " + at("g") + "\n+++ " + at("g") + "\n+ variable RVN V\n    value = 1\n");
    EXPECT_EQ(names(), Names{});
    err(0, {"variable", "set", "RVN", "V", "value=1"});
    const std::string before = read("g");
    const Result rehearsed = genreg({"--json", "-n", "variable", "set", "RVN", "V", "value=2", "comment=c"});
    EXPECT_EQ(objects(rehearsed.out).at(0)["difference"].dump(),
              R"([{"op":"change","type":"variable","service":"RVN","variable":"V","changes":[)"
              R"({"field":"value","old":"1","new":"2"},{"field":"comment","old":null,"new":"c"}]}])");
    EXPECT_EQ(read("g"), before);
    err(6, {"-n", "variable", "set", "RVN", "V", "value=" + std::string(256, 'x')});
    EXPECT_EQ(out(0, {"--diff", "variable", "remove", "RVN", "V"}),
              "--- " + at("g") + "\n+++ " + at("g") + "\n- variable RVN V\n    value = 1\n");
    EXPECT_EQ(read("g"), "");
}

TEST_F(Records, WhatDoesNotFitIsRefusedAndNamed) {
    err(0, instance("set", {"usage=u"}));
    const std::string before = read("g");
    const struct {
        int status;
        Names arguments;
        const char* said;
    } cases[] = {
        {6, instance("set", {"startAtBoot=2"}), "startAtBoot"},
        {6, instance("set", {"usage=" + std::string(64, 'x')}), "usage has room for 63 bytes"},
        {6, {"service", "set", "RVN", "9.7", "fixpackNumber=2147483648"}, "fixpackNumber"},
        {6, {"service", "set", "RVN", "9.7", "fixpackNumber=1x"}, "fixpackNumber"},
        {6, {"service", "set", "RVN", "9.7", "serviceFlag=xy"}, "serviceFlag"},
        {6, {"service", "set", "RVN", "9.7.0.2.1"}, "9.7.0.2.1"},
        {6, {"service", "set", "RVN", "9.70000"}, "9.70000"},
        {6, {"service", "set", "RVN", "9."}, "no version"},
        {6, {"service", "set", "", "9.7"}, "service is empty"},
        {2, instance("set", {"instancPath=x"}), "try: instancePath"},
        {2, instance("set", {"usage"}), "no field=value"},
        {2, instance("set", {"usage=a", "usage=b"}), "twice"},
        {2, instance("set", {"service=X"}), "key"},
        {2, instance("set", {"--if-value", "x"}), "--if-value"},
        {2, {"instance", "remove", "RVN"}, "--all"},
        {3, {"--registry", at("none"), "instance", "list"}, "there is no such file"},
    };
    for (const auto& c : cases) {
        EXPECT_NE(err(c.status, c.arguments).find(c.said), std::string::npos) << c.said;
        EXPECT_EQ(read("g"), before);
    }
}

TEST_F(Records, SeveralAreRemovedOnlyWhenThatIsMeant) {
    for (const std::string name : {"a", "b"}) {
        err(0, {"instance", "set", "RVN", "9.7.0.2", name});
        err(0, {"instance", "set", "RVN", "9.8", name});
    }
    err(0, {"variable", "set", "RVN", "a"});
    err(2, {"instance", "remove", "RVN", "9.8", "--all"});
    EXPECT_EQ(objects(out(0, {"instance", "list", "--json"})).size(), 4U);
    err(0, {"instance", "remove", "RVN", "9.8", "--all", "-y"});
    const std::string rest = out(0, {"instance", "list"});
    EXPECT_EQ(rest.find("9.8"), std::string::npos);
    EXPECT_NE(rest.find("9.7.0.2      b"), std::string::npos);
    EXPECT_EQ(objects(out(0, {"variable", "list", "--json"})).size(), 1U);
    // Two records of one key, as only a damaged registry holds them.
    const std::string one = frame(GLOBALREG_VARIABLE, 7, 0, text("S") + text("V") + text("1"));
    write("g", one + frame(GLOBALREG_VARIABLE, 7, 0, text("S") + text("V") + text("2")));
    err(5, {"variable", "set", "S", "V", "value=3"});
    err(5, {"variable", "remove", "S", "V"});
    err(0, {"variable", "remove", "S", "V", "--all", "-y"});
    EXPECT_EQ(read("g"), "");
}

TEST_F(Records, IfValueComparesBeforeItChanges) {
    err(1, {"variable", "set", "S", "V", "value=1", "--if-value", "0"});
    err(0, {"variable", "set", "S", "V", "value=1"});
    err(5, {"variable", "set", "S", "V", "value=2", "--if-value", "0"});
    err(5, {"variable", "remove", "S", "V", "--if-value", "0"});
    err(0, {"variable", "set", "S", "V", "value=2", "--if-value", "1"});
    err(0, {"variable", "remove", "S", "V", "--if-value", "2"});
}

// Another writer comes in between what the tool has read and the lock that it waits for.
TEST_F(Records, WhatChangedMeanwhileIsAConflict) {
    err(0, {"variable", "set", "S", "V", "value=1"});
    const std::string script = "touch held; while [ ! -e go ]; do sleep 0.02; done; mv new g";
    // Neither another value nor a field that was not there may be lost.
    for (const char* field : {"value=9", "comment=c"}) {
        std::filesystem::copy_file(at("g"), at("new"));
        out(0, {"--registry", at("new"), "variable", "set", "S", "V", field});
        const Running holder = start({"lock", "run", "g", "--", "sh", "-c", script});
        while (!std::filesystem::exists(at("held"))) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        const Running writer = start({"variable", "set", "S", "V", "value=2", "--wait", "60"});
        // It says whom it waits for, once it has read.
        while (!std::filesystem::exists(writer.err) || std::filesystem::is_empty(writer.err)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        err(4, {"variable", "set", "S", "V", "value=3", "--wait", "0"});
        const std::string theirs = read("new");
        write("go", "");
        EXPECT_EQ(finish(holder).status, 0);
        const Result result = finish(writer);
        EXPECT_EQ(result.status, 5) << result.err;
        EXPECT_EQ(read("g"), theirs);
        std::filesystem::remove(at("go"));
        std::filesystem::remove(at("held"));
        out(0, {"variable", "set", "S", "V", "value=1"});
    }
}

TEST_F(Records, StatusAndDiffTellOfDamageAndOfWhatIsSound) {
    err(0, {"service", "set", "RVN", "9.7.0.2"});
    err(0, {"variable", "set", "S", "V", "value=1"});
    const std::string sound = read("g");
    const auto report = got({"status"});
    EXPECT_EQ(report["records"].dump(), R"({"frames":2,"service":1,"instance":0,"variable":1,"other":0,"damaged":0})");
    EXPECT_TRUE(report["lines"].is_null());
    EXPECT_TRUE(report["monitor"].contains("held"));
    EXPECT_TRUE(report["change_log"]["on"].is_boolean());
    EXPECT_TRUE(got({"status", "--registry", "g"})["monitor"].is_null());

    // A record that lies about a length, then one whose frame does.
    std::string bad = frame(GLOBALREG_VARIABLE, 3, 0, text("S") + little(900, 2) + "x");
    write("bad", bad + sound + "\x09");
    const Result status = genreg({"status", "bad", "--json"});
    EXPECT_EQ(status.status, 7);
    EXPECT_EQ(objects(status.out).at(0)["records"]["damaged"], 2);
    EXPECT_NE(status.err.find("at offset 28"), std::string::npos) << status.err;
    EXPECT_EQ(out(7, {"diff", "bad", "g"}), "") << "the sound records are the same";
    const Result list = genreg({"--registry", "bad", "variable", "list"});
    EXPECT_EQ(list.status, 7);
    EXPECT_EQ(list.out, "");
}

TEST_F(Records, DiffTellsRecordsByKey) {
    constexpr unsigned long LATER = 1UL << 30U;
    const auto variable = [](const std::string& name, unsigned long more, const std::string& items) {
        return frame(GLOBALREG_VARIABLE, 3 | more, 0, text("S") + text(name) + items);
    };
    const std::string same = variable("same", 0, "");
    write("a", variable("old", 0, "") + variable("x", 4 | LATER, text("1") + little(1, 2) + "\x07") + same);
    write("b", same + variable("x", LATER, little(1, 2) + "\x08") + variable("new", 4, text("n")));
    EXPECT_EQ(out(1, {"diff", "a", "b"}),
              "--- a\n+++ b\n- variable S old\n~ variable S x\n    value: 1 -> -\n"
              "    field 0x40000000: 07 -> 08\n+ variable S new\n    value = n\n");
    write("c", read("b").substr(same.size()) + same);
    EXPECT_NE(err(0, {"diff", "b", "c"}).find("order"), std::string::npos);
    // Alone: with what a writer left beside it, else with the global registry.
    err(2, {"diff", "a"});
    write("g", read("b"));
    EXPECT_EQ(out(1, {"diff", "a"}).substr(0, 6), "--- a\n");
    write("a.tmp", read("a"));
    err(0, {"diff", "a"});
}

}  // namespace

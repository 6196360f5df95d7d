#include <genreg/GlobalRegRecord.h>

#include <thread>

#include "Tool.h"

namespace {

class Records : public ToolTest {
protected:
    // Says nothing but what it did, which is told to the error output.
    std::string done(const std::string& line, const Words& more = {}) {
        const Result result = genreg(line, more);
        EXPECT_EQ(result.status, 0) << line << ": " << result.err;
        EXPECT_EQ(result.out, "") << line;
        return result.err;
    }
    // An instance of these further fields and a field that only a later release knows.
    static std::string instance(unsigned long fields, const std::function<void(RecordImage&)>& addItems) {
        RecordImage image(GLOBALREG_INSTANCE,
                          INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME | fields | 1UL << 40U);
        image.text("RVN").version().text("inst");
        addItems(image);
        return frame(image.item("\x01\xff\x02").end());
    }
    // Whether the process has the file of the folder open.
    [[nodiscard]] bool hasOpen(pid_t pid, const std::string& name) const {
        std::error_code gone;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", gone)) {
            if (std::filesystem::read_symlink(entry, gone) == path(name)) {
                return true;
            }
        }
        return false;
    }
    static std::string variable(const std::string& name, const std::string& value) {
        return frame(RecordImage(GLOBALREG_VARIABLE, 7).text("S").text(name).text(value).end());
    }
};

TEST_F(Records, WhatIsSetIsReadBackListedAndRemoved) {
    EXPECT_NE(
        done("service set RVN 9.7.0.2 fixpackNumber=-2147483648 serviceFlag=x", {"servicePath=/opt/a b"}).find("added"),
        std::string::npos);
    done("instance set RVN 9.7.0.2 inst instancePath=/home/i startAtBoot=YES maintenance=false comment=caf\xe9");
    done("variable set RVN V value=a=b variableText=-");
    EXPECT_EQ(object("service get RVN 9.7.0.2").dump(),
              R"({"schema":1,"type":"service","service":"RVN","versionCode":"9.7.0.2","servicePath":"/opt/a b",)"
              R"("fixpackNumber":-2147483648,"serviceFlag":"x"})");
    EXPECT_EQ(object("instance list RVN 9.7.0.2").dump(),
              R"({"schema":1,"type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst",)"
              R"("instancePath":"/home/i","startAtBoot":1,"maintenance":0,"commentBase64":"Y2Fm6Q=="})");
    EXPECT_EQ(out("variable list"), "service  variable  value  variableText\nRVN      V         a=b    \"-\"\n");
    EXPECT_EQ(out("variable get RVN V value"), "a=b\n");
    EXPECT_EQ(out("instance list OTHER"), "");
    EXPECT_EQ(status("variable get RVN V comment"), 1);
    expectFailure(1, "try: inst,", "instance get RVN 9.7.0.2 isnt");
    done("instance set RVN 9.8 other");
    EXPECT_NE(done("service remove RVN 9.7.0.2").find("leaves without a service: instance RVN 9.7.0.2 inst\n"),
              std::string::npos);
    EXPECT_EQ(status("service remove RVN 9.7.0.2"), 1);
    done("instance remove RVN 9.8 other");
    // A variable is found by its key, whatever its further text.
    done("variable remove RVN V");
    done("instance remove RVN 9.7.0.2 inst");
    EXPECT_EQ(bytes(), "");
}

TEST_F(Records, SetWritesJustTheNamedFieldsAndCarriesThoseOfLaterReleases) {
    const std::string other = frame(RecordImage(GLOBALREG_VARIABLE, VARIABLE_SERVICE | VARIABLE_NAME | 1UL << 20U,
                                                VARIABLE_VALUE | VARIABLE_TEXT | VARIABLE_COMMENT)
                                        .text("S")
                                        .text("V")
                                        .item("")
                                        .end());
    const std::string before = other + instance(INSTANCE_PATH | INSTANCE_START_AT_BOOT,
                                                [](RecordImage& image) { image.text("/home/i").number(0); });
    write("global.reg", before);
    const std::string set = "instance set RVN 9.7.0.2 inst ";
    EXPECT_NE(done(set + "startAtBoot=0 usage=").find("nothing to change"), std::string::npos);
    EXPECT_EQ(bytes(), before);
    done(set + "comment=c");
    EXPECT_EQ(bytes(), other + instance(INSTANCE_PATH | INSTANCE_START_AT_BOOT | INSTANCE_COMMENT,
                                        [](RecordImage& image) { image.text("/home/i").number(0).text("c"); }));
    // Absent differs from 0.
    done(set + "startAtBoot=");
    EXPECT_EQ(bytes(), other + instance(INSTANCE_PATH | INSTANCE_COMMENT,
                                        [](RecordImage& image) { image.text("/home/i").text("c"); }));
    done(set + "startAtBoot=no comment=");
    EXPECT_EQ(bytes(), before);
}

TEST_F(Records, ARehearsalShowsTheChangeAndWritesNothing) {
    const std::string head = "--- " + registry() + "\n+++ " + registry() + "\n";
    EXPECT_EQ(out("-n variable set RVN V value=1"), head + "+ variable RVN V\n    value = 1\n");
    EXPECT_EQ(names(), "");
    done("variable set RVN V value=1");
    const std::string before = bytes();
    EXPECT_EQ(object("-n variable set RVN V value=2 comment=c").dump(),
              R"({"schema":1,"operation":"variable set","path":")" + registry() +
                  R"(","type":"variable","service":"RVN","variable":"V","action":"change","before":{"value":"1"},)"
                  R"("after":{"value":"2","comment":"c"},"changed":true,"dryRun":true})");
    EXPECT_EQ(status("-n variable set RVN V", {"value=" + std::string(256, 'x')}), 6);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(out("--diff variable remove RVN V"), head + "- variable RVN V\n    value = 1\n");
    EXPECT_EQ(bytes(), "");
}

TEST_F(Records, WhatDoesNotFitIsRefusedAndNamed) {
    const std::string set = "instance set RVN 9.7.0.2 inst ";
    done(set + "usage=u");
    const std::string before = bytes();
    expectFailure(6, "startAtBoot", set + "startAtBoot=2");
    expectFailure(6, "usage has room for 63 bytes", set + "usage=" + std::string(64, 'x'));
    expectFailure(6, "fixpackNumber", "service set RVN 9.7 fixpackNumber=2147483648");
    expectFailure(6, "fixpackNumber", "service set RVN 9.7 fixpackNumber=1x");
    expectFailure(6, "serviceFlag", "service set RVN 9.7 serviceFlag=xy");
    expectFailure(6, "9.7.0.2.1", "service set RVN 9.7.0.2.1");
    expectFailure(6, "no version", "service set RVN 9.");
    expectFailure(6, "service is empty", "service set", {"", "9.7"});
    expectFailure(2, "try: instancePath", set + "instancPath=x");
    expectFailure(2, "no field=value", set + "usage");
    expectFailure(2, "twice", set + "usage=a usage=b");
    expectFailure(2, "key", set + "service=X");
    expectFailure(2, "--if-value", set + "--if-value x");
    expectFailure(2, "--all", "instance remove RVN");
    expectFailure(3, "there is no such file", "--registry none instance list");
    EXPECT_EQ(bytes(), before);
}

TEST_F(Records, SeveralAreRemovedOnlyWhenThatIsMeant) {
    for (const char* name : {"a", "b"}) {
        done("instance set RVN 9.7.0.2", {name});
        done("instance set RVN 9.8", {name});
    }
    done("variable set RVN a");
    EXPECT_EQ(status("instance remove RVN 9.8 --all"), 2);
    EXPECT_EQ(objects(out("instance list --json")).size(), 4U);
    done("instance remove RVN 9.8 --all -y");
    const std::string rest = out("instance list");
    EXPECT_EQ(rest.find("9.8"), std::string::npos);
    EXPECT_NE(rest.find("9.7.0.2      b"), std::string::npos);
    EXPECT_EQ(objects(out("variable list --json")).size(), 1U);
    // Two records of one key, as only a damaged registry holds them.
    write("global.reg", variable("V", "1") + variable("V", "2"));
    EXPECT_EQ(status("variable set S V value=3"), 5);
    EXPECT_EQ(status("variable remove S V"), 5);
    done("variable remove S V --all -y");
    EXPECT_EQ(bytes(), "");
}

TEST_F(Records, ItemsOfALaterReleaseLookTheSameEverywhere) {
    const auto later = [](const std::string& item) {
        return frame(
            RecordImage(GLOBALREG_VARIABLE, 3 | 1UL << 10U | 1UL << 40U).text("S").text("v").item(item).item("").end());
    };
    const std::string unknown = R"([{"bit":"0x400","base64":"Af8="},{"bit":"0x10000000000","base64":""}])";
    const std::string other = R"([{"bit":"0x400","base64":"AA=="},{"bit":"0x10000000000","base64":""}])";
    write("global.reg", later("\x01\xff") + variable("w", "1"));
    EXPECT_EQ(out("variable list"),
              "service  variable  value  0x400  0x10000000000\nS        v         -      01ff   \"\"\n"
              "S        w         1      -      -\n");
    EXPECT_NE(out("variable get S v").find("\n0x400          01ff\n0x10000000000  \"\"\n"), std::string::npos);
    for (const char* command : {"variable get S v", "variable list", "dump"}) {
        EXPECT_EQ(object(command)["unknown"].dump().find("[{\"bit\":\"0x400\""), 0U) << command;
    }
    EXPECT_EQ(object("variable list")["unknown"].dump(), unknown);
    EXPECT_FALSE(object("variable get S v service").contains("unknown"));
    write("a", "");
    EXPECT_EQ(genreg("diff a global.reg").out,
              "--- a\n+++ global.reg\n+ variable S v\n    0x400 = 01ff\n    0x10000000000 = \"\"\n"
              "+ variable S w\n    value = 1\n");
    EXPECT_EQ(objects(genreg("diff a global.reg --json").out).at(0)["after"]["unknown"].dump(), unknown);
    write("a", later(std::string(1, '\0')) + variable("w", "1"));
    const Json change = objects(genreg("diff a global.reg --json").out).at(0);
    EXPECT_EQ(change["before"]["unknown"].dump() + change["after"]["unknown"].dump(), other + unknown);
    EXPECT_EQ(object("variable set S v comment=c")["after"]["unknown"].dump(), unknown) << "which stay";
    EXPECT_NE(out("--diff variable remove S v").find("    0x400 = 01ff\n"), std::string::npos);
}

// Another writer comes in between what the tool has read and the lock that it waits for.
TEST_F(Records, WhatChangedMeanwhileIsKeptAndAContradictionIsRefused) {
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(5)); };
    const struct {
        const char *before, *theirs, *ours;
        int status;
        const char* after;
    } cases[] = {
        {"set S V value=1", "set S V comment=c", "value=2", 0, R"("value":"2","comment":"c")"},
        {"set S V value=1", "set S V value=2 comment=c", "value=2", 0, R"("value":"2","comment":"c")"},
        {"set S V value=1 comment=c", "set S V comment=", "value=", 0, R"("variable":"V"})"},
        {"set S V value=1", "set S V value=9", "value=2", 5, R"("value":"9")"},
        {"set S V value=1", "set S V comment=c", "comment=d", 5, R"("value":"1","comment":"c")"},
        {"set S V value=1", "set S V value=", "value=2", 5, R"("variable":"V"})"},
        {"set S V comment=c", "remove S V", "value=2", 5, ""},
        // Compare and set is about the record that was seen.
        {"set S V value=1", "set S V comment=c", "value=2 --if-value 1", 5, R"("value":"1","comment":"c")"},
        // Both make the record.
        {"set S W", "set S V comment=c", "value=2", 0, R"("value":"2","comment":"c")"},
        {"set S W", "set S V value=9", "value=2", 5, R"("value":"9")"},
        // Both make the registry.
        {"", "set S V comment=c", "value=2", 0, R"("value":"2","comment":"c")"},
        {"", "set S V value=9", "value=2", 5, R"("value":"9")"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.theirs) + " against " + c.ours);
        remove("global.reg");
        if (*c.before != '\0') {
            done(std::string("variable ") + c.before);
            std::filesystem::copy_file(registry(), path("new"));
        } else {
            write("global.reg", "");  // only a file that is there can be locked; the holder takes it away
        }
        done(std::string("--registry new variable ") + c.theirs);
        const Running holder =
            start("lock run global.reg -- sh -c",
                  {"[ -s global.reg ] || rm global.reg; touch held; while [ ! -e go ]; do sleep 0.02; done; "
                   "mv new global.reg"});
        while (!exists("held")) {
            pause();
        }
        const Running writer = start(std::string("variable set S V --wait 60 ") + c.ours);
        // It opens the lock file once it has read.
        while (!hasOpen(writer.pid, ".global.reg.lock")) {
            pause();
        }
        EXPECT_EQ(status("variable set S V value=3 --wait 0"), 4);
        const std::string theirs = read("new");
        write("go", "");
        EXPECT_EQ(finish(holder).status, 0);
        const Result result = finish(writer);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_NE(genreg("variable get S V --json").out.find(c.after), std::string::npos) << bytes();
        EXPECT_TRUE(c.status == 0 || bytes() == theirs);
        remove("go");
        remove("held");
    }
}

TEST_F(Records, StatusAndDiffTellOfDamageAndOfWhatIsSound) {
    done("service set RVN 9.7.0.2");
    done("variable set S V value=1");
    const Json report = object("status");
    EXPECT_EQ(report["records"].dump(), R"({"frames":2,"service":1,"instance":0,"variable":1,"other":0,"damaged":0})");
    EXPECT_TRUE(report["lines"].is_null());
    EXPECT_TRUE(report["monitor"].contains("held"));
    EXPECT_TRUE(report["changeLog"]["on"] == true || report["changeLog"]["on"] == false);
    EXPECT_TRUE(object("status --registry global.reg")["monitor"].is_null());

    // A record that lies about a length, then one whose frame does.
    const std::string lies = RecordImage(GLOBALREG_VARIABLE, 3).text("S").end();
    write("bad", frame(lies.substr(0, lies.size() - 4) + little(900, 2) + "x" + little(0, 4)) + bytes() + "\x09");
    const Result bad = genreg("status bad --json");
    EXPECT_EQ(bad.status, 7);
    EXPECT_EQ(objects(bad.out).at(0)["records"]["damaged"], 2);
    EXPECT_NE(bad.err.find("at offset 28"), std::string::npos) << bad.err;
    const Result difference = genreg("diff bad global.reg");
    EXPECT_EQ(difference.status, 7);
    EXPECT_EQ(difference.out, "") << "the sound records are the same";
    expectFailure(7, "", "--registry bad variable list");
    // The last record of a file that is whole but for it: nothing of what lies behind it in memory is a field.
    write("liar", frame(RecordImage(GLOBALREG_VARIABLE, 0x407).text("S").text("N").text("v").end(900)));
    expectFailure(7, "0x90000254", "--registry liar variable list");
    expectFailure(7, "0x90000254", "--registry liar variable set S N value=x");
}

TEST_F(Records, DiffTellsRecordsByKey) {
    constexpr unsigned long LATER = 1UL << 30U;
    const auto record = [](const std::string& name, unsigned long more = 0) {
        return RecordImage(GLOBALREG_VARIABLE, 3 | more).text("S").text(name);
    };
    const std::string same = frame(record("same").end());
    write("a", frame(record("old").end()) + frame(record("x", 4 | LATER).text("1").item("\x07").end()) + same);
    const std::string fresh = frame(record("x", LATER).item("\x08").end()) + frame(record("new", 4).text("n").end());
    write("b", same + fresh);
    const Result difference = genreg("diff a b");
    EXPECT_EQ(difference.status, 1);
    EXPECT_EQ(difference.out,
              "--- a\n+++ b\n- variable S old\n~ variable S x\n    value: 1 -> -\n"
              "    0x40000000: 07 -> 08\n+ variable S new\n    value = n\n");
    write("c", frame(record("x", 4).text("").end()));
    write("d", frame(record("x").end()));
    EXPECT_EQ(genreg("diff c d").out, "--- c\n+++ d\n~ variable S x\n    value: \"\" -> -\n");
    write("c", fresh + same);
    EXPECT_NE(done("diff b c").find("order"), std::string::npos);
    // Alone: with what a writer left beside it, else with the global registry.
    EXPECT_EQ(status("diff a"), 2);
    write("global.reg", same + fresh);
    EXPECT_EQ(genreg("diff a").out.substr(0, 6), "--- a\n");
    write("a.tmp", read("a"));
    done("diff a");
}

}  // namespace

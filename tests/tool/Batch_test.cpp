// Batches: apply, export and import.
#include <sys/resource.h>

#include "Tool.h"

namespace {

constexpr char SERVICE[] = R"({"type":"service","service":"RVN","versionCode":"9.7.0.2","servicePath":"/opt/rvn"})";

std::string instance(int number, const std::string& more = "") {
    return R"({"type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst)" +
           std::to_string(number) + "\"" + more + "}";
}

class Batch : public ToolTest {
protected:
    Result apply(const std::string& lines, const std::string& command = "apply") {
        write("batch", lines);
        return genreg(command + " batch");
    }
    // Nothing is changed, and what is said names the line.
    void expectRefused(int status, const std::string& said, const std::string& lines,
                       const std::string& command = "apply", const std::string& file = "global.reg") {
        const std::string before = read(file);
        const Result result = apply(lines, command);
        EXPECT_EQ(result.status, status) << lines << result.err;
        EXPECT_NE(result.err.find(said), std::string::npos) << lines << result.err;
        EXPECT_EQ(read(file), before) << lines;
    }
};

TEST_F(Batch, ACopyOfTheProductAndItsInstancesAreOneChange) {
    std::string lines = std::string(SERVICE) + "\n\n";
    for (int i = 0; i < 5; ++i) {
        lines += instance(i, R"(,"startAtBoot":true)") + "\n";
    }
    EXPECT_EQ(apply(lines, "apply -n").status, 0);
    EXPECT_FALSE(exists("global.reg"));
    EXPECT_EQ(apply(lines).out, "6 added, 0 changed, 0 deleted, 0 as they were\n");
    const Result again = apply(lines);
    EXPECT_EQ(again.out, "0 added, 0 changed, 0 deleted, 6 as they were\n");
    EXPECT_NE(again.err.find("nothing to change"), std::string::npos);
    EXPECT_EQ(objects(out("export")).size(), 6U);
    write("batch", instance(1, R"(,"instancePath":"/home/1","ifFields":{"startAtBoot":1})") + "\n" +
                       R"({"op":"delete",)" + instance(2).substr(1) + "\n" + instance(3));
    EXPECT_EQ(out("--json apply -n batch"),
              R"({"schema":1,"operation":"instance set","path":")" + registry() +
                  R"(","type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst1",)"
                  R"("action":"change","before":{"startAtBoot":1},)"
                  R"("after":{"instancePath":"/home/1","startAtBoot":1},"changed":true,"dryRun":true})"
                  "\n"
                  R"({"schema":1,"operation":"instance delete","path":")" +
                  registry() +
                  R"(","type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst2",)"
                  R"("action":"delete","before":{"startAtBoot":1},"after":null,"changed":true,"dryRun":true})"
                  "\n"
                  R"({"schema":1,"operation":"instance set","path":")" +
                  registry() +
                  R"(","type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst3",)"
                  R"("action":"none","before":{"startAtBoot":1},"after":{"startAtBoot":1},"changed":false,)"
                  R"("dryRun":true})"
                  "\n");
    EXPECT_EQ(out("apply batch"), "0 added, 1 changed, 1 deleted, 1 as they were\n");
    EXPECT_EQ(out("instance get RVN 9.7.0.2 inst1 instancePath"), "/home/1\n");
}

TEST_F(Batch, TheFirstItemThatFailsEndsItAndNothingIsChanged) {
    ASSERT_EQ(apply(std::string(SERVICE) + "\n" + instance(1, R"(,"usage":"a")")).status, 0);
    const std::string good = instance(7) + "\n";
    expectRefused(5, "batch: line 2: ", good + R"({"op":"add",)" + instance(1).substr(1));
    expectRefused(1, "line 2: ", good + R"({"op":"delete",)" + instance(8).substr(1));
    expectRefused(5, "usage is a, not b", good + instance(1, R"(,"comment":"x","ifFields":{"usage":"b"})"));
    expectRefused(5, "comment is -, not x", good + instance(1, R"(,"ifFields":{"comment":"x"})"));
    expectRefused(1, "there is no instance", good + instance(9, R"(,"ifFields":{"usage":null})"));
    // What is read before the lock is taken.
    expectRefused(6, "line 2: it is no JSON", good + "{\"type\":");
    expectRefused(6, "line 2: it is no JSON object", good + "[1]");
    expectRefused(6, "unknown member instancepath", good + instance(1, R"(,"instancepath":"/x")"));
    expectRefused(6, "there is no \"type\" instanc", good + R"({"type":"instanc"})");
    expectRefused(6, "has to have a instanceName", good + R"({"type":"instance","service":"A","versionCode":"1"})");
    expectRefused(6, "is either 0 or 1", good + instance(1, R"(,"startAtBoot":2)"));
    expectRefused(6, "has room for", good + instance(1, R"(,"usage":")" + std::string(5000, 'x') + "\""));
    expectRefused(6, "line 2", good + instance(1, R"(,"comment":"two\nlines")"));
    expectRefused(6, "\"schema\" is not 1", good + R"({"schema":2})");
    expectRefused(6, "no \"op\" remove", good + R"({"op":"remove"})");
    expectRefused(6, "no base64", good + instance(1, R"(,"usageBase64":"=")"));
    expectRefused(6, "\"unknown\" is a list", good + instance(1, R"(,"unknown":[{"bit":"0x1","base64":"AA=="}])"));
    expectRefused(6, "nested too deeply", good + R"({"a":)" + std::string(100, '[') + std::string(100, ']') + "}");
    expectFailure(3, "missing", "apply missing");
}

TEST_F(Batch, FieldsThatAreNotNamedStayAndNullRemovesOne) {
    std::string odd = RecordImage(1, 0x407).text("RVN").version().text("inst1").item("\x01\x02").end();
    writeFrames({odd, RecordImage(1, 0x17).text("RVN").version().text("inst2").text("use").end()});
    EXPECT_EQ(
        apply(instance(1, R"(,"comment":"c")") + "\n" + instance(2, R"(,"usage":null,"comment":"\u00e4")")).status, 0);
    EXPECT_EQ(out("export"),
              R"({"schema":1,"type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst1",)"
              R"("comment":"c","unknown":[{"bit":"0x400","base64":"AQI="}]})"
              "\n"
              R"({"schema":1,"type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"inst2",)"
              R"("comment":")"
              "\xc3\xa4\"}\n");
    // Of members of one name the last counts.
    ASSERT_EQ(apply(instance(1, R"(,"usage":"a","comment":"c","usage":"b","usage":"z")")).status, 0);
    EXPECT_EQ(out("instance get RVN 9.7.0.2 inst1 usage"), "z\n");
    EXPECT_EQ(out("instance get RVN 9.7.0.2 inst1 comment"), "c\n");
    expectRefused(6, "\"unknown\" is a list", instance(1, R"(,"unknown":[{"bit":1024,"base64":"AQ=="}])"));
}

TEST_F(Batch, WhatIsExportedIsImportedAsItWas) {
    writeFrames({RecordImage(1, 0x407).text("RVN").version().text("inst1").item("\x01\x02").end(),
                 RecordImage(2, 0x1).text("RVN").end(),  // without a version, which is a part of its key
                 RecordImage(4, 0x7).text("RVN").text("NAME").text("\xff").end()});
    const std::string incomplete = out("export");
    expectRefused(6, "line 2: a service has to have a versionCode", incomplete, "import --merge");
    writeFrames({RecordImage(1, 0x407).text("RVN").version().text("inst1").item("\x01\x02").end(),
                 RecordImage(2, 0x3).text("RVN").version().end(),
                 RecordImage(4, 0x7).text("RVN").text("NAME").text("\xff").end()});
    const std::string exported = out("export");
    EXPECT_EQ(apply(exported, "import --replace -y").out, "0 added, 0 changed, 0 deleted, 3 as they were\n");
    remove("global.reg");
    EXPECT_EQ(apply(exported, "import --replace").status, 0) << "nothing is lost, nobody is asked";
    EXPECT_EQ(out("export"), exported);
    const std::string some = exported.substr(0, exported.find('\n') + 1);
    const Result refused = apply(some, "import --replace");
    EXPECT_EQ(refused.status, 2) << refused.err;
    EXPECT_NE(refused.err.find("delete 2 records that the batch does not name"), std::string::npos) << refused.err;
    EXPECT_EQ(out("export"), exported);
    EXPECT_EQ(apply(some, "import --merge").status, 0);
    EXPECT_EQ(out("export"), exported);
    EXPECT_EQ(apply(some, "import --replace -y").out, "0 added, 0 changed, 2 deleted, 1 as they were\n");
    EXPECT_EQ(out("export"), some);
    expectRefused(2, "import wants --merge or --replace", some, "import");
    expectRefused(6, "deletes what the batch does not name", R"({"op":"delete",)" + instance(1).substr(1),
                  "import --replace -y");
}

TEST_F(Batch, LinesKeepWhatIsNotAskedOf) {
    write("s", "# head\nhttp\t80/tcp\twww\t# web\nhttp  80/udp\ngopher 70/tcp\n");
    EXPECT_EQ(apply(R"({"name":"http","protocol":"tcp","port":8080}
{"op":"add","name":"new","port":"5","protocol":"tcp","aliases":["n"],"comment":"c"}
{"op":"delete","name":"gopher"}
{"name":"new","protocol":"tcp","aliases":[],"comment":null})",
                    "services apply s")
                  .out,
              "1 added, 2 changed, 1 deleted, 0 as they were\n");
    EXPECT_EQ(read("s"), "# head\nhttp\t8080/tcp\twww\t# web\nhttp  80/udp\nnew\t\t5/tcp\n");
    expectRefused(5, "stands in several lines", R"({"name":"http","comment":"which?"})", "services apply s", "s");
    expectRefused(6, "line 1: ", R"({"name":"a b","port":1,"protocol":"tcp"})", "services apply s", "s");
    expectRefused(6, "it has no \"protocol\"", R"({"op":"add","name":"a","port":1})", "services apply s", "s");

    write("v", "A = 1   # one\nB=\"x y\"\n");
    EXPECT_EQ(apply(R"({"name":"A","value":2,"ifValue":"1"}
{"name":"B","comment":"two","ifValue":"x y"}
{"name":"C"})",
                    "varval apply v")
                  .status,
              6)
        << "no value";
    EXPECT_EQ(apply(R"({"name":"A","value":2,"ifValue":"1"}
{"name":"B","comment":"two","ifValue":"x y"})",
                    "varval apply v")
                  .status,
              0);
    EXPECT_EQ(read("v"), "A = 2 # one\nB=\"x y\" # two\n");
    expectRefused(5, "A is 2, not 1", R"({"name":"A","value":3,"ifValue":"1"})", "varval apply v", "v");

    write("i", "id:2:initdefault:\nx:23:respawn:/bin/x -y:z # c\n");
    EXPECT_EQ(apply(R"({"id":"x","action":"off"})", "inittab apply i").status, 0);
    EXPECT_EQ(read("i"), "id:2:initdefault:\nx:23:off:/bin/x -y:z # c\n");
    EXPECT_EQ(apply(R"({"name":"n","value":-7})", "binvar apply b").status, 0);
    for (const std::string form : {"services s", "varval v", "inittab i", "binvar b"}) {
        const std::string group = form.substr(0, form.find(' '));
        const std::string file = form.substr(form.find(' ') + 1);
        const std::string before = read(file);
        const Result same = apply(out("--json " + group + " list " + file), group + " apply " + file);
        EXPECT_EQ(same.status, 0) << form << same.err;
        EXPECT_NE(same.out.find("0 added, 0 changed, 0 deleted"), std::string::npos) << form << same.out;
        EXPECT_EQ(read(file), before);
    }
}

// Items of one batch find what those before them have left, as if each were a batch of its own.
TEST_F(Batch, OneBatchIsAsGoodAsMany) {
    struct Case {
        std::string form;
        std::string text;
        Words items;
    };
    for (const Case& c : std::vector<Case>{
             {"services",
              "http 80\nhttp 80/tcp www # W\nhttp 80/udp\n# c\nftp\t21/tcp",
              {R"({"name":"ftp","port":22,"comment":"f"})", R"({"op":"delete","name":"http","protocol":"tcp"})",
               R"({"name":"http","aliases":[],"port":8080})", R"({"op":"add","name":"http","protocol":"tcp","port":1})",
               R"({"op":"delete","name":"ftp"})", R"({"name":"ftp","protocol":"udp","port":2,"aliases":["f"]})"}},
             {"varval",
              "a = 1 # c\nodd\n b  =  \"2\" \t# d\n",
              {R"({"name":"a","value":"x y"})", R"({"name":"a","comment":"n"})", R"({"op":"delete","name":"b"})",
               R"({"name":"b","value":2})", R"({"op":"delete","name":"a"})",
               R"({"name":"b","value":3,"ifValue":"2"})"}},
             {"inittab",
              "a:2:once:x \\\ny # c\nb:2:off:z",
              {R"({"id":"b","command":"w"})", R"({"id":"a","action":"off"})", R"({"op":"delete","id":"b"})",
               R"({"id":"b","runLevels":"3","action":"off","command":"q","comment":"k"})"}}}) {
        write("one", c.text);
        write("many", c.text);
        std::string all;
        for (const std::string& item : c.items) {
            all += item + "\n";
            const Result result = apply(item, c.form + " apply many");
            EXPECT_EQ(result.status, 0) << item << result.err;
        }
        EXPECT_EQ(apply(all, c.form + " apply one").status, 0);
        EXPECT_EQ(read("one"), read("many"));
        EXPECT_NE(read("one"), c.text);
    }
    // A line knows where it stood; where it stands then is for the other items to decide.
    write("v", "a = 1\nb = 1\n");
    write("batch", R"({"op":"delete","name":"a"})"
                   "\n"
                   R"({"name":"b","value":2})");
    const auto told = objects(out("--json varval apply v batch"));
    EXPECT_EQ(told.at(1)["before"].dump(), R"({"line":2,"value":"1","comment":null,"text":"b = 1"})");
    EXPECT_EQ(told.at(1)["after"].dump(), R"({"value":"2","comment":null,"text":"b = 2"})");
}

// Each item found by a walk over the file made it hundreds of times as slow.
TEST_F(Batch, ManyItemsTakeLittleLongerThanOne) {
    constexpr int ENTRIES = 4000;
    // Of the processor, which is the tool's own however busy the machine is.
    const auto secondsOfChildren = [] {
        rusage usage{};
        EXPECT_EQ(::getrusage(RUSAGE_CHILDREN, &usage), 0);
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    };
    const auto seconds = [&](const std::string& line) {
        const double before = secondsOfChildren();
        EXPECT_EQ(status(line), 0) << line;
        return secondsOfChildren() - before;
    };
    struct Case {
        std::string command;
        std::string key;
        std::string fields;  // of a new one, and of another
        std::string others;
    };
    for (const Case& c :
         std::vector<Case>{{"varval apply f", R"("name":"n)", R"(,"value":1})", R"(,"value":2})"},
                           {"services apply f", R"("protocol":"tcp","name":"n)", R"(,"port":1})", R"(,"port":2})"},
                           {"inittab apply f", R"("id":"n)", R"(,"runLevels":"2","action":"off","command":""})",
                            R"(,"command":"x"})"},
                           {"binvar apply f", R"("name":"n)", R"(,"value":1})", R"(,"value":2})"},
                           {"--registry f apply", R"("type":"variable","service":"S","variable":"n)",
                            R"(,"value":"1"})", R"(,"value":"2"})"}}) {
        for (const std::string name : {"batch0", "batch1", "batch2"}) {
            std::string lines;
            for (int i = 0; i < (name == "batch1" ? 1 : ENTRIES); ++i) {
                lines += "{" + c.key + std::to_string(i) + "\"" + (name == "batch0" ? c.fields : c.others) + "\n";
            }
            write(name, lines);
        }
        remove("f");
        const double adding = seconds(c.command + " batch0");
        const double one = seconds(c.command + " batch1");
        const double many = seconds(c.command + " batch2");
        constexpr double MOST = 20;
        EXPECT_LT(adding, MOST * one) << c.command;
        EXPECT_LT(many, MOST * one) << c.command;
    }
}

TEST_F(Batch, BatchesAtOnceLoseNothing) {
    constexpr int BATCHES = 30;
    constexpr int CHANGES = 10;
    std::vector<Running> running;
    for (int batch = 0; batch < BATCHES; ++batch) {
        std::string lines;
        for (int i = 0; i < CHANGES; ++i) {
            lines += instance(CHANGES * batch + i) + "\n";
        }
        const std::string name = "batch" + std::to_string(batch);
        write(name, lines);
        running.push_back(start("--wait 60 apply " + name));
    }
    for (const Running& each : running) {
        const Result result = finish(each);
        EXPECT_EQ(result.out, "10 added, 0 changed, 0 deleted, 0 as they were\n") << result.err;
    }
    EXPECT_EQ(objects(out("export")).size(), static_cast<std::size_t>(BATCHES * CHANGES));
}

}  // namespace

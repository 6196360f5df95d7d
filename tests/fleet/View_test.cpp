// What an operator asks, through the built program and a real store. What hosts would have written is put there by
// hand.
#include "FleetTool.h"
#include "base/Failure.h"
#include "mirror/HostValue.h"
#include "mirror/Keys.h"

using fleet::HostValue;
using fleet::MirroredRegistry;

namespace {

std::string idOf(char digit) {
    return std::string(32, digit);
}

}  // namespace

class ViewTest : public FleetTool {
protected:
    static constexpr char PATH[] = "/var/rvn/global.reg";

    void putKey(const std::string& key, const std::string& value) {
        store_->patiently(60, [&] {
            std::vector<fleet::StoredValue> found;
            (void)store_->get({key}, found);
            ASSERT_TRUE(store_->exchange(key, found.empty() ? 0 : found[0].modRevision, value).done);
        });
    }
    static std::string reg(char digit) { return fleet::registryKey(fleet::DEFAULT_PREFIX, idOf(digit)); }
    static std::string sign(char digit) { return fleet::aliveKey(fleet::DEFAULT_PREFIX, idOf(digit)); }
    void putAlive(char digit, const std::string& writer = "n.1") {
        putKey(sign(digit), encode(fleet::AliveValue{writer, "2026-01-31T23:59:59Z", {}}));
    }
    // A host whose registry holds these records, lines as export prints them.
    void putHost(char digit, const std::string& name, const std::string& records, const std::string& registry = PATH,
                 const std::vector<fleet::RegistryError>& errors = {}) {
        HostValue value;
        value.id = idOf(digit);
        value.writer = "n.1";
        value.sequence = 3;
        value.hostName = name;
        value.time = "2026-01-31T23:59:59Z";
        MirroredRegistry made{registry, {}};
        std::istringstream lines(records);
        for (std::string line; std::getline(lines, line);) {
            made.records.push_back(tool::Json::parse(line));
        }
        putKey(reg(digit), encode(value, fleet::contentOf(errors, {made})));
    }
    static std::string variable(const std::string& name, const std::string& value) {
        return R"({"type":"variable","service":"RVN","variable":")" + name + R"(","value":")" + value + "\"}\n";
    }
    static std::string service(const std::string& version) {
        return R"({"type":"service","service":"RVN","versionCode":")" + version + R"(","servicePath":"/opt"})" + "\n";
    }
    // A file that somebody still writes says so some time.
    bool says(const std::string& file, const std::string& text) const {
        const bool said = becomes([&] { return read(file).find(text) != std::string::npos; });
        EXPECT_TRUE(said) << "never said " << text << ":\n" << read(file);
        return said;
    }
};

TEST_F(ViewTest, HostsTellsHowAllStand) {
    putHost('a', "web1", service("9.7.0.2") + variable("PORT", "80"));
    putAlive('a');
    putHost('b', "\x1b[31mred", "", PATH, {{"/x.reg", "damaged", "\x1b[32mat 12"}});
    putHost('c', "clone", "");
    putAlive('c', "m.1");
    putAlive('d');
    ASSERT_EQ(fleet("hosts").status, 0);
    putKey(reg('e'), "rub\x1b[33mbish");

    const Result told = fleet("--json hosts");
    EXPECT_EQ(told.status, 7);
    EXPECT_NE(told.err.find("damaged-value"), std::string::npos);
    const auto rows = objects(told.out);
    ASSERT_EQ(rows.size(), 5U);
    std::map<std::string, Json> byId;
    for (const Json& row : rows) {
        EXPECT_TRUE(told.out.starts_with(R"({"schema":1,"id":")"));
        byId.emplace(row["id"].text().substr(0, 1), row);
    }
    EXPECT_EQ(byId.at("a")["state"], "alive");
    EXPECT_EQ(byId.at("a")["records"], 2);
    EXPECT_EQ(byId.at("b")["state"], "silent");
    EXPECT_EQ(byId.at("b")["errors"].at(0)["kind"], "damaged");
    EXPECT_EQ(byId.at("b")["heard"], "2026-01-31T23:59:59Z");
    EXPECT_EQ(byId.at("c")["state"], "clash");
    EXPECT_EQ(byId.at("d")["state"], "alive");
    EXPECT_TRUE(byId.at("d")["sequence"].is_null());
    EXPECT_EQ(byId.at("e")["state"], "silent");
    EXPECT_FALSE(byId.at("e")["damage"].is_null());

    // For people: nothing that a terminal acts on.
    for (const char* const line : {"hosts", "show bbbb", "find variable", "count variable value", "--json show bbbb"}) {
        const Result shown = fleet(line);
        EXPECT_EQ((shown.out + shown.err).find('\x1b'), std::string::npos) << line;
    }
    // What a shell completes, without asking the store.
    runProgram(BUILT_FLEET);
    EXPECT_EQ(genreg("__complete -- --config fleet.conf show w").out, "web1\n");
    EXPECT_EQ(genreg("__complete -- --config fleet.conf find service serviceP").out, "servicePath=\n");
    runProgram(BUILT_TOOL);
    // A host that is gone is missing, under its name.
    (void)store_->remove({reg('a'), sign('a')});
    EXPECT_EQ(objects(fleet("--json hosts --state missing").out).at(0)["hostName"], "web1");
    const Result stale = fleet("--json hosts --stale 1h");
    EXPECT_EQ(objects(stale.out).size(), 2U) << stale.out;  // silent for long; the missing one was heard of just now
    expectAnswer(2, "no age", "hosts --stale 5");
}

TEST_F(ViewTest, EmptyStoreIsNoTruth) {
    expectAnswer(1, "none was known", "hosts");
    putHost('a', "web1", "");
    putAlive('a');
    ASSERT_EQ(fleet("hosts").status, 0);
    (void)store_->remove({reg('a'), sign('a')});
    const Result told = fleet("--json hosts");
    EXPECT_EQ(told.status, 1);
    EXPECT_EQ(objects(told.out).at(0)["state"], "missing");
    EXPECT_NE(told.err.find("wiped"), std::string::npos);
    expectAnswer(1, "holds no host", "find service");
    // What cannot be remembered is said, and is no failure.
    putAlive('a');
    remove("memory");
    write("memory", "");
    expectAnswer(0, "remember the hosts", "hosts");
    servers_->kill();
    expectAnswer(4, servers_->endpoint(), "--wait 0 hosts");
}

TEST_F(ViewTest, HostIsMeantByItsNameOrTheBeginningOfItsId) {
    putHost('a', "web1", variable("PORT", "80"));
    putHost('b', "web1", variable("PORT", "81"));
    putHost('c', "aaaa", variable("PORT", "82"));
    putKey(reg('d'), "{}");
    for (const std::string& word : {idOf('b'), std::string("bbbb"), std::string(31, 'b')}) {
        expectAnswer(0, "81", "show", {word});
    }
    expectAnswer(5, idOf('b'), "show web1");
    expectAnswer(5, idOf('c'), "show aaaa");  // a name here, the beginning of an id there
    expectAnswer(0, "82", "show", {idOf('c')});
    expectAnswer(1, "web1", "show wbe1");
    expectAnswer(1, "no host", "show bbb");
    expectAnswer(7, "schema", "show dddd");
    const Json whole = objects(fleet("--json show bbbb").out).at(0);
    EXPECT_EQ(whole["registries"].at(0)["records"].at(0)["value"], "81");
    EXPECT_EQ(whole["sequence"], 3);
}

TEST_F(ViewTest, FindsAndCountsRecordsOfAllHosts) {
    putHost('a', "web1", service("9.7.0.2") + variable("PORT", "80") + variable("HOME", ""));
    putHost('b', "web2",
            service("9.5.0.1") + variable("PORT", "81") + variable("PORT2", "81") +
                R"({"type":"variable","service":"RVN","variable":"NONE"})" + "\n");
    const auto found = objects(fleet("--json find variable value=8? variable=PORT").out);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0]["host"], idOf('a'));
    EXPECT_EQ(found[1]["value"], "81");
    EXPECT_EQ(objects(fleet("--json find service versionCode=9.5.0.1").out).at(0)["hostName"], "web2");
    EXPECT_EQ(objects(fleet("--json find variable value=").out).size(), 1U);  // empty, not absent
    expectAnswer(1, "", "find variable value=99");
    expectAnswer(2, "servicePath", "find service servicepath=x");
    expectAnswer(2, "service", "find servise");
    expectAnswer(2, "FIELD=VALUE", "find service versionCode");

    const Result counted = fleet("--json count variable value");
    const auto counts = objects(counted.out);
    ASSERT_EQ(counts.size(), 4U) << counted.out;
    EXPECT_EQ(counts[0]["value"], "81");
    EXPECT_EQ(counts[0]["records"], 2);
    EXPECT_EQ(counts[0]["hosts"], 1);
    EXPECT_NE(counted.out.find(R"("value":null)"), std::string::npos);
    EXPECT_NE(counted.out.find(R"("value":"")"), std::string::npos);

    // A value that is none, and records that are none, are named; the others are told all the same.
    putKey(reg('c'), "rubbish");
    putHost('d', "bad",
            R"({"type":"variable","value":"80"})"
            "\n");
    putHost('e', "change",
            R"({"type":"variable","service":"R","variable":"X","op":"delete"})"
            "\n");
    const Result damaged = fleet("--json find variable");
    EXPECT_EQ(damaged.status, 7);
    EXPECT_EQ(objects(damaged.out).size(), 5U);
    EXPECT_EQ(objects(damaged.err).size(), 3U) << damaged.err;
}

TEST_F(ViewTest, DiffTellsChangesInTheOneShape) {
    putHost('a', "web1", service("9.7.0.2") + variable("PORT", "80") + variable("OLD", "1"));
    putHost('b', "web2", service("9.7.0.2") + variable("PORT", "81") + variable("NEW", "1"));
    const Result told = fleet("--json diff web1 web2");
    EXPECT_EQ(told.status, 1);
    const auto changes = objects(told.out);
    ASSERT_EQ(changes.size(), 3U) << told.out;
    EXPECT_EQ(changes[0]["action"], "delete");
    EXPECT_EQ(changes[1]["before"]["value"], "80");
    EXPECT_EQ(changes[1]["after"]["value"], "81");
    EXPECT_EQ(changes[1]["host"], idOf('a'));
    EXPECT_EQ(changes[1]["path"], PATH);
    expectAnswer(1, "value: 80 -> 81", "diff web1 web2");
    EXPECT_EQ(fleet("diff web1 web1").out, "");

    // A file, its export, and this machine's registry are the same reference.
    ASSERT_EQ(status("service set RVN 9.7.0.2 servicePath=/opt"), 0);
    ASSERT_EQ(status("variable set RVN PORT value=80"), 0);
    ASSERT_EQ(status("variable set RVN OLD value=1"), 0);
    write("export", out("export"));
    for (const char* const line : {"diff web1", "diff web1 --reference global.reg", "diff web1 --reference export"}) {
        const Result same = fleet(line);
        EXPECT_EQ(same.status, 0) << line << ": " << same.out << same.err;
        EXPECT_EQ(same.out, "");
    }
    expectAnswer(1, "value: 81 -> 80", "diff web2 --reference export");
    write("cut", bytes().substr(0, bytes().size() - 3));
    expectAnswer(7, "cut", "diff web1 --reference cut");
    expectAnswer(3, "nothing", "diff web1 --reference nothing");
    expectAnswer(2, "not both", "diff web1 web2 --reference export");

    // What a host could not read is not taken for empty.
    putHost('c', "web3", "", "/other.reg", {{PATH, "damaged", "at 12"}});
    expectAnswer(7, "at 12", "diff web1 web3");
    expectAnswer(7, "at 12", "diff web3 --reference export --path", {PATH});
    putHost('e', "large", "", "/x.reg", {{"/y.reg", "too-large", "too much"}});  // nothing of any registry
    expectAnswer(7, "too much", "diff web1 large --path", {PATH});
    putHost('d', "elsewhere", variable("PORT", "80"), "/other.reg");
    EXPECT_EQ(objects(fleet("--json diff elsewhere web1").out).size(), 2U);  // the only one of each
    const Result unpaired = fleet("--json diff elsewhere web1 --path /other.reg");
    EXPECT_EQ(objects(unpaired.out).size(), 1U) << unpaired.out;
    EXPECT_EQ(objects(unpaired.err).size(), 1U) << unpaired.err;
}

TEST_F(ViewTest, WatchTellsWhatChangesAndWhatChangedMeanwhile) {
    putHost('a', "web1", variable("PORT", "80"));
    const Running running = started("--json watch");
    ASSERT_TRUE(says(running.err, "watching 1 host"));
    putAlive('a');
    putHost('a', "web1", variable("PORT", "81"));
    putKey(reg('a'), "rubbish");
    ASSERT_TRUE(says(running.out, "cannot be read"));
    putHost('a', "web1", variable("PORT", "82"));
    putHost('b', "web2", variable("PORT", "1"));
    (void)store_->remove({sign('a')});
    (void)store_->remove({reg('b')});
    ASSERT_TRUE(says(running.out, R"("action":"delete","before":{"value":"1"})"));

    // Away for a while: it goes on where it was.
    servers_->kill();
    ASSERT_TRUE(says(running.err, "unreached"));
    servers_->start();
    putHost('a', "web1", variable("PORT", "84"));
    ASSERT_TRUE(says(running.out, R"("value":"84")"));
    ASSERT_TRUE(says(running.err, "there again"));

    // Wiped: nobody is taken for forgotten, and what comes back is held against what was.
    servers_->kill();
    servers_->wipe();
    servers_->start();
    ASSERT_TRUE(says(running.err, "wiped"));
    putHost('a', "web1", variable("PORT", "83"));
    ASSERT_TRUE(says(running.out, R"("value":"83")"));
    ::kill(running.pid, SIGTERM);
    const Result ended = finish(running);
    EXPECT_EQ(ended.status, 0) << ended.err;

    std::string story;
    for (const Json& each : objects(ended.out)) {
        const bool isHost = each["type"] == "host";
        const auto facet = [&](const char* side) {
            return each[side].is_null() ? "-" : each[side][isHost ? "state" : "value"].text();
        };
        EXPECT_EQ(each["hostName"], each["host"] == idOf('a') ? "web1" : "web2") << each;
        story += each["type"].text() + " " + facet("before") + " " + facet("after") + "\n";
    }
    EXPECT_EQ(story,
              "host silent alive\n"
              "variable 80 81\n"
              "host alive alive\n"  // its value is damaged
              "host alive alive\n"
              "variable 81 82\n"
              "host - silent\n"
              "variable - 1\n"
              "host alive silent\n"
              "host silent -\n"
              "variable 1 -\n"
              "variable 82 84\n"
              "host silent missing\n"
              "host missing silent\n"
              "variable 84 83\n");
    std::string remarks;
    for (const Json& each : objects(ended.err)) {
        remarks += each["kind"].text() + " ";
    }
    EXPECT_EQ(remarks, "watching unreached reached unreached listed no-hosts reached ");
}

TEST_F(ViewTest, RehearsedBatchDoesJustThatOrNothing) {
    ASSERT_EQ(status("service set RVN 9.7.0.2 servicePath=/opt"), 0);
    ASSERT_EQ(status("instance set RVN 9.7.0.2 i1 startAtBoot=1 comment=x"), 0);
    ASSERT_EQ(status("variable set RVN PORT value=80"), 0);
    ASSERT_EQ(status("variable set RVN BYTES", {"value=\xff\xfe"}), 0);
    putHost('a', "web1", out("export"));
    putHost('b', "db1", service("9.7.0.2"));
    putHost('c', "same",
            variable("PORT", "90") + variable("NEW", "1") +
                R"({"type":"variable","service":"RVN","variable":"BYTES","value":"b"})"
                "\n");
    write("batch", variable("PORT", "90") + variable("NEW", "1") + variable("BYTES", "b") +
                       R"({"type":"instance","service":"RVN","versionCode":"9.7.0.2","instanceName":"i1",)"
                       R"("comment":null,"usage":"u"})"
                       "\n");
    write("delete", R"({"op":"delete","type":"instance","service":"RVN","versionCode":"9.7.0.2",)"
                    R"("instanceName":"i1"})"
                    "\n");

    const Result told = fleet("--json rehearse batch --hosts web1,db* --into into");
    EXPECT_EQ(told.status, 0) << told.err;
    const auto hosts = objects(told.out);
    ASSERT_EQ(hosts.size(), 2U);
    EXPECT_EQ(hosts[0]["result"], "change");
    EXPECT_EQ(hosts[0]["changes"].size(), 4U);
    EXPECT_EQ(hosts[0]["changes"].at(0)["dryRun"], true);
    const std::string file = "into/" + idOf('a') + ".jsonl";
    EXPECT_EQ(std::filesystem::status(path(file)).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(path("into")).permissions(), std::filesystem::perms(0700));
    expectAnswer(5, "not empty", "rehearse batch --into into");

    // On a copy it does what the batch does; where anything that it met is not any more as it was, nothing.
    for (const char* const name : {"plain", "shipped", "value", "added", "gone", "new"}) {
        write(name, bytes());
    }
    ASSERT_EQ(status("--registry plain apply batch"), 0);
    ASSERT_EQ(status("--registry shipped apply", {file}), 0);
    EXPECT_EQ(out("export shipped"), out("export plain"));
    ASSERT_EQ(status("--registry value variable set RVN PORT value=79"), 0);
    ASSERT_EQ(status("--registry added instance set RVN 9.7.0.2 i1 extraName=later"), 0);
    ASSERT_EQ(status("--registry gone variable set RVN BYTES value=z"), 0);
    ASSERT_EQ(status("--registry new variable set RVN NEW value=1"), 0);
    for (const std::string name : {"value", "added", "gone", "new"}) {
        const std::string before = read(name);
        EXPECT_EQ(status("--registry " + name + " apply", {file}), 5) << name;
        EXPECT_EQ(read(name), before) << name;
    }

    // A delete expects what was there, too.
    ASSERT_EQ(fleet("rehearse delete --hosts web1 --into deletes").status, 0);
    ASSERT_EQ(status("--registry added apply", {"deletes/" + idOf('a') + ".jsonl"}), 5);
    write("shipped", bytes());
    ASSERT_EQ(status("--registry shipped apply", {"deletes/" + idOf('a') + ".jsonl"}), 0);
    EXPECT_EQ(status("--registry shipped instance get RVN 9.7.0.2 i1"), 1);

    expectAnswer(5, "line 1", "rehearse delete");  // which db1 has not
    expectAnswer(1, "fits", "rehearse batch --hosts x*");
    expectAnswer(6, "line 1", "rehearse", {path("fleet.conf")});
    putHost('c', "same", variable("PORT", "80") + variable("PORT", "80"));
    expectAnswer(5, "several", "rehearse batch --hosts same");
    putKey(reg('d'), "rubbish");
    const Result damaged = fleet("--json rehearse batch --into more");
    EXPECT_EQ(damaged.status, 7);
    EXPECT_EQ(objects(damaged.out).size(), 4U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path("more")), {}), 2);
}

TEST_F(ViewTest, ForgetTakesNoHostThatIsAlive) {
    putHost('a', "web1", "");
    putAlive('a');
    putHost('b', "web2", "");
    ASSERT_EQ(fleet("hosts").status, 0);
    expectAnswer(5, "alive", "-y forget web1");
    expectAnswer(2, "nobody to ask", "forget web2");
    EXPECT_EQ(store_->count(std::string(fleet::DEFAULT_PREFIX)).count, 3);
    expectAnswer(0, "", "-y forget web2");
    expectAnswer(1, "no host", "-y forget web2");
    expectAnswer(0, "", "-y forget web1 --alive");
    EXPECT_EQ(store_->count(std::string(fleet::DEFAULT_PREFIX)).count, 0);
    expectAnswer(1, "none was known", "hosts");
}

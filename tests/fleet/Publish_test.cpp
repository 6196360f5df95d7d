// A machine that is mirrored: its settings, its id, and its publisher as a process.
#include <signal.h>

#include "FleetTool.h"
#include "mirror/HostValue.h"
#include "mirror/Keys.h"
#include "support/Manager.h"

using fleet::HostValue;

class PublishTest : public FleetTool {
protected:
    void SetUp() override {
        FleetTool::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        machine("one");
    }

    // A machine of that name in a folder of its own, whose settings are those of the test from then on.
    void machine(const std::string& name, const std::string& more = "") {
        std::filesystem::create_directories(path(name));
        settings_ = name + "/fleet.conf";
        write(settings_, "endpoints = " + servers_->endpoint() + "\ninsecure = yes\nstate = state\nname = " + name +
                             "\nlease = 3\nregistries = " + path(name) + "/global.reg\n" + more);
        set(name, "inst1", "first");
    }
    void set(const std::string& name, const std::string& instance, const std::string& comment) {
        EXPECT_EQ(status("-q --registry " + name + "/global.reg instance set RVN 9.7.0.2 " + instance,
                         {"comment=" + comment}),
                  0);
    }
    std::string enrolled() {
        const std::string id = fleet("-q enrol").out;
        return id.substr(0, id.find('\n'));
    }
    std::optional<HostValue> value(const std::string& id) {
        std::vector<fleet::StoredValue> found;
        (void)store_->get({fleet::registryKey(fleet::DEFAULT_PREFIX, id)}, found);
        return found.empty() ? std::nullopt : std::optional(fleet::decode(found[0].value, id));
    }
    bool isAlive(const std::string& id) {
        std::vector<fleet::StoredValue> found;
        (void)store_->get({fleet::aliveKey(fleet::DEFAULT_PREFIX, id)}, found);
        return !found.empty();
    }
    bool mirrors(const std::string& id, const std::string& text) {
        const auto there = value(id);
        return there && !there->registries.empty() && !there->registries[0].records.empty() &&
               there->registries[0].records[0].value("comment", "") == text;
    }
    int end(const Running& running) {
        ::kill(running.pid, SIGTERM);
        return finish(running).status;
    }
    void expectRefusal(const std::string& settings, const std::string& said) {
        settings_ = "other.conf";
        write(settings_, settings);
        expectAnswer(6, said, "status");
        settings_ = "one/fleet.conf";
    }
};

TEST_F(PublishTest, RefusesSettingsThatAreNone) {
    const std::string good = "endpoints = 127.0.0.1:1\ninsecure = yes\n";
    expectRefusal(good + "endpoint = x\n", "line 3: there is no setting endpoint");
    expectRefusal(good + "insecure = yes\n", "line 3: insecure is there twice");
    expectRefusal(good + "no sign\n", "line 3: this is no line");
    expectRefusal("insecure = maybe\n", "yes or no");
    expectRefusal(good + "lease = 1\n", "lease is 1");
    expectRefusal(good + "lease = 90s\n", "lease is 90s");
    expectRefusal(good + "registries = global.reg\n", "no full path");
    expectRefusal(good + "prefix = /a\n", "prefix is /a");
    expectRefusal("insecure = yes\n", "there are no endpoints");
    expectRefusal("endpoints = https://127.0.0.1:1\ninsecure = yes\n", "no endpoint");
    expectRefusal("endpoints = 127.0.0.1\ninsecure = yes\n", "no endpoint");
    // Plaintext leaves no machine, whatever a name makes of it.
    for (const char* const host :
         {"10.0.0.1", "example.org", "127.0.0.1.example.org", "localhost.example.org", "::1"}) {
        expectRefusal(std::string("endpoints = ") + host + ":1\ninsecure = yes\n", "is not on this machine");
    }
    expectRefusal("endpoints = 127.0.0.1:1\n", "there is no ca");
    expectRefusal(good + "ca = /x\n", "insecure = yes beside");
    expectRefusal("endpoints = h:1\nca = /x\nkey = /x\n", "go together");
    settings_ = "missing.conf";
    expectAnswer(3, "missing.conf", "hosts");
}

TEST_F(PublishTest, EnrolsOnce) {
    expectAnswer(3, "not enrolled", "publish --once");
    expectAnswer(3, "not enrolled", "status");
    EXPECT_EQ(fleet("enrol --check").status, 1);
    EXPECT_FALSE(std::filesystem::exists(path("one/state")));
    const std::string id = enrolled();
    EXPECT_TRUE(fleet::isHostId(id)) << id;
    EXPECT_EQ(std::filesystem::status(path("one/state/host")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(enrolled(), id);
    EXPECT_EQ(fleet("enrol --check").status, 0);
    const std::string anew = fleet("-q enrol --anew").out;
    EXPECT_TRUE(fleet::isHostId(anew.substr(0, anew.find('\n'))));
    EXPECT_NE(anew, id + "\n");
    // Lines for the store name both keys, and the id as the user.
    const std::string lines = fleet("setup --print", {id}).out;
    for (const std::string& part : {fleet::registryKey(fleet::DEFAULT_PREFIX, id),
                                    fleet::aliveKey(fleet::DEFAULT_PREFIX, id), "user add " + id + " --no-password"}) {
        EXPECT_NE(lines.find(part), std::string::npos) << part;
    }
    expectAnswer(2, "--print", "setup");
    write("one/state/host", "id = x\n");
    expectAnswer(7, "says not who", "publish --once");
}

TEST_F(PublishTest, OnceTellsWhatItDid) {
    const std::string id = enrolled();
    expectAnswer(0, "published as number 1", "publish --once");
    EXPECT_TRUE(mirrors(id, "first"));
    EXPECT_FALSE(isAlive(id));
    expectAnswer(0, "the store says so already", "publish --once");
    set("one", "inst1", "second");
    const Json told = objects(fleet("--json publish --once").out).at(0);
    EXPECT_EQ(told["id"], id);
    EXPECT_EQ(told["sequence"], 2);
    EXPECT_EQ(told["changed"], true);
    EXPECT_TRUE(mirrors(id, "second"));

    // The records are those of genreg export, byte for byte.
    std::string records;
    const HostValue whole = *value(id);
    for (const tool::Json& record : whole.registries.at(0).records) {
        records += record.dump() + "\n";
    }
    EXPECT_EQ(records, out("export one/global.reg"));

    // A registry that cannot be read is told, and the others are mirrored.
    write("damaged.reg", read("one/global.reg") + "junk");
    machine("one", "# and more\n");
    std::string settings = read("one/fleet.conf");
    settings.replace(settings.find("/one/global.reg"), 15,
                     "/one/global.reg " + path("damaged.reg") + " " + path("none.reg"));
    write("one/fleet.conf", settings);
    EXPECT_EQ(fleet("publish --once").status, 0);
    const HostValue some = *value(id);
    ASSERT_EQ(some.errors.size(), 2U);
    EXPECT_EQ(some.errors[0].kind, "damaged");
    EXPECT_EQ(some.errors[1].kind, "missing");
    EXPECT_EQ(some.registries.size(), 1U);

    // The store is away: in time, and with its own status.
    servers_->kill();
    set("one", "inst1", "third");
    expectAnswer(4, "not reached", "--wait 0 publish --once");
    expectAnswer(4, "not reached", "--wait 0 status");
}

TEST_F(PublishTest, AServiceFollowsItsRegistries) {
    const std::string id = enrolled();
    const Manager manager(path("notify"));
    const Running running = started("publish");
    ASSERT_TRUE(manager.hears("READY=1\nSTATUS="));
    ASSERT_TRUE(becomes([&] { return mirrors(id, "first") && isAlive(id); }));
    expectAnswer(4, "another publisher runs already", "publish --once");
    expectAnswer(4, "another publisher runs already", "enrol --anew");
    EXPECT_TRUE(becomes([&] { return fleet("status").status == 0; })) << fleet("status").out;
    set("one", "inst1", "second");
    EXPECT_TRUE(becomes([&] { return mirrors(id, "second"); }));

    // New settings, and then some that are none: those from before stand.
    std::string settings = read(settings_);
    settings.replace(settings.find("name = one"), 10, "name = two");
    write(settings_, settings);
    ::kill(running.pid, SIGHUP);
    EXPECT_TRUE(manager.hears("RELOADING=1"));
    set("one", "inst1", "third");
    EXPECT_TRUE(becomes([&] { return mirrors(id, "third"); }));
    EXPECT_EQ(value(id)->hostName, "two");
    write(settings_, settings + "what = ever\n");
    ::kill(running.pid, SIGHUP);
    EXPECT_TRUE(becomes([&] { return read(running.err).find("the settings from before stand") != std::string::npos; }));
    write(settings_, settings);
    set("one", "inst1", "fourth");
    EXPECT_TRUE(becomes([&] { return mirrors(id, "fourth"); }));

    EXPECT_EQ(end(running), 0);
    EXPECT_TRUE(manager.hears("STOPPING=1"));
    EXPECT_FALSE(isAlive(id));
    EXPECT_TRUE(value(id));
    EXPECT_EQ(fleet("status").status, 1);
}

TEST_F(PublishTest, AServiceIsReadyWithoutTheStore) {
    const std::string id = enrolled();
    servers_->kill();
    const Manager manager(path("notify"));
    const Variable watchdog("WATCHDOG_USEC", "600000");
    const Running running = started("publish");
    EXPECT_TRUE(manager.hears("READY=1\nSTATUS="));
    set("one", "inst1", "meanwhile");
    // Nobody answers, and it says all the same that it is well.
    EXPECT_TRUE(manager.hears("WATCHDOG=1"));
    EXPECT_TRUE(manager.hears("WATCHDOG=1"));
    servers_->start();
    EXPECT_TRUE(becomes([&] { return mirrors(id, "meanwhile") && isAlive(id); }));
    EXPECT_EQ(end(running), 0);
}

TEST_F(PublishTest, AServiceFollowsARegistryThatIsNotThereYet) {
    std::filesystem::remove(path("one/global.reg"));
    const std::string id = enrolled();
    const Running running = started("publish");
    ASSERT_TRUE(becomes([&] { return value(id).has_value(); }));
    EXPECT_EQ(value(id)->errors.at(0).kind, "missing");
    set("one", "inst1", "new");
    EXPECT_TRUE(becomes([&] { return mirrors(id, "new"); }));
    EXPECT_TRUE(value(id)->errors.empty());
    EXPECT_EQ(end(running), 0);
}

TEST_F(PublishTest, TwoMachinesOfOneIdFindEachOther) {
    const std::string id = enrolled();
    const Running one = started("publish");
    ASSERT_TRUE(becomes([&] { return isAlive(id); }));
    std::filesystem::copy(path("one"), path("two"), std::filesystem::copy_options::recursive);
    machine("two");
    const Running two = started("publish");
    const auto clash = [&](const std::string& settings) {
        settings_ = settings;
        return fleet("status").status == 5;
    };
    ASSERT_TRUE(becomes([&] { return clash("one/fleet.conf") && clash("two/fleet.conf"); }));
    const auto stopped = [&](const Running& running) {
        return read(running.err).find("publishes no more") != std::string::npos;
    };
    EXPECT_TRUE(becomes([&] { return stopped(one) && stopped(two); })) << read(one.err) << read(two.err);
    EXPECT_EQ(end(one), 0);
    EXPECT_EQ(end(two), 0);
    // The clone was the last one to write.
    settings_ = "one/fleet.conf";
    expectAnswer(5, "--take-over", "publish --once");

    expectAnswer(0, "published as number", "publish --once --take-over");
    const Running again = started("publish");
    EXPECT_TRUE(becomes([&] { return fleet("status").status == 0; })) << fleet("status").out;
    settings_ = "two/fleet.conf";
    expectAnswer(5, "took the id", "publish --once");
    const std::string own = fleet("-q enrol --anew").out;
    expectAnswer(0, "published as number 1", "publish --once");
    EXPECT_TRUE(value(own.substr(0, own.find('\n'))));
    EXPECT_EQ(end(again), 0);
}

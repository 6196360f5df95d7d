// Who may do what, by certificates and by passwords.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>

#include "prove/fleet_faults/Parts.h"
#include "tests/support/BuiltTool.h"

namespace prove {
namespace {

bool isRight(fleet::Store& store, Machine& machine) {
    const Mirrored there = mirroredOf(store, machine);
    return there.alive && there.text == machine.text();
}

// A store with certificates, and two hosts that have the rights which the program itself writes down.
class Secured {
public:
    explicit Secured(Cases& around)
        : cases(around),
          ours_(made("ours")),
          foreign_(made("foreign")),
          servers_(made("servers"), {.certificates = &ours_}),
          root_(access()),
          one(folder_.file("one"), "one", settingsOf(ours_.authority(), ours_, "one")),
          two(folder_.file("two"), "two", settingsOf(ours_.authority(), ours_, "two")) {
        for (Machine* const machine : {&one, &two}) {
            machine->enrol();
            ours_.addFor("/CN=" + machine->id(), machine->name());
        }
        foreign_.addFor("/CN=" + one.id(), "one");
        ours_.addFor("/O=nobody", "nameless");
        ours_.add("stranger");
        ours_.add("genreg-viewer");
        ours_.add("genreg-operator");
        const ToolRun lines = one.fleet({"setup", "--print", one.id(), two.id()});
        std::istringstream all(lines.out);
        for (std::string line; std::getline(all, line);) {
            if (line.starts_with("etcdctl ")) {
                servers_.must(line.substr(line.find(' ') + 1));
            }
        }
        viewer = settingsFor("viewer", ours_.authority(), ours_, "genreg-viewer");
    }

    // A file of settings of that name.
    [[nodiscard]] std::string settingsFor(const std::string& name, const std::string& authority,
                                          const Certificates& certificates, const std::string& identity) const {
        std::string path = folder_.file(name + ".conf");
        (void)putBytes(path, settingsOf(authority, certificates, identity) +
                                 "state = one/state\nname = one\nregistries = " + folder_.file("one") +
                                 "/registry/global.reg\n");
        return path;
    }
    [[nodiscard]] std::string settingsOf(const std::string& authority, const Certificates& certificates,
                                         const std::string& identity) const {
        return "endpoints = " + servers_.endpoint() + "\nca = " + authority +
               "\ncertificate = " + certificates.certificate(identity) + "\nkey = " + certificates.key(identity) + "\n";
    }
    void expect(const std::string& what, const std::string& settings, const Words& words, int status,
                const std::string& said) const {
        Words all = {"--wait", status == 0 ? "30" : "0"};
        all.insert(all.end(), words.begin(), words.end());
        const ToolRun run = runFleet(settings, all);
        (void)cases.check(run.status == status && (run.out + run.err).find(said) != std::string::npos,
                          what + ": exit " + std::to_string(run.status) + ", not " + std::to_string(status) + ": " +
                              run.out + run.err);
    }

    Cases& cases;

private:
    std::string made(const std::string& name) const {
        std::filesystem::create_directory(folder_.file(name));
        return folder_.file(name);
    }
    [[nodiscard]] fleet::StoreAccess access() const {
        fleet::StoreAccess access;
        access.endpoints = servers_.endpoints();
        access.ca = ours_.authority();
        access.certificate = ours_.certificate("root");
        access.key = ours_.key("root");
        return access;
    }

    const Folder folder_{false};
    Certificates ours_;
    Certificates foreign_;
    EtcdServers servers_;
    fleet::Store root_;

public:
    [[nodiscard]] const Certificates& ours() const { return ours_; }
    [[nodiscard]] const Certificates& foreign() const { return foreign_; }
    [[nodiscard]] EtcdServers& servers() { return servers_; }
    [[nodiscard]] fleet::Store& root() { return root_; }
    Machine one;
    Machine two;
    std::string viewer;
};

// Each of them is refused in its own way, and leaves the store as it was.
void tryIdentities(Secured& secured) {
    const std::string& ca = secured.ours().authority();
    const auto as = [&](const std::string& name) { return secured.settingsFor(name, ca, secured.ours(), name); };
    const std::int64_t before = secured.root().count("/").revision;
    const std::string foreign = secured.settingsFor("foreign", ca, secured.foreign(), "one");
    const std::string misled = secured.settingsFor("misled", secured.foreign().authority(), secured.ours(), "one");
    constexpr int UNREACHED = 4;
    constexpr int REFUSED = 8;
    const std::string denied = "does not let this identity";
    for (const Words& words : {Words{"publish", "--once"}, Words{"hosts"}, Words{"status"}}) {
        const std::string& what = words.front();
        secured.expect(what + " with a certificate of another authority", foreign, words, UNREACHED, "not reached");
        secured.expect(what + " to a server of another authority", misled, words, UNREACHED, "not reached");
        secured.expect(what + " without a name", as("nameless"), words, REFUSED, denied);
        secured.expect(what + " as one whom the store does not know", as("stranger"), words, REFUSED, denied);
    }
    secured.expect("publish as another host", as("two"), {"publish", "--once"}, REFUSED, denied);
    secured.expect("publish as a viewer", secured.viewer, {"publish", "--once"}, REFUSED, denied);
    secured.expect("look as a host", secured.two.settings(), {"hosts"}, REFUSED, denied);
    secured.expect("show as a host", secured.two.settings(), {"show", "one"}, REFUSED, denied);
    secured.expect("forget as a viewer", secured.viewer, {"-y", "forget", "--alive", "two"}, REFUSED, denied);
    // Leases are granted to who asks, which is no change of the store.
    (void)secured.cases.check(secured.root().count("/").revision == before,
                              "somebody who was refused changed the store");
}

// A service whose user goes away says so, and goes on when it is there again.
void deleteUser(Secured& secured) {
    Machine& two = secured.two;
    two.start();
    (void)secured.cases.check(becomes([&] { return isRight(secured.root(), two); }),
                              "a host of its own never is alive");
    secured.servers().must("user delete " + two.id());
    two.write("deleted1");
    const auto says = [&](const char* words) { return two.publisher().log().find(words) != std::string::npos; };
    (void)secured.cases.check(becomes([&] { return says("does not let this identity"); }),
                              "a service whose user was deleted says nothing: " + two.publisher().log());
    secured.expect("publish as a deleted user", two.settings(), {"status"}, 8, "does not let this identity");
    (void)secured.cases.check(mirroredOf(secured.root(), two).text != "deleted1", "a deleted user writes on");
    secured.servers().must("user add " + two.id() + " --no-password");
    secured.servers().must("user grant-role " + two.id() + " genreg-host-" + two.id());
    (void)secured.cases.check(becomes([&] { return isRight(secured.root(), two); }),
                              "a user that is there again does not go on: " + two.publisher().log());
}

// Its watch goes on for as long as the store lets it, and ends with the reason; whatever it asks anew is refused.
void deleteViewer(Secured& secured, const std::string& folder) {
    Background watch(BUILT_FLEET, {"--config", secured.viewer, "--json", "watch"}, folder + "/watch.log");
    (void)secured.cases.check(becomes([&] { return watch.log().find("watching") != std::string::npos; }),
                              "a viewer cannot watch: " + watch.log());
    secured.servers().must("user delete genreg-viewer");
    secured.expect("look as a deleted user", secured.viewer, {"hosts"}, 8, "does not let this identity");
    if (!secured.cases.quick()) {
        (void)secured.cases.check(becomes([&] { return watch.ended() == 8; }),
                                  "a watch of a deleted user goes on for ever: " + watch.log());
    }
}

}  // namespace

void checkRights(Cases& cases, Recoveries& /*recoveries*/) {
    Secured secured(cases);
    secured.expect("publish as oneself", secured.one.settings(), {"publish", "--once"}, 0, "published as number 1");
    secured.expect("publish as the other one", secured.two.settings(), {"publish", "--once"}, 0, "number 1");
    secured.one.write("refused1");
    tryIdentities(secured);
    secured.expect("look as a viewer", secured.viewer, {"show", "two"}, 0, "inst1");
    deleteUser(secured);
    const Folder folder(false);
    deleteViewer(secured, folder.path());
    const std::string operators =
        secured.settingsFor("operator", secured.ours().authority(), secured.ours(), "genreg-operator");
    secured.expect("forget as an operator", operators, {"-y", "forget", "one"}, 0, "");
    (void)cases.check(mirroredOf(secured.root(), secured.one).revision == 0,
                      "an operator forgot, and it is there still");
    (void)cases.check(secured.two.publisher().end() == 0, "the publisher did not end well");
    (void)cases.check((secured.one.wrongWithFiles() + secured.two.wrongWithFiles()).empty(),
                      secured.one.wrongWithFiles() + secured.two.wrongWithFiles());
}

// Tokens that run out after two seconds, with a host that says nothing for longer.
void checkTokens(Cases& cases, Recoveries& recoveries) {
    const Folder folder(false);
    std::filesystem::create_directory(folder.file("servers"));
    EtcdServers servers(folder.file("servers"), {.flags = {"--auth-token-ttl", "2", "--bcrypt-cost", "4"}});
    (void)putBytes(folder.file("password"), "secret\n");
    const auto settings = [&](const std::string& user) {
        return "endpoints = " + servers.endpoint() + "\ninsecure = yes\nuser = " + user +
               "\npassword-file = " + folder.file("password") + "\n";
    };
    Machine machine(folder.file("m"), "m", settings("host"));
    machine.enrol();
    machine.use(settings("host"), "lease = 60\ncompare-every = 600\n");
    for (const char* const line : {"user add root:secret", "user grant-role root root", "user add host:secret",
                                   "role add host", "role grant-permission --prefix=true host readwrite /genreg/v1/",
                                   "user grant-role host host", "auth enable"}) {
        servers.must(line);
    }
    fleet::StoreAccess access;
    access.endpoints = servers.endpoints();
    access.insecure = true;
    access.user = "root";
    access.password = "secret";
    fleet::Store root(access);
    machine.start();
    (void)cases.check(becomes([&] { return isRight(root, machine); }), "tokens: no beginning");
    for (int round = 0; round < (cases.quick() ? 1 : 3); ++round) {
        pause(3.5);
        machine.write("idle" + std::to_string(round));
        (void)cases.check(becomes([&] { return isRight(root, machine); }), "an idle token: never published");
        const std::string log = machine.publisher().log();
        (void)cases.check(log.find("tried again") == std::string::npos, "an idle token is a trouble: " + log);
    }
    servers.kill();
    servers.start();
    const auto since = std::chrono::steady_clock::now();
    machine.write("restarted");
    if (cases.check(becomes([&] { return isRight(root, machine); }),
                    "a token that the store forgot: never published")) {
        recoveries.add("the store forgot all tokens",
                       std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count());
    }
    (void)cases.check(machine.publisher().end() == 0, "tokens: the publisher did not end well");
    (void)cases.check(machine.wrongWithFiles().empty(), machine.wrongWithFiles());
}

}  // namespace prove

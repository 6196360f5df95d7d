// What somebody puts into the store who means no good, or has lost a byte.
#include <algorithm>
#include <cstdio>
#include <random>
#include <sstream>

#include "base/Failure.h"
#include "base/Json.h"
#include "mirror/Keys.h"
#include "mirror/Packing.h"
#include "prove/fleet_faults/Parts.h"

namespace prove {
namespace {

const std::size_t BOMB = 60'000'000;  // bytes, of which nothing is left when they are packed

struct Hostile {
    std::string name;
    std::string value;   // under `reg`
    std::string sign;    // under `alive`; empty: none
    bool sound = false;  // it is what a host might say, and shown so that it harms nobody
};

std::string idOf(std::size_t number) {
    char text[40];
    (void)std::snprintf(text, sizeof text, "f%031zx", number);
    return text;
}

tool::Json record(const std::string& value) {
    return {{"schema", 1}, {"type", "variable"}, {"service", "RVN"}, {"variable", "PORT"}, {"value", value}};
}

fleet::HostValue headOf(const std::string& id) {
    fleet::HostValue value;
    value.id = id;
    value.writer = "n.1";
    value.sequence = 1;
    value.hostName = "h" + id.substr(28);
    value.time = "2026-01-31T23:59:59Z";
    return value;
}

std::string soundValue(const std::string& id, const std::string& name, const std::string& path,
                       const std::string& value) {
    fleet::HostValue head = headOf(id);
    head.hostName = name;
    const fleet::MirroredRegistry registry{path, {record(value)}};
    return encode(head, fleet::contentOf({{path, value, value}}, {registry}));
}

// A value whose content is this text, with the digest that fits.
std::string withContent(const std::string& id, const std::string& content) {
    return encode(headOf(id), {content, fleet::sha256(content)});
}

std::string changed(std::string text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
    return text;
}

std::vector<Hostile> hostileValues() {
    constexpr std::size_t MANY = 200'000;
    const std::string deep = R"("errors":[],"registries":)" + std::string(3'000'000, '[') + "}";
    std::vector<Hostile> all;
    const auto id = [&] { return idOf(all.size()); };
    const auto good = [&] { return soundValue(id(), "good", "/r", "1"); };
    const auto add = [&](const char* name, std::string value, bool sound = false, std::string sign = "") {
        all.push_back({name, std::move(value), std::move(sign), sound});
    };
    const std::string escapes =
        "\x1b]0;evil\x07\x1b[2J\r\nfake  line\xc2\x9b"
        "31m";
    add("rubbish", "rub\x1b[31mbish");
    add("nothing", "");
    add("a bomb", fleet::packed(std::string(BOMB, ' ')));
    add("a bomb in a text", fleet::packed("{\"schema\":1,\"id\":\"" + std::string(BOMB, 'a')));
    add("brackets", fleet::packed(std::string(3'000'000, '[')));
    add("brackets in a content", withContent(id(), deep));
    add("objects", fleet::packed([] {
            std::string text;
            for (int depth = 0; depth < 500'000; ++depth) {
                text += R"({"a":)";
            }
            return text;
        }()));
    add("a wrong digest", changed(good(), R"("value":"1")", R"("value":"2")"));
    add("no digest", changed(good(), R"("sha256")", R"("sha257")"));
    add("another's id", soundValue(idOf(0), "good", "/r", "1"));
    add("a huge number", changed(good(), R"("sequence":1)", R"("sequence":1e300)"));
    add("a negative number", changed(good(), R"("sequence":1)", R"("sequence":-1)"));
    add("another schema", changed(good(), R"("schema":1)", R"("schema":2)"));
    add("no text", changed(good(), R"("hostName":"good")", R"("hostName":[])"));
    add("half of it", good().substr(0, good().size() / 2));
    add("half a member", fleet::packed(good()).substr(0, 60));
    add("two members", fleet::packed(good()) + fleet::packed(good()));
    add("too much", std::string(300'000, 'x'));
    add("no UTF-8", changed(good(), "good", "go\xff\xfe"));
    add("records that are none", withContent(id(), R"("errors":[],"registries":[{"path":"/r","records":[1,[],{}]}]})"),
        true);
    add("escapes", soundValue(id(), escapes, "/" + escapes, escapes), true);
    add("paths", soundValue(id(), "../../../evil", "/../../../tmp/../evil/global.reg", "1"), true);
    add("a long name", soundValue(id(), std::string(MANY / 2, 'n'), "/r", "1"), true);
    add("a sign that is rubbish", good(), false, "rubbish\x1b[31m");
    add("a sign of brackets", good(), false, std::string(MANY, '['));
    add("a sign with escapes", good(), true,
        R"({"schema":1,"writer":"\u001b[31m","time":"\u0007","clash":["\u001b]0;x","b"]})");
    add("a sign that is a bomb", good(), false, fleet::packed(std::string(BOMB, ' ')));
    return all;
}

void put(fleet::Store& store, const std::string& key, const std::string& value) {
    constexpr double PATIENCE = 60;  // seconds, of a machine that has much else to do
    store.patiently(PATIENCE, [&] {
        std::vector<fleet::StoredValue> found;
        (void)store.get({key}, found);
        (void)store.exchange(key, found.empty() ? 0 : found[0].modRevision, value);
    });
}

void judgeWords(Cases& cases, const std::string& what, const ToolRun& run) {
    const std::string all = run.out + run.err;
    const bool safe =
        std::ranges::none_of(all, [](char each) { return static_cast<unsigned char>(each) < ' ' && each != '\n'; });
    (void)cases.check(run.status < 127, what + ": ended with " + std::to_string(run.status));
    (void)cases.check(safe && all.find("\xc2\x9b") == std::string::npos, what + ": control characters: " + all);
}

// Each question is answered for the sound host, says what is damaged, and changes nothing on a terminal.
void askAll(Fleet& fleet, const std::vector<Hostile>& values) {
    Cases& cases = fleet.cases;
    const std::string batch = fleet.folder() + "/batch.jsonl";
    (void)putBytes(batch, record("2").dump() + "\n");
    const std::string shipped = fleet.folder() + "/shipped";
    for (const char* const form : {"--json", "-v"}) {
        for (const Words& words : {Words{"hosts"}, Words{"find", "variable"}, Words{"count", "variable", "value"},
                                   Words{"find", "instance"}, Words{"rehearse", batch, "--into", shipped}}) {
            Words all = {form};
            all.insert(all.end(), words.begin(), words.end());
            const ToolRun run = runFleet(fleet.viewer(), all);
            judgeWords(cases, words.front(), run);
            (void)cases.check(run.status == 7 || words.front() == "rehearse",
                              words.front() + ": exit " + std::to_string(run.status) + ": " + run.err);
            if (words.front() == "hosts" || words.back() == "instance") {
                (void)cases.check(run.out.find(fleet.machine(0).name()) != std::string::npos,
                                  words.front() + ": the sound host is hidden: " + run.out);
            }
        }
    }
    for (std::size_t number = 0; number < values.size(); ++number) {
        const ToolRun run = runFleet(fleet.viewer(), {"show", idOf(number)});
        judgeWords(cases, "show " + values[number].name, run);
        const bool isRefused = run.status == 7;
        (void)cases.check(isRefused || values[number].sound || !values[number].sign.empty(),
                          "show of " + values[number].name + ": exit " + std::to_string(run.status) + ": " + run.out);
    }
    for (const std::string& name : namesIn(shipped)) {
        (void)cases.check(fleet::isHostId(name.substr(0, name.find('.'))), "rehearse made a strange file: " + name);
    }
}

// Bytes changed at random: taken as the host's and whole, or refused as damaged.
void changeBytes(Cases& cases) {
    std::mt19937_64 random(cases.seed());
    const std::string id = idOf(1);
    const std::string plain = soundValue(id, "good", "/r", "1");
    const std::string packed = fleet::packed(plain);
    const int tries = cases.quick() ? 20'000 : 300'000;
    unsigned long taken = 0;
    for (int number = 0; number < tries; ++number) {
        std::string bytes = number % 2 == 0 ? plain : packed;
        for (auto changes = 1 + random() % 3; changes > 0; --changes) {
            const std::size_t at = random() % bytes.size();
            switch (random() % 4) {
                case 0:
                    bytes[at] = static_cast<char>(random());
                    break;
                case 1:
                    bytes.erase(at, 1 + random() % 8);
                    break;
                case 2:
                    bytes.insert(at, bytes.substr(random() % bytes.size(), random() % 16));
                    break;
                default:
                    bytes[at] = static_cast<char>(static_cast<unsigned char>(bytes[at]) ^ (1U << random() % 8));
            }
            if (bytes.empty()) {
                break;
            }
        }
        try {
            const fleet::HostValue value = fleet::decode(bytes, id);
            ++taken;
            (void)cases.check(value.id == id && contentOf(value.errors, value.registries).sha256 == value.sha256,
                              "what was changed was taken: " + bytes);
        } catch (const tool::Failure& failure) {
            (void)cases.check(failure.exitStatus == 7, "changed bytes: exit " + std::to_string(failure.exitStatus));
        }
    }
    cases.note(std::to_string(tries) + " values of which bytes were changed; " + std::to_string(taken) +
               " of them say the same still, or differ in their heads");
}

// What is put under its own keys is replaced by what is true.
void putUnderOwnKeys(Fleet& fleet) {
    const Machine& machine = fleet.machine(0);
    for (const std::string& value : {std::string("rubbish"), fleet::packed(std::string(BOMB, '['))}) {
        put(fleet.store(), fleet::registryKey(fleet::DEFAULT_PREFIX, machine.id()), value);
        (void)fleet.cases.check(fleet.awaitRight("a hostile value under the own key"), "a hostile value stays");
        put(fleet.store(), fleet::aliveKey(fleet::DEFAULT_PREFIX, machine.id()), value);
        const auto isSound = [&] { return !mirroredOf(fleet.store(), machine).sign.writer.empty(); };
        (void)fleet.cases.check(becomes(isSound), "a hostile sign of life stays");
    }
    fleet.checkFiles("hostile values");
}

}  // namespace

void checkHostileValues(Cases& cases, Recoveries& recoveries) {
    changeBytes(cases);
    Fleet fleet(cases, recoveries, {.machines = 1});
    fleet.begin();
    const std::vector<Hostile> values = hostileValues();
    for (std::size_t number = 0; number < values.size(); ++number) {
        put(fleet.store(), fleet::registryKey(fleet::DEFAULT_PREFIX, idOf(number)), values[number].value);
        if (!values[number].sign.empty()) {
            put(fleet.store(), fleet::aliveKey(fleet::DEFAULT_PREFIX, idOf(number)), values[number].sign);
        }
    }
    const std::string hosts = fleet::hostsPrefix(fleet::DEFAULT_PREFIX);
    for (const std::string& key : {hosts, hosts + "x/reg", hosts + idOf(0) + "/reg/more", hosts + idOf(0) + "/\x1b[31m",
                                   hosts + std::string(1000, '/')}) {
        put(fleet.store(), key, "rubbish");
    }
    askAll(fleet, values);
    putUnderOwnKeys(fleet);
    fleet.end();
}

}  // namespace prove

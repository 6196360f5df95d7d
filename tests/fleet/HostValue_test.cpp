// What lies in the store: the same of the same contents, read back as it was, and refused with a reason where it is not
// what its host wrote.
#include "mirror/HostValue.h"

#include <gtest/gtest.h>

#include "base/Failure.h"
#include "mirror/Packing.h"
#include "mirror/Times.h"

namespace {

using fleet::HostValue;
using tool::Json;

const std::string ID(32, 'a');
const std::string OTHER_ID(32, 'b');

HostValue someValue(std::size_t records = 2) {
    HostValue value;
    value.id = ID;
    value.writer = "0123abcd.boot-1";
    value.sequence = 7;
    value.hostName = "web1";
    value.time = "2026-01-31T23:59:59Z";
    value.errors = {{"/var/rvn/other.reg", "damaged", "it is \"damaged\" \x1b[31m"}};
    value.registries = {{"/var/rvn/global.reg", {}}, {"/srv/\xff.reg", {}}};
    for (std::size_t i = 0; i < records; ++i) {
        value.registries[0].records.push_back(
            Json{{"type", "variable"}, {"service", "S"}, {"name", "V" + std::to_string(i)}, {"value", "1"}});
    }
    return value;
}

std::string stored(const HostValue& value) {
    return encode(value, contentOf(value.errors, value.registries));
}

// As it is written by hand: with a digest that fits.
std::string plain(const std::string& head, const std::string& content) {
    return head + R"("sha256":")" + fleet::sha256(content) + "\"," + content;
}

const std::string HEAD =
    R"({"schema":1,"id":")" + ID + R"(","writer":"a.b","sequence":1,"hostName":"h","time":"2026-01-01T00:00:00Z",)";
const std::string NOTHING = R"("errors":[],"registries":[]})";

// The refusal's words; it must be one of a damaged value.
template <typename Work>
std::string refusal(Work work) {
    try {
        work();
    } catch (const tool::Failure& failure) {
        EXPECT_EQ(failure.exitStatus, tool::EXIT_DAMAGED) << failure.message;
        EXPECT_EQ(failure.kind, "damaged-value");
        EXPECT_LT(failure.message.size(), 1000U);
        return failure.message;
    }
    return "taken";
}
std::string refusalOf(const std::string& bytes) {
    return refusal([&] { (void)fleet::decode(bytes, ID); });
}
std::string changed(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(HostValue, ComesBackAsItWas) {
    for (const std::size_t records : {0UL, 2UL, 500UL}) {
        HostValue value = someValue(records);
        value.tookOver = {"feed", "beef"};
        const std::string bytes = stored(value);
        EXPECT_EQ(bytes[0] == '{', records < 10);
        EXPECT_EQ(bytes, stored(value));
        const HostValue read = fleet::decode(bytes, ID);
        EXPECT_EQ(read.writer, value.writer);
        EXPECT_EQ(read.sequence, 7U);
        EXPECT_EQ(read.tookOver, value.tookOver);
        EXPECT_EQ(read.errors.at(0).message, value.errors[0].message);
        EXPECT_EQ(read.registries.at(1).path, "/srv/\xff.reg");
        EXPECT_EQ(read.registries[0].records, value.registries[0].records);
        EXPECT_EQ(stored(read), bytes);
    }
}

TEST(HostValue, DigestIsOfWhatStaysTheSame) {
    const HostValue value = someValue();
    HostValue later = value;
    later.sequence = 8;
    later.time = "2026-02-01T00:00:00Z";
    later.writer = "0123abcd.boot-2";
    EXPECT_EQ(contentOf(value.errors, value.registries).sha256, contentOf(later.errors, later.registries).sha256);
    EXPECT_NE(stored(value), stored(later));
    later.registries[0].records.pop_back();
    EXPECT_NE(contentOf(value.errors, value.registries).sha256, contentOf(later.errors, later.registries).sha256);
    EXPECT_EQ(fleet::sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // As the header promises: the digest is of the text behind it and its comma.
    const std::string text = stored(value);
    const std::size_t at = text.find(R"("sha256":")") + 10;
    EXPECT_EQ(fleet::sha256(text.substr(at + 64 + 2)), text.substr(at, 64));
}

TEST(HostValue, RefusesWhatIsNotItsHosts) {
    const std::string good = plain(HEAD, NOTHING);
    EXPECT_EQ(refusalOf(good), "taken");
    EXPECT_NE(refusal([&] { (void)fleet::decode(good, OTHER_ID); }).find("another host's"), std::string::npos);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "cannot be read"},
        {"[]", "no JSON object"},
        {good.substr(0, good.size() - 1), "cannot be read"},
        {good + "{}", "cannot be read"},
        {std::string(100000, '['), "nested too deeply"},
        {"{\"" + std::string(200000, 'x'), "cannot be read"},
        {changed(good, "\"schema\":1", "\"schema\":2"), "newer"},
        {changed(good, "\"schema\":1", "\"schema\":true"), "schema"},
        {changed(good, "\"schema\":1,", "\"schema\":1,\"schema\":1,"), "two members"},
        {changed(good, "\"a.b\"", "\"ab\""), "writer"},
        {changed(good, "\"a.b\"", "\"a.b\\u001b\""), "writer"},
        {changed(good, "\"sequence\":1", "\"sequence\":-1"), "sequence"},
        {changed(good, "\"sequence\":1", "\"sequence\":1.5"), "sequence"},
        {changed(good, "\"sequence\":1", "\"sequence\":99999999999999999999"), "sequence"},
        {changed(good, "\"sequence\":1", "\"sequence\":\"1\""), "sequence"},
        {changed(good, "\"h\"", "\"\""), "hostName"},
        {changed(good, "\"h\"", "\"" + std::string(256, 'h') + "\""), "hostName"},
        {changed(good, "2026-01-01T", "2026-02-30T"), "time"},
        {changed(good, "2026-01-01T", "2026-01-01 "), "time"},
        {changed(good, "\"hostName\"", "\"name\""), "hostName"},
        {changed(good, "\"errors\":[]", "\"errors\":[ ]"), "does not fit"},
        {changed(good, "\"errors\"", "\"x\":1,\"errors\""), "in front"},
        {plain(HEAD + "\"tookOver\":[1],", NOTHING), "tookOver"},
        {plain(HEAD, R"("errors":{},"registries":[]})"), "errors"},
        {plain(HEAD, R"("errors":[{"path":"/x","kind":"damaged"}],"registries":[]})"), "error 1"},
        {plain(HEAD, R"("errors":[],"registries":[{"path":"/x"}]})"), "registry 1"},
        {plain(HEAD, R"("errors":[],"registries":[{"path":"","records":[]}]})"), "registry 1"},
        {plain(HEAD, R"("errors":[],"registries":[{"path":"/x","records":[1]}]})"), "no object"},
        {plain(HEAD, R"("errors":[],"registries":[{"path":"/x","records":[]},{"path":"/x","records":[]}]})"), "twice"},
        {plain(HEAD, R"("errors":[],"registries":[{"path":"/x","pathBase64":"L3g=","records":[]}]})"), "twice"},
        {plain(HEAD, R"("errors":[],"registries":[{"path":"/x","records":[{"type":"service","type":"x"}]}]})"),
         "two members"},
    };
    for (const auto& [bytes, why] : cases) {
        EXPECT_NE(refusalOf(bytes).find(why), std::string::npos) << bytes.substr(0, 300) << ": " << refusalOf(bytes);
    }
    // Of a later release, beside what is known.
    EXPECT_EQ(refusalOf(plain(HEAD + "\"later\":{\"x\":1},", R"("errors":[],"registries":[],"more":1})")), "taken");
}

TEST(HostValue, RefusesWhatIsNoPackedValue) {
    const std::string text = plain(HEAD, NOTHING);
    const std::string good = fleet::packed(text);
    EXPECT_EQ(refusalOf(good), "taken");
    EXPECT_EQ(good.substr(4, 4), std::string(4, '\0')) << "a time";
    EXPECT_NE(refusalOf(good + good).find("behind"), std::string::npos);
    EXPECT_NE(refusalOf(good + "x").find("1 byte behind"), std::string::npos);
    for (std::size_t size = 2; size < good.size(); ++size) {
        EXPECT_NE(refusalOf(good.substr(0, size)).find("cut"), std::string::npos) << size;
    }
    for (std::size_t at = 10; at < good.size(); ++at) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x55);
        EXPECT_NE(refusalOf(bad), "taken") << at;
    }
    EXPECT_NE(refusalOf(std::string(fleet::MOST_STORED + 1, ' ')).find("more than"), std::string::npos);
}

TEST(HostValue, StopsUnpackingAtTheLimit) {
    const std::string most(fleet::MOST_UNPACKED, ' ');
    EXPECT_EQ(fleet::unpacked(fleet::packed(most)).size(), fleet::MOST_UNPACKED);
    EXPECT_NE(refusalOf(fleet::packed(most + " ")).find("larger than"), std::string::npos);
    const std::string bomb = fleet::packed(std::string(fleet::MOST_STORED * 900, ' '));
    ASSERT_LE(bomb.size(), fleet::MOST_STORED);
    EXPECT_NE(refusalOf(bomb).find("larger than"), std::string::npos);
    // As many members as there is room for take no longer than their number says.
    std::string members = "{\"a\":0";
    for (int i = 0; i < 600000; ++i) {
        members += ",\"" + std::to_string(i) + "\":0";
    }
    EXPECT_NE(refusalOf(fleet::packed(members.substr(0, fleet::MOST_UNPACKED - 1000) + "}")), "taken");
}

TEST(HostValue, AliveTellsWhoseItIs) {
    const fleet::AliveValue value{"a.b", "2026-01-01T00:00:00Z", {"a.b", "c.d"}};
    const fleet::AliveValue read = fleet::decodeAlive(encode(value));
    EXPECT_EQ(read.writer, "a.b");
    EXPECT_EQ(read.clash, value.clash);
    EXPECT_TRUE(fleet::decodeAlive(R"({"schema":1,"writer":"a.b","time":"2026-01-01T00:00:00Z"})").clash.empty());
    for (const char* const bad : {"", "{}", R"({"schema":1,"writer":"a","time":"2026-01-01T00:00:00Z"})",
                                  R"({"schema":1,"writer":"a.b","time":"now"})",
                                  R"({"schema":1,"writer":"a.b","time":"2026-01-01T00:00:00Z","clash":"a.b"})",
                                  R"({"schema":1,"writer":"a.b","time":"2026-01-01T00:00:00Z","clash":["a"]})"}) {
        EXPECT_NE(refusal([&] { (void)fleet::decodeAlive(bad); }), "taken") << bad;
    }
    EXPECT_NE(refusal([] { (void)fleet::decodeAlive(std::string(20000, ' ')); }).find("more than"), std::string::npos);
}

TEST(HostValue, TimesAreTheClocks) {
    EXPECT_EQ(fleet::secondsOf("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(fleet::secondsOf("2024-02-29T12:34:56Z"), 1709210096);
    EXPECT_EQ(fleet::timeOf(1709210096), "2024-02-29T12:34:56Z");
    for (const char* const bad : {"2023-02-29T12:34:56Z", "2024-02-29T24:00:00Z", "2024-02-29T12:34:56", "",
                                  "2024-02-29T12:34:56+", "2024-13-01T00:00:00Z"}) {
        EXPECT_FALSE(fleet::secondsOf(bad)) << bad;
    }
}

}  // namespace

// How hosts stand by what lies under their keys, and what is remembered of them.
#include "mirror/Picture.h"

#include "base/Failure.h"
#include "mirror/Keys.h"
#include "mirror/Known.h"
#include "support/Scratch.h"

using fleet::AliveValue;
using fleet::HostLook;
using fleet::HostState;
using fleet::HostValue;
using fleet::Known;
using fleet::Picture;

namespace {

const std::string A(32, 'a');
const std::string B(32, 'b');
const std::string TIME = "2026-01-31T23:59:59Z";

std::string value(const std::string& id, const std::string& writer, std::vector<std::string> tookOver = {}) {
    HostValue made;
    made.id = id;
    made.writer = writer;
    made.hostName = "web1";
    made.time = TIME;
    made.tookOver = std::move(tookOver);
    return encode(made, fleet::contentOf({}, {}));
}
std::string alive(const std::string& writer, std::vector<std::string> clash = {}) {
    return encode(AliveValue{writer, TIME, std::move(clash)});
}

class PictureTest : public Scratch {
protected:
    void put(const std::string& id, const std::string& reg, const std::string& sign) {
        (void)picture_.erase(fleet::registryKey("/p/", id));
        (void)picture_.erase(fleet::aliveKey("/p/", id));
        if (!reg.empty()) {
            EXPECT_EQ(picture_.put(fleet::registryKey("/p/", id), reg), id);
        }
        if (!sign.empty()) {
            EXPECT_EQ(picture_.put(fleet::aliveKey("/p/", id), sign), id);
        }
    }
    HostLook look(const std::string& reg, const std::string& sign) {
        put(A, reg, sign);
        return picture_.look(A);
    }

    Picture picture_{"/p/"};
};

}  // namespace

TEST_F(PictureTest, StateIsThatOfTheKeys) {
    EXPECT_EQ(look("", "").state, HostState::MISSING);
    EXPECT_EQ(look(value(A, "n.1"), "").state, HostState::SILENT);
    EXPECT_EQ(look(value(A, "n.1"), alive("n.1")).state, HostState::ALIVE);
    const HostLook noValue = look("", alive("n.1"));
    EXPECT_EQ(noValue.state, HostState::ALIVE);
    EXPECT_FALSE(noValue.hasValue);
    // Just started: its value is put anew at once.
    EXPECT_EQ(look(value(A, "n.1"), alive("n.2")).state, HostState::ALIVE);
    const HostLook clash = look(value(A, "n.1"), alive("m.1"));
    EXPECT_EQ(clash.state, HostState::CLASH);
    EXPECT_EQ(clash.writers, (std::vector<std::string>{"n.1", "m.1"}));
    EXPECT_EQ(look(value(A, "n.1"), alive("n.1", {"n.1", "m.1"})).state, HostState::CLASH);
    EXPECT_EQ(look("", alive("n.1", {"n.1", "m.1"})).state, HostState::CLASH);
    // What is left of one that it was taken over from.
    EXPECT_EQ(look(value(A, "n.1", {"m"}), alive("m.1")).state, HostState::ALIVE);
}

TEST_F(PictureTest, DamageHidesNoOther) {
    put(B, value(B, "n.1"), alive("n.1"));
    for (const std::string& bad : {std::string("rubbish"), value(B, "n.1"), std::string(fleet::MOST_STORED * 2, ' ')}) {
        const HostLook damaged = look(bad, alive("n.1"));
        EXPECT_EQ(damaged.state, HostState::ALIVE);
        EXPECT_TRUE(damaged.hasValue && !damaged.value && !damaged.damage.empty());
        EXPECT_EQ(picture_.look(B).value->hostName, "web1");
    }
    const HostLook sign = look(value(A, "n.1"), "rubbish");
    EXPECT_EQ(sign.state, HostState::ALIVE);
    EXPECT_TRUE(sign.value && !sign.damage.empty());
    EXPECT_EQ(picture_.ids(), (std::vector<std::string>{A, B}));
}

TEST_F(PictureTest, PassesOverKeysThatAreNoHosts) {
    for (const std::string& key : {"/p/host/" + A, "/p/host/" + A + "/later", "/p/host/" + A + "/reg/x",
                                   "/q/host/" + A + "/reg", "/p/host/" + std::string(32, 'A') + "/reg",
                                   std::string("/p/host/x/reg"), std::string("/p/"), std::string()}) {
        EXPECT_EQ(picture_.put(key, "x"), "") << key;
    }
    EXPECT_TRUE(picture_.empty());
}

TEST_F(PictureTest, WhatWasSeenIsRemembered) {
    const std::string file = path("state/x/known");
    Known known;
    known.read(file);
    EXPECT_TRUE(known.hosts().empty());
    known.remember(look(value(A, "n.1"), alive("n.1")), 1000);
    known.remember(look(value(A, "n.1"), ""), 2000);  // silent: it was last alive before
    put(B, value(B, "n.1"), "");
    known.remember(picture_.look(B), 2000);
    known.write(file);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path("state/x")), {}), 1);

    Known again;
    again.read(file);
    ASSERT_EQ(again.hosts().size(), 2U);
    EXPECT_EQ(again.find(A)->hostName, "web1");
    EXPECT_EQ(again.find(A)->alive, 1000);
    EXPECT_FALSE(again.find(B)->alive);
    // Missing, or damaged: the name stays.
    again.remember(look("rubbish", alive("n.1")), 3000);
    EXPECT_EQ(again.find(A)->hostName, "web1");
    EXPECT_EQ(again.find(A)->alive, 3000);
    again.forget(A);
    EXPECT_EQ(again.find(A), nullptr);

    // Lines that somebody spoilt are passed over, and the others count.
    write("state/x/known", "{\n[]\n{\"id\":1}\n" + read("state/x/known"));
    Known spoilt;
    spoilt.read(file);
    EXPECT_EQ(spoilt.hosts().size(), 2U);
    EXPECT_THROW(spoilt.read(path("state")), tool::Failure);
    write("flat", "");
    EXPECT_THROW(known.write(path("flat/known")), tool::Failure);
}

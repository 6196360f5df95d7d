// Who publishes under an id, and what happens where somebody else does. Time is the test's own: a step is told it.
#include "publish/Publisher.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "WithStore.h"
#include "mirror/Keys.h"
#include "system/System.h"

using fleet::HostValue;
using fleet::Identity;
using fleet::Publisher;
using fleet::Standing;
using fleet::StoredValue;

namespace {

// A machine that publishes, with what it notes kept here instead of in a folder.
class Machine {
public:
    Machine(fleet::Store& store, const fleet::Settings& settings, Identity identity)
        : publisher_(
              store, settings, std::move(identity),
              [this](const Identity& noted) {
                  if (notesNothing_) {
                      throw tool::systemFailure(ENOSPC, "host", "note it");
                  }
                  noted_.push_back(noted);
                  if (const auto happens = std::exchange(happens_, nullptr)) {
                      happens();
                  }
              },
              [this](const std::string& kind, const std::string& /*message*/) { told_.push_back(kind); }) {}

    void has(const std::string& text) {
        fleet::Exported exported;
        exported.registries = {{"/r", {tool::Json{{"schema", 1}, {"type", "variable"}, {"value", text}}}}};
        exported.content = fleet::contentOf({}, exported.registries);
        publisher_.offer(std::move(exported));
    }
    void notesNothing(bool truth) { notesNothing_ = truth; }
    // What happens between its next look and its next attempt.
    void onceNoted(std::function<void()> happens) { happens_ = std::move(happens); }
    // Until nothing is due at the time any more.
    void settle(Publisher::Clock::time_point now) {
        for (int steps = 0; publisher_.step(now) <= now; ++steps) {
            ASSERT_LT(steps, 20) << "there is always something to do";
        }
    }
    [[nodiscard]] std::size_t heard(const std::string& kind) const {
        return static_cast<std::size_t>(std::ranges::count(told_, kind));
    }
    [[nodiscard]] Publisher& publisher() { return publisher_; }
    [[nodiscard]] Standing standing() const { return publisher_.standing(); }
    [[nodiscard]] const std::vector<Identity>& noted() const { return noted_; }

private:
    bool notesNothing_ = false;
    std::function<void()> happens_;
    std::vector<Identity> noted_;
    std::vector<std::string> told_;
    Publisher publisher_;
};

}  // namespace

class PublisherTest : public WithStore {
protected:
    void SetUp() override {
        WithStore::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        servers_ = servers();
        settings_.access = plain(servers_->endpoints());
        settings_.prefix = "/t/";
        settings_.hostName = "one";
        settings_.leaseSeconds = 60;
        store_ = std::make_unique<fleet::Store>(settings_.access);
        id_.id = std::string(32, 'a');
        id_.nonce = std::string(32, 'b');
    }

    [[nodiscard]] std::unique_ptr<Machine> machine(const Identity& identity, bool alive = true) {
        auto made = std::make_unique<Machine>(*store_, settings_, identity);
        if (alive) {
            made->publisher().stayAlive();
        }
        return made;
    }
    std::optional<StoredValue> under(const std::string& key) {
        std::vector<StoredValue> found;
        (void)store_->get({key}, found);
        return found.empty() ? std::nullopt : std::optional(found.front());
    }
    std::optional<StoredValue> registries() { return under(fleet::registryKey("/t/", id_.id)); }
    std::optional<StoredValue> alive() { return under(fleet::aliveKey("/t/", id_.id)); }
    HostValue value() { return fleet::decode(registries()->value, id_.id); }
    std::string text() { return value().registries.at(0).records.at(0).value("value", "?"); }

    // What another writer puts there, as if it had looked before.
    void putAs(const std::string& writer, std::uint64_t sequence, const std::string& text,
               std::vector<std::string> tookOver = {}) {
        HostValue value;
        value.id = id_.id;
        value.writer = writer;
        value.sequence = sequence;
        value.hostName = "two";
        value.time = "2026-01-01T00:00:00Z";
        value.tookOver = std::move(tookOver);
        const auto there = registries();
        ASSERT_TRUE(store_
                        ->exchange(fleet::registryKey("/t/", id_.id), there ? there->modRevision : 0,
                                   fleet::encode(value, contentWith(text)))
                        .done);
    }
    static fleet::HostContent contentWith(const std::string& text) {
        return fleet::contentOf({}, {{"/r", {tool::Json{{"schema", 1}, {"type", "variable"}, {"value", text}}}}});
    }
    void putAlive(const fleet::AliveValue& value) {
        const auto there = alive();
        ASSERT_TRUE(store_
                        ->exchange(fleet::aliveKey("/t/", id_.id), there ? there->modRevision : 0, fleet::encode(value),
                                   store_->grant(60).id)
                        .done);
    }
    std::int64_t revision() { return store_->count("/t/").revision; }

    std::unique_ptr<EtcdServers> servers_;
    fleet::Settings settings_;
    std::unique_ptr<fleet::Store> store_;
    Identity id_;
    const Publisher::Clock::time_point start_ = Publisher::Clock::now();
    const std::string other_ = std::string(32, 'c') + ".boot";
};

TEST_F(PublisherTest, WritesWhatChangedAndNothingElse) {
    const auto one = machine(id_);
    one->has("x");
    one->settle(start_);
    ASSERT_EQ(one->standing(), Standing::PUBLISHED);
    EXPECT_EQ(text(), "x");
    EXPECT_EQ(value().sequence, 1U);
    EXPECT_EQ(value().writer, fleet::writerOf(id_));
    EXPECT_EQ(fleet::decodeAlive(alive()->value).writer, fleet::writerOf(id_));
    EXPECT_NE(alive()->lease, 0);

    // The same again, renewals and comparisons for an hour: not one more revision.
    const std::int64_t before = revision();
    for (int minutes = 1; minutes <= 60; ++minutes) {
        one->has("x");
        one->settle(start_ + std::chrono::minutes(minutes));
    }
    EXPECT_EQ(revision(), before);

    one->has("y");
    one->settle(start_ + std::chrono::hours(1));
    EXPECT_EQ(revision(), before + 1);
    EXPECT_EQ(text(), "y");
    EXPECT_EQ(value().sequence, 2U);

    // A stop takes the key of life away, and nothing else.
    one->publisher().leave();
    EXPECT_FALSE(alive());
    EXPECT_TRUE(registries());
}

TEST_F(PublisherTest, GoesOnAfterARestart) {
    const auto first = machine(id_);
    first->has("x");
    first->settle(start_);
    const std::int64_t before = registries()->modRevision;

    // Killed: its lease is there still, and the file has what it noted in front of its last attempt.
    Identity noted = first->noted().back();
    const auto second = machine(noted);
    second->has("x");
    second->settle(start_);
    EXPECT_EQ(second->standing(), Standing::PUBLISHED);
    EXPECT_EQ(registries()->modRevision, before);

    // Killed between its note and its call: the call was never made.
    noted = second->publisher().identity();
    noted.confirmed = noted.attempt;
    noted.attempt = {fleet::writerOf(noted), 2, contentWith("never").sha256};
    const auto third = machine(noted);
    third->has("z");
    third->settle(start_);
    EXPECT_EQ(third->standing(), Standing::PUBLISHED);
    EXPECT_EQ(text(), "z");
    EXPECT_EQ(value().sequence, 3U);

    // Or the call was made, and its answer never came.
    noted = third->publisher().identity();
    noted.confirmed = noted.attempt;
    noted.attempt = {fleet::writerOf(noted), 4, contentWith("w").sha256};
    putAs(fleet::writerOf(noted), 4, "w");
    const std::int64_t applied = registries()->modRevision;
    const auto fourth = machine(noted);
    fourth->has("w");
    fourth->settle(start_);
    EXPECT_EQ(fourth->standing(), Standing::PUBLISHED);
    EXPECT_EQ(registries()->modRevision, applied);

    // The machine itself was started anew: what it wrote before is its own, and written once under its new name.
    noted = fourth->publisher().identity();
    const std::string before_boot = noted.nonce + ".before";
    noted.attempt = {before_boot, 5, contentWith("w").sha256};
    putAs(before_boot, 5, "w");
    const auto fifth = machine(noted);
    fifth->has("w");
    fifth->settle(start_);
    EXPECT_EQ(fifth->standing(), Standing::PUBLISHED);
    EXPECT_EQ(value().writer, fleet::writerOf(noted));
    EXPECT_EQ(value().sequence, 6U);
}

// The store took a call long after its answer was waited for, behind the next look at it.
TEST_F(PublisherTest, TakesForItsOwnWhatCameLate) {
    const auto one = machine(id_);
    one->has("x");
    one->settle(start_);
    Identity noted = one->publisher().identity();
    const std::string writer = fleet::writerOf(noted);
    noted.attempt = {writer, 2, contentWith("early").sha256};
    const auto two = machine(noted);
    two->has("late");
    two->onceNoted([&] { putAs(writer, 2, "early"); });
    two->settle(start_);
    EXPECT_EQ(two->standing(), Standing::PUBLISHED);
    EXPECT_EQ(text(), "late");
    EXPECT_TRUE(two->publisher().identity().unanswered.empty());
}

TEST_F(PublisherTest, FindsAnotherWriterAndStops) {
    const auto one = machine(id_);
    one->has("x");
    one->settle(start_);
    const Identity noted = one->publisher().identity();
    // A stranger, a clone that went on from here, and one whose number is the same.
    for (const auto& [writer, sequence] :
         {std::pair(other_, 1UL), std::pair(fleet::writerOf(noted), 2UL), std::pair(noted.nonce + ".clone", 2UL),
          std::pair(noted.nonce + ".clone", 1UL)}) {
        SCOPED_TRACE(writer + " " + std::to_string(sequence));
        putAs(writer, sequence, "theirs");
        const auto two = machine(noted);
        two->has("mine");
        two->settle(start_);
        EXPECT_EQ(two->standing(), Standing::CLASH);
        EXPECT_EQ(text(), "theirs");
        EXPECT_EQ(two->heard("clash"), 1U);
        const fleet::AliveValue mark = fleet::decodeAlive(alive()->value);
        EXPECT_EQ(mark.clash, (std::vector{fleet::writerOf(noted), writer}));
        // It stays so, and nothing is written again and again.
        const std::int64_t before = revision();
        for (int minutes = 1; minutes <= 10; ++minutes) {
            two->has("mine" + std::to_string(minutes));
            two->settle(start_ + std::chrono::minutes(minutes));
        }
        EXPECT_EQ(revision(), before);
        EXPECT_EQ(two->standing(), Standing::CLASH);
        two->publisher().leave();
        ASSERT_FALSE(alive());
    }
}

TEST_F(PublisherTest, FindsAnotherOneAliveUnderItsId) {
    const auto one = machine(id_);
    one->has("x");
    one->settle(start_);
    // A clone that has the same of everything: nothing but the lease tells.
    const auto clone = machine(one->publisher().identity());
    clone->has("x");
    clone->settle(start_);
    EXPECT_EQ(clone->standing(), Standing::PUBLISHED);
    const auto later = start_ + std::chrono::seconds(30);
    one->settle(later);
    EXPECT_EQ(one->standing(), Standing::CLASH);
    clone->settle(later);
    EXPECT_EQ(clone->standing(), Standing::CLASH);
    EXPECT_FALSE(fleet::decodeAlive(alive()->value).clash.empty());

    // Whose mark it is ends: the other one goes on to mark it.
    one->publisher().leave();
    EXPECT_FALSE(alive());
    clone->settle(later + std::chrono::seconds(30));
    EXPECT_FALSE(fleet::decodeAlive(alive()->value).clash.empty());
}

TEST_F(PublisherTest, TakesAnIdOver) {
    const auto one = machine(id_);
    one->has("one");
    one->settle(start_);
    const Identity noted = one->publisher().identity();
    const auto clone = machine(noted);
    clone->has("clone");
    clone->settle(start_);
    const auto later = start_ + std::chrono::seconds(30);
    one->has("one");
    one->settle(later);
    clone->settle(later);
    ASSERT_EQ(one->standing(), Standing::CLASH);
    ASSERT_EQ(clone->standing(), Standing::CLASH);
    one->publisher().leave();

    // Once, and then as a service again.
    const auto once = machine(noted, false);
    once->publisher().takeOver();
    once->has("one");
    once->settle(later);
    EXPECT_EQ(once->standing(), Standing::PUBLISHED);
    EXPECT_EQ(text(), "one");
    EXPECT_EQ(value().tookOver, std::vector{id_.nonce});
    const auto again = machine(once->publisher().identity());
    again->has("one more");
    again->settle(later);
    EXPECT_EQ(again->standing(), Standing::PUBLISHED);
    EXPECT_EQ(text(), "one more");
    EXPECT_TRUE(fleet::decodeAlive(alive()->value).clash.empty());

    // The other one falls silent, and leaves the key of life alone, also when it is started anew.
    const auto latest = later + std::chrono::seconds(60);
    const std::int64_t before = revision();
    clone->settle(latest);
    EXPECT_EQ(clone->standing(), Standing::DISPLACED);
    const auto restarted = machine(clone->publisher().identity());
    restarted->has("clone");
    restarted->settle(latest);
    EXPECT_EQ(restarted->standing(), Standing::DISPLACED);
    EXPECT_EQ(revision(), before);
    again->settle(latest);
    EXPECT_EQ(again->standing(), Standing::PUBLISHED);

    // A stranger who marks a clash is none of those that were settled.
    again->publisher().leave();
    putAlive({other_, "2026-01-01T00:00:00Z", {other_, fleet::writerOf(again->publisher().identity())}});
    const auto last = machine(again->publisher().identity());
    last->has("one more");
    last->settle(latest);
    EXPECT_EQ(last->standing(), Standing::CLASH);
}

TEST_F(PublisherTest, PutsBackWhatTheStoreHasLost) {
    const auto one = machine(id_);
    one->has("x");
    one->settle(start_);
    one->has("y");
    one->settle(start_);

    // Everything: found when the two are held against each other, and the key of life at the next renewal.
    ASSERT_EQ(store_->remove({fleet::registryKey("/t/", id_.id), fleet::aliveKey("/t/", id_.id)}), 2);
    one->settle(start_ + std::chrono::seconds(30));
    EXPECT_TRUE(alive());
    one->settle(start_ + std::chrono::minutes(20));
    EXPECT_EQ(text(), "y");
    EXPECT_EQ(one->standing(), Standing::PUBLISHED);

    // Set back to an older value of its own.
    putAs(fleet::writerOf(id_), 1, "x");
    one->settle(start_ + std::chrono::minutes(40));
    EXPECT_EQ(text(), "y");

    // What cannot be read, and is not larger than what this machine knows of.
    const auto there = registries();
    ASSERT_TRUE(store_->exchange(there->key, there->modRevision, "{\"schema\":1").done);
    one->settle(start_ + std::chrono::minutes(60));
    EXPECT_EQ(text(), "y");
    EXPECT_EQ(one->heard("damaged-value"), 1U);

    // The lease ran out, as while the store was not reached.
    store_->revoke(alive()->lease);
    ASSERT_FALSE(alive());
    one->settle(start_ + std::chrono::minutes(61));
    EXPECT_TRUE(alive());
    EXPECT_EQ(one->standing(), Standing::PUBLISHED);
    EXPECT_EQ(one->heard("clash"), 0U);
}

TEST_F(PublisherTest, SaysWhatIsTooLarge) {
    const auto one = machine(id_);
    std::string noise;
    for (std::size_t i = 0; noise.size() < 2 * fleet::MOST_STORED; ++i) {
        noise += fleet::sha256(std::to_string(i));  // which does not pack
    }
    one->has(noise);
    one->settle(start_);
    EXPECT_EQ(one->standing(), Standing::PUBLISHED);
    EXPECT_TRUE(one->publisher().wasTooLarge());
    ASSERT_EQ(value().errors.size(), 1U);
    EXPECT_EQ(value().errors[0].kind, "too-large");
    EXPECT_TRUE(value().registries.empty());
    one->has("x");
    one->settle(start_);
    EXPECT_EQ(text(), "x");
    EXPECT_FALSE(one->publisher().wasTooLarge());
    // Small as stored, and more than a reader unpacks.
    one->has(std::string(fleet::MOST_UNPACKED, 'x'));
    one->settle(start_);
    EXPECT_EQ(value().errors.at(0).kind, "too-large");
}

TEST_F(PublisherTest, WritesNothingThatItCannotNote) {
    const auto one = machine(id_);
    one->notesNothing(true);
    one->has("x");
    const auto next = one->publisher().step(start_);
    EXPECT_GT(next, start_);
    EXPECT_EQ(one->standing(), Standing::TROUBLED);
    EXPECT_FALSE(registries());
    one->notesNothing(false);
    one->settle(start_ + std::chrono::seconds(31));
    EXPECT_EQ(one->standing(), Standing::PUBLISHED);
    EXPECT_EQ(text(), "x");
}

TEST_F(PublisherTest, OutlivesTheStore) {
    const auto one = machine(id_);
    one->has("x");
    one->settle(start_);
    servers_->kill();
    one->has("y");
    auto now = start_;
    for (int attempts = 0; attempts < 5; ++attempts) {
        const auto next = one->publisher().step(now);
        EXPECT_GT(next, now);
        EXPECT_LE(next, now + std::chrono::seconds(31));
        now = next;
    }
    EXPECT_EQ(one->standing(), Standing::TROUBLED);
    EXPECT_EQ(one->heard("unreached"), 1U);
    servers_->start();
    one->settle(now + std::chrono::seconds(31));
    EXPECT_EQ(one->standing(), Standing::PUBLISHED);
    EXPECT_EQ(one->heard("reached"), 1U);
    EXPECT_EQ(text(), "y");
    EXPECT_GE(value().sequence, 2U);  // an attempt that was not answered has a number of its own
}

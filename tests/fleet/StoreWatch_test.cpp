#include <string>

#include "WithStore.h"

namespace {

using fleet::Store;
using fleet::StoreHead;
using fleet::StoreWatch;
using fleet::Trouble;

class StoreWatches : public WithStore {
protected:
    // No beat comes by itself while a test runs.
    static constexpr int NEVER = 10 * 60 * 1000;
    static constexpr int OFTEN = 100;

    // Until as many events have come.
    static std::vector<StoreWatch::News> until(StoreWatch& watch, std::size_t events) {
        std::vector<StoreWatch::News> all;
        std::size_t count = 0;
        for (const auto limit = Clock::now() + LONG; count < events && Clock::now() < limit;) {
            if (auto news = watch.next(1000)) {
                count += news->events.size();
                all.push_back(std::move(*news));
            }
        }
        EXPECT_EQ(count, events);
        return all;
    }
    // What ends the watch.
    static void expectEnd(Trouble expected, StoreWatch& watch, const std::string& words = "") {
        expectTrouble(
            expected,
            [&] {
                for (const auto limit = Clock::now() + LONG; Clock::now() < limit;) {
                    (void)watch.next(1000);
                }
            },
            words);
        // And it stays at its end.
        EXPECT_TRUE(failure([&] { (void)watch.next(0); }));
    }
};

TEST_F(StoreWatches, TellWhatHappensInItsOrder) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    const auto first = store.exchange("/w/a", 0, "1");
    const StoreHead seen = store.count("/w/");
    StoreWatch watch(store, "/w/", seen.revision + 1, seen, {NEVER});
    EXPECT_FALSE(watch.next(0));
    const auto second = store.exchange("/w/a", first.revision, "2");
    (void)store.exchange("/x", 0, "elsewhere");
    (void)store.remove({"/w/a"});
    const auto lease = store.grant(60);
    (void)store.exchange("/w/b", 0, "3", lease.id);
    store.revoke(lease.id);

    std::vector<StoreWatch::Event> events;
    std::int64_t told = seen.revision;
    for (const StoreWatch::News& news : until(watch, 4)) {
        EXPECT_GT(news.revision, told);
        told = news.revision;
        events.insert(events.end(), news.events.begin(), news.events.end());
        EXPECT_EQ(events.back().now.modRevision, told);
    }
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(events[0].now.value, "2");
    EXPECT_EQ(events[0].now.modRevision, second.revision);
    EXPECT_FALSE(events[0].deleted);
    EXPECT_TRUE(events[1].deleted);
    EXPECT_EQ(events[1].now.key, "/w/a");
    EXPECT_EQ(events[2].now.lease, lease.id);
    EXPECT_TRUE(events[3].deleted);
    // From what was told on, nothing is told twice.
    StoreWatch on(store, "/w/", events[2].now.modRevision + 1, seen, {NEVER});
    EXPECT_EQ(until(on, 1).at(0).events.at(0).now.key, "/w/b");
}

// In parts, as no answer may be larger; each revision is told as a whole.
TEST_F(StoreWatches, LargeChangesComeInParts) {
    const auto etcd = servers();
    fleet::StoreAccess access = plain(etcd->endpoints());
    access.answerBytes = 5 << 20;
    Store store(access);
    const StoreHead seen = store.count("/w/");
    std::vector<std::vector<std::string>> removed;
    // Two removals are larger than a part, so one of them is divided.
    for (int half = 0; half < 2; ++half) {
        std::vector<std::string> keys;
        for (int i = 0; i < 30; ++i) {
            keys.push_back("/w/" + std::to_string(half) + std::to_string(i) + std::string(45 << 10, 'k'));
            ASSERT_TRUE(store.exchange(keys.back(), 0, std::string(150 << 10, 'x')).done);
        }
        removed.push_back(keys);
    }
    for (const std::vector<std::string>& keys : removed) {
        ASSERT_EQ(store.remove(keys), 30);
    }
    StoreWatch watch(store, "/w/", seen.revision + 1, seen, {NEVER});
    std::int64_t told = seen.revision;
    for (const StoreWatch::News& news : until(watch, 120)) {
        EXPECT_GT(news.events.front().now.modRevision, told);
        told = news.events.back().now.modRevision;
        EXPECT_EQ(news.revision, told);
    }
    EXPECT_EQ(told, store.count("/w/").revision);
}

TEST_F(StoreWatches, BeatsTellThatTheStoreIsThere) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    const StoreHead seen = store.count("/w/");
    StoreWatch watch(store, "/w/", seen.revision + 1, seen, {OFTEN});
    int beats = 0;
    EXPECT_TRUE(becomes([&] {
        const auto news = watch.next(1000);
        beats += news && news->events.empty() && news->revision == seen.revision ? 1 : 0;
        return beats == 3;
    }));
    etcd->pause();
    expectEnd(Trouble::UNREACHED, watch);
    // And neither is a new one waited for.
    const auto begin = Clock::now();
    expectTrouble(Trouble::UNREACHED, [&] { StoreWatch(store, "/w/", seen.revision + 1, seen); });
    EXPECT_LT(Clock::now() - begin, LONG);
    etcd->resume();
}

TEST_F(StoreWatches, EndWithTheirConnection) {
    const auto etcd = servers();
    Store store(plain({etcd->endpoint(), "127.0.0.1:1"}));
    const StoreHead seen = store.count("/w/");
    StoreWatch watch(store, "/w/", seen.revision + 1, seen, {NEVER});
    (void)store.exchange("/w/a", 0, "1");
    EXPECT_EQ(until(watch, 1).at(0).events.size(), 1U);
    etcd->kill();
    expectEnd(Trouble::UNREACHED, watch);
    expectTrouble(Trouble::UNREACHED, [&] { StoreWatch(store, "/w/", seen.revision + 1, seen); });
    expectTrouble(Trouble::UNREACHED, [&] { (void)store.count("/"); });
    EXPECT_EQ(store.endpoint(), "127.0.0.1:1");
}

TEST_F(StoreWatches, SayThatTheirBeginningIsGone) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    const StoreHead seen = store.count("/w/");
    auto last = store.exchange("/w/a", 0, "1");
    for (int i = 0; i < 5; ++i) {
        last = store.exchange("/w/a", last.revision, "2");
    }
    etcd->must("compact " + std::to_string(last.revision));
    expectTrouble(
        Trouble::COMPACTED,
        [&] {
            StoreWatch watch(store, "/w/", seen.revision + 1, seen, {NEVER});
            (void)watch.next(60000);
        },
        std::to_string(last.revision));
    StoreWatch watch(store, "/w/", last.revision, seen, {NEVER});
    EXPECT_EQ(until(watch, 1).at(0).revision, last.revision);
}

// The same cluster by its id, and its revisions begin anew: a watch from the old ones would be silent until they come
// again.
TEST_F(StoreWatches, SayThatTheStoreBeganAnew) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    std::int64_t revision = 0;
    for (int i = 0; i < 10; ++i) {
        revision = store.exchange("/w/a", revision, "x").revision;
    }
    const StoreHead seen = store.count("/w/");
    etcd->kill();
    etcd->wipe();
    etcd->start();
    StoreHead now;
    store.patiently(60, [&] { now = store.count("/w/"); });
    ASSERT_EQ(now.cluster, seen.cluster);
    ASSERT_LT(now.revision, seen.revision);
    expectTrouble(Trouble::RESET, [&] {
        StoreWatch watch(store, "/w/", seen.revision + 1, seen, {NEVER});
        (void)watch.next(5000);
    });
    // Nor is another one taken for it, be it as far.
    const auto other = servers({.flags = {"--initial-cluster-token", "other"}}, "others");
    Store others(plain(other->endpoints()));
    while (others.count("/").revision <= seen.revision) {
        (void)others.remove({"/a"});
        (void)others.exchange("/a", 0, "x");
    }
    expectTrouble(Trouble::RESET, [&] {
        StoreWatch watch(others, "/w/", seen.revision + 1, seen, {NEVER});
        (void)watch.next(5000);
    });
}

// A member that has lost the others would keep a watch open and say nothing.
TEST_F(StoreWatches, LeaveAMemberThatIsCutOff) {
    const auto etcd = servers({.members = 3});
    Store store(plain(etcd->endpoints()));
    const StoreHead seen = store.count("/w/");
    StoreWatch watch(store, "/w/", seen.revision + 1, seen, {NEVER});
    etcd->pause(1);
    etcd->pause(2);
    expectEnd(Trouble::UNREACHED, watch, "no leader");
    expectTrouble(Trouble::UNREACHED, [&] { (void)store.count("/"); });
    etcd->resume(1);
    // The next one of the two that are left answers, after their election.
    StoreHead head;
    EXPECT_FALSE(failure([&] { store.patiently(60, [&] { head = store.count("/"); }); }));
    EXPECT_EQ(head.cluster, seen.cluster);
    etcd->resume(2);
}

}  // namespace

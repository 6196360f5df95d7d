#include <string>

#include "WithStore.h"

namespace {

using fleet::Store;
using fleet::StoredValue;
using fleet::StoreFailure;
using fleet::StoreHead;
using fleet::Trouble;

class StoreCalls : public WithStore {
protected:
    static std::string key(int number) {
        const std::string digits = std::to_string(number);
        return "/k/" + std::string(6 - digits.size(), '0') + digits;
    }
    static void fill(Store& store, int count, std::size_t bytes) {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(store.exchange(key(i), 0, std::string(bytes, 'x')).done);
        }
    }
};

TEST_F(StoreCalls, ChangesHangOnTheRevision) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    const std::string value("\0\xff binary", 9);
    const Store::Exchange made = store.exchange("/a", 0, value);
    ASSERT_TRUE(made.done);
    EXPECT_FALSE(store.exchange("/b", 7, "x").done);

    const Store::Exchange again = store.exchange("/a", 0, "other");
    EXPECT_FALSE(again.done);
    ASSERT_TRUE(again.found);
    EXPECT_EQ(again.found->value, value);
    EXPECT_EQ(again.found->modRevision, made.revision);

    const Store::Exchange next = store.exchange("/a", made.revision, "next");
    EXPECT_TRUE(next.done);
    std::vector<StoredValue> found;
    const StoreHead head = store.get({"/nothing", "/a"}, found);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].value, "next");
    EXPECT_EQ(found[0].createRevision, made.revision);
    EXPECT_EQ(found[0].modRevision, next.revision);
    EXPECT_EQ(head.count, 1);
    EXPECT_EQ(head.revision, next.revision);
    EXPECT_NE(head.cluster, 0U);

    EXPECT_EQ(store.remove({"/a", "/nothing"}), 1);
    const Store::Exchange gone = store.exchange("/a", next.revision, "late");
    EXPECT_FALSE(gone.done);
    EXPECT_FALSE(gone.found);
}

TEST_F(StoreCalls, LeasesCarryTheirKeysAway) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    const Store::Lease lease = store.grant(60);
    EXPECT_EQ(lease.seconds, 60);
    ASSERT_TRUE(store.exchange("/alive", 0, "", lease.id).done);
    EXPECT_EQ(listed(store, "/alive").at(0).lease, lease.id);
    EXPECT_EQ(store.renew(lease.id), 60);

    store.revoke(lease.id);
    EXPECT_EQ(store.count("/").count, 0);
    EXPECT_EQ(store.renew(lease.id), 0);
    EXPECT_FALSE(failure([&] { store.revoke(lease.id); }));
    expectTrouble(
        Trouble::REFUSED, [&] { (void)store.exchange("/alive", 0, "", lease.id); }, "lease not found");
}

// Several pages, and between the first and the second everything behind changes.
TEST_F(StoreCalls, AListingIsOfOneRevision) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    Store other(plain(etcd->endpoints()));
    fill(store, 150, 10);
    ASSERT_TRUE(store.exchange("/j", 0, "before").done);
    ASSERT_TRUE(store.exchange("/k\xff", 0, "behind").done);
    const StoreHead before = store.count("/k/");
    EXPECT_EQ(before.count, 150);

    std::vector<StoredValue> all;
    const StoreHead head = store.list("/k/", [&](StoredValue&& one) {
        if (all.empty()) {
            EXPECT_EQ(other.remove({key(100), key(149)}), 2);
            EXPECT_FALSE(other.exchange(key(101), 0, "changed").done);
            EXPECT_TRUE(other.exchange("/k/zzz", 0, "new").done);
        }
        all.push_back(std::move(one));
    });
    EXPECT_EQ(head.revision, before.revision);
    EXPECT_EQ(head.count, 150);
    ASSERT_EQ(all.size(), 150U);
    for (int i = 0; i < 150; ++i) {
        EXPECT_EQ(all[static_cast<std::size_t>(i)].key, key(i));
    }
    EXPECT_EQ(listed(store, "/k/").size(), 149U);
    EXPECT_EQ(listed(store, "/k\xff").size(), 1U);
    EXPECT_EQ(listed(store, "").size(), 151U);
    EXPECT_TRUE(listed(store, "/l").empty());
}

// More than the store takes at once, and more than is taken of an answer.
TEST_F(StoreCalls, ManyKeysAreAskedForInParts) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    fill(store, 300, 1000);
    fleet::StoreAccess narrow = plain(etcd->endpoints());
    narrow.answerBytes = 20000;
    Store little(narrow);
    EXPECT_EQ(listed(little, "/k/").size(), 300U);

    std::vector<std::string> keys;
    for (int i = 0; i < 300; ++i) {
        keys.push_back(key(i));
    }
    std::vector<StoredValue> found;
    EXPECT_EQ(little.get(keys, found).count, 300);
    ASSERT_EQ(found.size(), 300U);
    EXPECT_EQ(found[299].key, key(299));
    EXPECT_EQ(store.remove(keys), 300);

    ASSERT_TRUE(store.exchange("/k/large", 0, std::string(30000, 'x')).done);
    expectTrouble(Trouble::TOO_LARGE, [&] { (void)listed(little, "/k/"); });
    expectTrouble(Trouble::TOO_LARGE, [&] { (void)little.get({"/k/large"}, found); });
}

TEST_F(StoreCalls, WhatIsTooLargeIsNotTakenForADeadStore) {
    const auto etcd = servers();
    Store store(plain({etcd->endpoint(), "127.0.0.1:1"}));
    ASSERT_TRUE(store.exchange("/a", 0, std::string(1 << 20, 'x')).done);
    for (const std::size_t bytes : {std::size_t{1700} << 10, std::size_t{5} << 20, std::size_t{40} << 20}) {
        const auto found = failure([&] { (void)store.exchange("/b", 0, std::string(bytes, 'x')); });
        ASSERT_TRUE(found);
        EXPECT_EQ(static_cast<int>(found->trouble), static_cast<int>(Trouble::TOO_LARGE)) << bytes << found->message;
        EXPECT_FALSE(found->mayBeDone);
        EXPECT_EQ(store.count("/").count, 1);
        EXPECT_EQ(store.endpoint(), etcd->endpoint());
    }
}

TEST_F(StoreCalls, AFullStoreIsReadAndItsLeasesAreRenewed) {
    const auto etcd = servers({.flags = {"--quota-backend-bytes", "1000000"}});
    Store store(plain(etcd->endpoints()));
    const Store::Lease lease = store.grant(60);
    std::optional<StoreFailure> full;
    int next = 0;
    EXPECT_TRUE(becomes([&] {
        full = failure([&] { (void)store.exchange(key(next++), 0, std::string(100000, 'x')); });
        return full.has_value();
    }));
    ASSERT_TRUE(full);
    EXPECT_EQ(static_cast<int>(full->trouble), static_cast<int>(Trouble::FULL)) << full->message;
    expectTrouble(Trouble::FULL, [&] { (void)store.grant(60); });
    EXPECT_GT(store.count("/").count, 0);
    EXPECT_EQ(store.renew(lease.id), 60);
    EXPECT_EQ(store.remove({key(0)}), 1);
}

TEST_F(StoreCalls, EachEndpointHasItsTurn) {
    const auto etcd = servers();
    Store store(plain({"127.0.0.1:1", etcd->endpoint(), "127.0.0.1:2"}));
    const auto found = failure([&] { (void)store.exchange("/a", 0, "x"); });
    ASSERT_TRUE(found);
    EXPECT_EQ(static_cast<int>(found->trouble), static_cast<int>(Trouble::UNREACHED));
    EXPECT_EQ(found->endpoint, "127.0.0.1:1");
    EXPECT_NE(found->message.find("refused"), std::string::npos) << found->message;
    EXPECT_FALSE(found->mayBeDone);
    EXPECT_TRUE(store.exchange("/a", 0, "x").done);
    EXPECT_EQ(store.endpoint(), etcd->endpoint());

    etcd->kill();
    EXPECT_TRUE(failure([&] { (void)store.count("/"); }));
    std::vector<std::string> tried;
    expectTrouble(Trouble::UNREACHED, [&] {
        store.patiently(0, [&] {
            const auto failed = failure([&] { (void)store.count("/"); });
            tried.push_back(store.endpoint());
            throw StoreFailure(failed.value());
        });
    });
    EXPECT_EQ(tried, (std::vector<std::string>{"127.0.0.1:2", "127.0.0.1:1", etcd->endpoint()}));
    StoreHead head;
    std::thread patient([&] { EXPECT_FALSE(failure([&] { store.patiently(60, [&] { head = store.count("/"); }); })); });
    etcd->start();
    patient.join();
    EXPECT_EQ(head.count, 1);
    // What the store refuses is not tried again.
    int times = 0;
    expectTrouble(Trouble::REFUSED, [&] {
        store.patiently(60, [&] {
            ++times;
            (void)store.exchange("/b", 0, "x", 4711);
        });
    });
    EXPECT_EQ(times, 1);
}

TEST_F(StoreCalls, AChangeThatWasNotAnsweredMayBeMade) {
    const auto etcd = servers();
    Store store(plain(etcd->endpoints()));
    EXPECT_EQ(store.count("/").count, 0);
    etcd->pause();
    const auto begin = Clock::now();
    const auto found = failure([&] { (void)store.exchange("/a", 0, "x"); });
    ASSERT_TRUE(found);
    EXPECT_EQ(static_cast<int>(found->trouble), static_cast<int>(Trouble::UNREACHED)) << found->message;
    EXPECT_TRUE(found->mayBeDone);
    // Nothing is sent to one that stands still from the beginning.
    const auto next = failure([&] { (void)store.exchange("/b", 0, "x"); });
    ASSERT_TRUE(next);
    EXPECT_FALSE(next->mayBeDone);
    EXPECT_LT(Clock::now() - begin, LONG);
    etcd->resume();
    store.patiently(60, [&] { EXPECT_EQ(store.count("/b").count, 0); });
}

TEST_F(StoreCalls, AttemptsLeaveNothingBehind) {
    const auto etcd = servers();
    const auto threads = [] {
        const std::filesystem::directory_iterator all("/proc/self/task");
        return std::distance(begin(all), end(all));
    };
    Store store(plain(etcd->endpoints()));
    Store dead(plain({"127.0.0.1:1"}));
    const auto tryAll = [&](int times) {
        for (int i = 0; i < times; ++i) {
            (void)store.count("/");
            store.reconnect();
            EXPECT_TRUE(failure([&] { (void)dead.count("/"); }));
        }
    };
    tryAll(100);
    const long descriptors = openDescriptors();
    const auto before = threads();
    tryAll(500);
    EXPECT_LE(openDescriptors(), descriptors + 10);
    EXPECT_LE(threads(), before + 10);
    // Of one that stands still, each keeps its own for a while.
    etcd->pause();
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(failure([&] { (void)store.count("/"); }));
    }
    EXPECT_LE(openDescriptors(), descriptors + 2);
}

TEST(Jitter, IsWithinWhatIsAllowed) {
    double most = 0;
    for (int i = 0; i < 1000; ++i) {
        EXPECT_LE(fleet::jitter(1), 0.2);
        EXPECT_LE(fleet::jitter(3), 0.8);
        EXPECT_LE(fleet::jitter(4000000000U), 30);
        EXPECT_GE(fleet::jitter(0), 0);
        most = std::max(most, fleet::jitter(30));
    }
    EXPECT_GT(most, 15);
}

}  // namespace

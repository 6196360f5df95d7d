// Finding records, at once and in a scan.
#include <functional>

#include "support/BinRegistry.h"

namespace {

class BinLookup : public BinRegistry {
protected:
    BinItem key_ = binItem("b", 0);
    BinItem result_ = MARK;

    static inline const BinItem MARK = binItem("untouched", 77, "mark");

    [[nodiscard]] bool untouched() const { return std::memcmp(&result_, &MARK, sizeof MARK) == 0; }
    [[nodiscard]] bool zeroed() const {
        const BinItem nothing = {};
        return std::memcmp(&result_, &nothing, sizeof nothing) == 0;
    }
    unsigned int get(BinItems& items, unsigned long mask = ITEM_NAME) {
        result_ = MARK;
        return items.Get(mask, &key_, &result_);
    }
    unsigned int next(BinItems& items, unsigned long mask) {
        result_ = MARK;
        return items.GetNext(mask, &key_, &result_);
    }
};

TEST_F(BinLookup, FirstMatchInFileOrderOrNothing) {
    eachWay([&](unsigned long features, BinItems::Slots slots) {
        const bool packed = (features & PACKED) != 0;
        BinItems items(file(), features, slots);
        const long descriptors = openDescriptors();
        remove("items.reg");
        EXPECT_EQ(get(items), REG_MISSING);
        EXPECT_TRUE(untouched());
        contents("");
        EXPECT_EQ(get(items), REG_NOT_FOUND);
        EXPECT_TRUE(zeroed());
        contents(binFile({a_, binItem("b", 2, "first"), binItem("b", 3)}, packed));
        ASSERT_EQ(get(items), 0U);
        EXPECT_STREQ(result_.text, "first");
        key_.value = 4;
        EXPECT_EQ(get(items, ITEM_NAME | ITEM_VALUE), REG_NOT_FOUND);
        EXPECT_TRUE(zeroed());
        expectAtRest(descriptors);
    });
}

TEST_F(BinLookup, WhatCannotBeReadLeavesNoOldRecordBehind) {
    const std::string good = binFile({a_, b_});
    struct Case {
        unsigned int code;
        bool zeroed;  // the result; else untouched
        std::string bytes;
        std::function<void(BinItems&)> prepare;
    };
    const std::vector<Case> cases = {
        {REG_UNPACK_FAILED, true, good, [](BinItems& items) { items.knobs().unpackResult = 9; }},
        {REG_NO_MATCH_RECORD, false, good, [](BinItems& items) { items.matchRecord = nullptr; }},
        {REG_READ_FAILED, false, binFile({a_}) + "\3\1", [](BinItems&) {}},
        {REG_READ_FAILED, false, good.substr(0, good.size() - 1), [](BinItems&) {}},
    };
    for (const auto slots : {BinItems::Slots::Given, BinItems::Slots::All}) {
        for (const Case& tried : cases) {
            SCOPED_TRACE(::testing::Message() << std::hex << tried.code << ", slots " << static_cast<int>(slots));
            BinItems::knobs() = {};
            contents(tried.bytes);
            BinItems items(file(), PACKED, slots);
            tried.prepare(items);
            EXPECT_EQ(get(items), tried.code);
            EXPECT_TRUE(tried.zeroed ? zeroed() : untouched());
            ASSERT_EQ(items.OpenScan(), 0U);
            EXPECT_EQ(next(items, ITEM_NAME), tried.code);
            EXPECT_TRUE(tried.zeroed ? zeroed() : untouched());
        }
    }
}

TEST_F(BinLookup, ARecordBelowEightBytesIsFoundButNotHandedOut) {
    BinItems::knobs().maxSize = 7;
    contents(binFrame("abcdefg"));
    BinItems items(file());
    items.matchRecord = [](unsigned long, void*, void*) { return 1U; };
    EXPECT_EQ(get(items), REG_RECORD_SIZE_REFUSED);
    EXPECT_TRUE(untouched());
    items.matchRecord = [](unsigned long, void*, void*) { return 2U; };  // only 1 is a match
    EXPECT_EQ(get(items), REG_NOT_FOUND);
}

TEST_F(BinLookup, AScanGivesEachMatchOnceAndThenItsEnd) {
    const std::vector<BinItem> all = {binItem("b", 1), binItem("a", 2), binItem("b", 3), binItem("c", 4)};
    eachWay([&](unsigned long features, BinItems::Slots slots) {
        contents(binFile(all, (features & PACKED) != 0));
        BinItems items(file(), features, slots);
        EXPECT_EQ(next(items, 0), REG_SCAN_NOT_OPEN);
        ASSERT_EQ(items.OpenScan(), 0U);
        for (const int round : {1, 2}) {
            SCOPED_TRACE(round);
            ASSERT_EQ(next(items, ITEM_NAME), 0U);
            EXPECT_EQ(result_.value, 1);
            ASSERT_EQ(next(items, ITEM_NAME), 0U);
            EXPECT_EQ(result_.value, 3);
            EXPECT_EQ(next(items, ITEM_NAME), REG_NO_MORE_RECORDS);
            EXPECT_TRUE(zeroed());
            EXPECT_EQ(next(items, 0), REG_NO_MORE_RECORDS);
            EXPECT_TRUE(untouched());
            EXPECT_EQ(items.Rewind(), 0U);
        }
        EXPECT_EQ(items.CloseScan(), 0U);
    });
}

}  // namespace

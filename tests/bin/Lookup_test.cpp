// Finding records, at once and in a scan.
#include <genreg/GenRegBinVarVal.h>

#include <fstream>
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

TEST_F(BinLookup, TheLargestRecordIsHandedOut) {
    BinItems::knobs().maxSize = REG_MAX_RECORD_SIZE;
    std::string record(REG_MAX_RECORD_SIZE, '\0');
    std::memcpy(record.data(), &b_, sizeof b_);
    record.back() = 'z';
    contents(binFrame(record));
    BinItems items(file());
    std::string found(record.size(), '\0');
    EXPECT_EQ(items.Get(ITEM_NAME, &key_, found.data()), 0U);
    EXPECT_TRUE(found == record);
}

TEST(BinVarVal, ANameMayFillItsMember) {
    GenRegBinVarValRecord stored = {
        {'1', '2', '3', '4', '5', '6', '7', '8', '9', '0', '1', '2', '3', '4', '5', '6'}, 1, ""};
    GenRegBinVarValRecord key = stored;
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(BINVARVAL_MATCH_VARIABLE, &stored, &key), 1U);
    for (char& letter : key.variable) {
        letter ^= 1;
        EXPECT_EQ(GenRegBinVarVal::MatchRecord(BINVARVAL_MATCH_VARIABLE, &stored, &key), 0U);
        EXPECT_EQ(GenRegBinVarVal::MatchRecord(BINVARVAL_MATCH_VALUE, &stored, &key), 1U);
        letter ^= 1;
    }
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
            // A look-up inside the scan answers all the same, and leaves the end the end.
            ASSERT_EQ(items.setFeature(REG_FEATURE_GET_IN_SCAN), 0U);
            EXPECT_EQ(get(items), 0U);
            EXPECT_EQ(result_.value, 1);
            EXPECT_EQ(get(items, ITEM_NAME | ITEM_VALUE), REG_NOT_FOUND);
            EXPECT_TRUE(zeroed());
            EXPECT_EQ(next(items, ITEM_NAME), REG_NO_MORE_RECORDS);
            EXPECT_TRUE(untouched());
            EXPECT_EQ(items.Rewind(), 0U);
        }
        EXPECT_EQ(items.CloseScan(), 0U);
    });
}

TEST_F(BinLookup, WithoutMaskAndKeyAScanListsWhateverTheSchemaSaysOfNull) {
    eachWay([&](unsigned long features, BinItems::Slots slots) {
        contents(binFile({a_, b_, c_}, (features & PACKED) != 0));
        BinItems items(file(), features, slots);
        items.validateRecord = [](unsigned long, void* record) { return record == nullptr ? 1U : 0U; };
        ASSERT_EQ(items.OpenScan(), 0U);
        for (const BinItem& expected : {a_, b_, c_}) {
            EXPECT_EQ(items.GetNext(0, nullptr, &result_), 0U);
            EXPECT_EQ(result_.value, expected.value);
        }
        EXPECT_EQ(items.GetNext(0, nullptr, &result_), REG_NO_MORE_RECORDS);
        EXPECT_EQ(items.Rewind(), 0U);
        EXPECT_EQ(items.GetNext(ITEM_NAME, nullptr, &result_), REG_RECORD_REFUSED);
    });
}

TEST_F(BinLookup, AFrameIsReadWhereAClientHasMovedTheStream) {
    const std::vector<BinItem> all = {a_, b_, c_, d_};
    const auto frame = static_cast<long>(binFile({a_}, false).size());
    contents(binFile(all, false));
    for (std::size_t moved = 0; moved < all.size(); ++moved) {
        SCOPED_TRACE(moved);
        BinItems items(file());
        ASSERT_EQ(items.OpenScan(), 0U);
        EXPECT_EQ(next(items, 0), 0U);
        ASSERT_EQ(std::fseek(items.regFp, static_cast<long>(moved) * frame, SEEK_SET), 0);
        BinItem read = {};
        void* buffer = &read;
        unsigned long length = 0;
        ASSERT_EQ(items.ReadRecord(items.regFp, &buffer, &length), 0U);
        EXPECT_EQ(buffer, static_cast<void*>(&read));
        EXPECT_EQ(read.value, all[moved].value);
        EXPECT_EQ(next(items, 0), moved + 1 < all.size() ? 0U : static_cast<unsigned int>(REG_NO_MORE_RECORDS));
        EXPECT_EQ(result_.value, moved + 1 < all.size() ? all[moved + 1].value : 0);
    }
}

TEST_F(BinLookup, RewindSeesWhatAnotherProgramHasAppended) {
    contents(binFile({a_}, false));
    BinItems items(file());
    ASSERT_EQ(items.OpenScan(), 0U);
    EXPECT_EQ(next(items, 0), 0U);
    EXPECT_EQ(next(items, 0), REG_NO_MORE_RECORDS);
    std::ofstream(file(), std::ios::app) << binFile({b_}, false);
    EXPECT_EQ(items.Rewind(), 0U);
    EXPECT_EQ(next(items, 0), 0U);
    EXPECT_EQ(next(items, 0), 0U);
    EXPECT_EQ(result_.value, 2);
}

TEST_F(BinLookup, OpeningOnceMoreAbandonsWhatWasLeftOpen) {
    const std::string before = binFile({a_});
    for (const unsigned long op : {REG_OP_READ, REG_OP_CHANGE, REG_OP_ADD}) {
        contents(before);
        const long descriptors = openDescriptors();
        {
            BinItems items(file(), DUPLICATES);
            ASSERT_EQ(items.OpenReg(op), 0U);
            EXPECT_GE(std::fputs("junk", op == REG_OP_CHANGE ? items.tmpFp : items.regFp), op == REG_OP_READ ? EOF : 0);
            ASSERT_EQ(items.OpenReg(REG_OP_READ), 0U);
            EXPECT_EQ(items.tmpFp, nullptr);
            EXPECT_EQ(items.CloseReg(REG_OP_READ), 0U);
            EXPECT_EQ(openDescriptors(), descriptors);
        }
        EXPECT_EQ(contents(), before);
    }
}

}  // namespace

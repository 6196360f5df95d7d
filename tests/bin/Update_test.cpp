// Adding, changing and deleting records.
#include <functional>

#include "support/BinRegistry.h"

namespace {

class BinUpdates : public BinRegistry {
protected:
    const BinItem changed_ = binItem("b", 9, "changed");

    // The operations on copies of the records, which must come back as they went in.
    static unsigned int run(BinItems& items, unsigned long operation, unsigned long mask, const BinItem& key,
                            const BinItem& record) {
        BinItem keyGiven = key;
        BinItem recordGiven = record;
        const unsigned int rc = operation == REG_OP_ADD      ? items.Add(mask, &recordGiven)
                                : operation == REG_OP_CHANGE ? items.Change(mask, &keyGiven, &recordGiven)
                                                             : items.Delete(mask, &keyGiven);
        EXPECT_EQ(std::memcmp(&keyGiven, &key, sizeof key), 0);
        EXPECT_EQ(std::memcmp(&recordGiven, &record, sizeof record), 0);
        return rc;
    }
    // An add of d, a change or a delete of b.
    unsigned int run(BinItems& items, unsigned long operation) const {
        return run(items, operation, ITEM_NAME, b_, operation == REG_OP_ADD ? d_ : changed_);
    }
};

TEST_F(BinUpdates, FailuresSayWhatIsWrongAndLeaveTheFileUnlocked) {
    struct Case {
        unsigned int code;
        bool slot;    // a missing one, of which an add tells in its own words
        bool writes;  // only writing needs it
        std::function<void(BinItems&)> prepare;
    };
    const std::vector<Case> cases = {
        {REG_NO_VALIDATE_RECORD, true, false, [](BinItems& items) { items.validateRecord = nullptr; }},
        {REG_NO_GET_MAX_RECORD_SIZE, true, false, [](BinItems& items) { items.getMaxRecordSize = nullptr; }},
        {REG_NO_PACK_RECORD, true, true, [](BinItems& items) { items.packRecord = nullptr; }},
        {REG_NO_UNPACK_RECORD, true, false, [](BinItems& items) { items.unpackRecord = nullptr; }},
        {REG_NO_MATCH_RECORD, false, false, [](BinItems& items) { items.matchRecord = nullptr; }},
        {REG_COPY_WRITE_FAILED, false, true, [](BinItems& items) { items.getPackedRecordSize = nullptr; }},
        {REG_RECORD_REFUSED, false, false, [](BinItems& items) { items.knobs().validateResult = 9; }},
        {REG_RECORD_TOO_SMALL, false, false, [](BinItems& items) { items.knobs().maxSize = 2; }},
        {REG_RECORD_SIZE_REFUSED, false, false,
         [](BinItems& items) { items.knobs().maxSize = REG_MAX_RECORD_SIZE + 1; }},
        {REG_UNPACK_FAILED, false, false, [](BinItems& items) { items.knobs().unpackResult = 9; }},
    };
    const std::string before = binFile({a_, b_, c_});
    for (const Case& tried : cases) {
        for (const unsigned long operation : {REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE}) {
            for (const unsigned long features : {PACKED, PACKED | DEFERRED}) {
                SCOPED_TRACE(::testing::Message() << std::hex << tried.code << ", " << operation << ' ' << features);
                BinItems::knobs() = {};
                contents(before);
                BinItems items(file(), features);
                const long descriptors = openDescriptors();
                tried.prepare(items);
                EXPECT_EQ(items.CheckFuncPtrs(), tried.slot ? tried.code : 0);
                const unsigned int code = tried.slot && operation == REG_OP_ADD ? REG_CALLBACK_MISSING : tried.code;
                EXPECT_EQ(run(items, operation), code);
                BinItem found = b_;
                EXPECT_EQ(items.Get(ITEM_NAME, &found, &found), tried.writes ? 0 : tried.code);
                if (tried.slot) {
                    EXPECT_EQ(items.Verify(operation, ITEM_NAME, &found, &found), REG_CALLBACK_MISSING);
                }
                EXPECT_EQ(contents(), before);
                EXPECT_TRUE((features & DEFERRED) == 0 || !exists("items.reg.tmp"));
                expectAtRest(descriptors);
                remove("items.reg.tmp");
            }
        }
    }
}

TEST_F(BinUpdates, ADamagedFileIsNotRewritten) {
    const std::string whole = binFile({a_, b_});
    const std::string short1 = whole.substr(0, whole.size() - 1);
    const std::string short2 = whole.substr(0, whole.size() / 2 + 2);
    std::string lying = whole;
    lying[4] = 60;
    const struct {
        unsigned long features;
        std::string bytes;
        BinItems::Slots slots;
        unsigned int code;
    } cases[] = {
        {0, short1, BinItems::Slots::Given, REG_READ_FAILED},       {0, short1, BinItems::Slots::All, REG_READ_FAILED},
        {0, short2, BinItems::Slots::Given, REG_READ_FAILED},       {0, short2, BinItems::Slots::All, REG_READ_FAILED},
        {DEFERRED, lying, BinItems::Slots::All, REG_UNPACK_FAILED},
    };
    for (const auto& tried : cases) {
        for (const unsigned long operation : {REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE}) {
            contents(tried.bytes);
            BinItems items(file(), PACKED | tried.features, tried.slots);
            EXPECT_EQ(run(items, operation), tried.code);
            EXPECT_EQ(contents(), tried.bytes);
        }
    }
}

TEST_F(BinUpdates, FieldsOfLaterReleasesSurviveEveryRewrite) {
    const std::string tail(300, 'T');  // makes the image larger than the record
    const std::string oldTail = binFrame(binImage(a_, tail));
    for (const auto slots : {BinItems::Slots::Given, BinItems::Slots::All}) {
        contents(oldTail + binFrame(binImage(b_, "later")) + binFrame(binImage(c_)));
        BinItems items(file(), PACKED | DEFERRED, slots);
        ASSERT_EQ(run(items, REG_OP_CHANGE, 1, b_, changed_), 0U);
        EXPECT_EQ(contents(), oldTail + binFrame(binImage(changed_, "later")) + binFrame(binImage(c_)));
        ASSERT_EQ(run(items, REG_OP_DELETE, 1, c_, c_), 0U);
        ASSERT_EQ(run(items, REG_OP_ADD, 1, d_, d_), 0U);
        EXPECT_EQ(contents(), oldTail + binFrame(binImage(changed_, "later")) + binFrame(binImage(d_)));
        // An image that packing makes otherwise becomes the usual one.
        contents(binFrame("\5" + std::string("c\0x\0y", 5) + binImage(binItem("", 3)).substr(1)) +
                 binFrame(binImage(b_)));
        ASSERT_EQ(run(items, REG_OP_DELETE, 1, b_, b_), 0U);
        EXPECT_EQ(contents(), binFile({c_}));
    }
}

// A schema that knows nothing of images at odd places may look at the previous one as a structure.
TEST_F(BinUpdates, AGivenSchemaGetsThePreviousImageAlignedAndWithRoom) {
    contents(binFile({binItem("odd", 1), b_, c_}));
    BinItems items(file(), PACKED);
    items.packRecord = [](void** buffer, void* previousImage) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(previousImage) % alignof(std::max_align_t), 0U);
        const unsigned int rc = BinItems::PackRecord(buffer, previousImage);
        if (previousImage != nullptr) {
            std::memset(previousImage, 0xff, sizeof(BinItem));
        }
        return rc;
    };
    ASSERT_EQ(run(items, REG_OP_DELETE, 1, c_, c_), 0U);
    EXPECT_EQ(contents(), binFile({binItem("odd", 1), b_}));
}

// A schema of records that tell their own size, which a file can make lie.
TEST_F(BinUpdates, ARecordIsNeverWrittenFromBeyondItsBuffer) {
    std::vector<BinItem> large(1000, binItem("large", 84000));
    contents("");
    BinItems items(file());
    items.getRecordSize = [](void* record, unsigned long* size) {
        *size = static_cast<unsigned long>(static_cast<BinItem*>(record)->value);
        return 0U;
    };
    // What the caller hands over is taken at the size that the schema tells for it,
    ASSERT_EQ(items.Add(ITEM_NAME, large.data()), 0U);
    EXPECT_TRUE(contents() == binFrame(std::string(reinterpret_cast<char*>(large.data()), 84000)));
    // but not what a file holds.
    const std::string lying = binFile({binItem("lying", 84000)}, false);
    contents(lying);
    EXPECT_EQ(run(items, REG_OP_DELETE, 1, a_, a_), REG_COPY_WRITE_FAILED);
    EXPECT_EQ(contents(), lying);
}

TEST_F(BinUpdates, AnAppendInPlaceLeavesNoPieceOfWhatCannotBePacked) {
    contents(binFile({a_}));
    BinItems items(file(), PACKED | DUPLICATES);
    ASSERT_EQ(run(items, REG_OP_ADD, 1, a_, a_), 0U);
    BinItems::knobs().packResult = 9;
    EXPECT_EQ(run(items, REG_OP_ADD, 1, a_, a_), REG_PACK_FAILED);
    EXPECT_EQ(contents(), binFile({a_, a_}));
    EXPECT_FALSE(exists("items.reg.tmp"));
}

TEST_F(BinUpdates, LogAndNotificationHearOfCommittedChangesOnly) {
    contents(binFile({a_, b_}));
    BinItems items(file(), PACKED | DEFERRED | REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY);
    // What they heard of the operation, which must end with the code.
    const auto heard = [&](unsigned int code, unsigned long operation) {
        BinItems::knobs().heard.clear();
        EXPECT_EQ(run(items, operation), code);
        return BinItems::knobs().heard;
    };
    using Heard = std::vector<std::string>;
    EXPECT_EQ(heard(0, REG_OP_ADD), (Heard{"4 d -", "notified"}));
    EXPECT_EQ(heard(0, REG_OP_CHANGE), (Heard{"2 b b", "notified"}));
    EXPECT_EQ(heard(REG_UNCHANGED, REG_OP_CHANGE), Heard{});
    EXPECT_EQ(heard(0, REG_OP_DELETE), (Heard{"8 b -", "notified"}));
    EXPECT_EQ(heard(REG_NOT_FOUND, REG_OP_DELETE), Heard{});
    EXPECT_EQ(heard(REG_DUPLICATE, REG_OP_ADD), Heard{});
    contents(binFile({a_, b_}));
    BinItems::knobs().notifyResult = 9;
    EXPECT_EQ(heard(0, REG_OP_CHANGE).size(), 2U);
    BinItems::knobs().logResult = 9;  // what is not logged is not announced, and stands all the same
    EXPECT_EQ(heard(0, REG_OP_DELETE), Heard{"8 b -"});
    BinItems::knobs().logResult = 0;
    items.notifyChange = nullptr;
    EXPECT_EQ(heard(REG_NO_NOTIFY, REG_OP_ADD), Heard{"4 d -"});
    EXPECT_EQ(contents(), binFile({a_, d_}));
}

}  // namespace

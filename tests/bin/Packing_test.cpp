// Packed updates whose schema does not give back just what it was given.
#include <osse/Trace.h>

#include <utility>

#include "support/BinRegistry.h"

namespace {

class BinPacking : public BinRegistry {
protected:
    static constexpr unsigned long FEATURES = PACKED | DEFERRED;

    static unsigned int change(BinItems& items, const BinItem& key, const BinItem& record) {
        BinItem keyGiven = key;
        BinItem recordGiven = record;
        return items.Change(ITEM_NAME, &keyGiven, &recordGiven);
    }
};

// Packing leaves out a text that begins with "-".
unsigned int packWithoutSecrets(void** buffer, void* previousImage) {
    auto* const item = static_cast<BinItem*>(*buffer);
    if (item->text[0] == '-') {
        item->text[0] = '\0';
    }
    return BinItems::PackRecord(buffer, previousImage);
}

// The image in a block of just its size.
unsigned int packTight(void** buffer, void* previousImage) {
    const unsigned int rc = BinItems::PackRecord(buffer, previousImage);
    const std::size_t size = binImageSize(*buffer);
    void* const tight = ossMemAlloc(size);
    std::memcpy(tight, *buffer, size);
    (void)ossMemFree(*buffer);
    *buffer = tight;
    return rc;
}

// What a schema derived from another puts into its slots.
unsigned int matchAnyCase(unsigned long /*mask*/, void* record, void* key) {
    return ::strcasecmp(static_cast<BinItem*>(record)->name, static_cast<BinItem*>(key)->name) == 0 ? 1 : 0;
}

unsigned int packMarked(void** buffer, void* previousImage) {
    static_cast<BinItem*>(*buffer)->text[0] = '!';
    return BinItems::PackRecord(buffer, previousImage);
}

unsigned int unpackMarked(void** buffer) {
    const unsigned int rc = BinItems::UnpackRecord(buffer);
    static_cast<BinItem*>(*buffer)->text[0] = '!';
    return rc;
}

// An image with a last byte that nobody asks about.
unsigned int sizeWithOneMore(void* packed, unsigned long* size) {
    *size = binImageSize(packed) + 1;
    return 0;
}

constexpr unsigned long LARGER = sizeof(BinItem) + 64;

unsigned int largerRecord(unsigned long* size) {
    *size = LARGER;
    return 0;
}

int unpacked = 0;

unsigned int failSecondUnpack(void** buffer) {
    return ++unpacked == 2 ? 1 : BinItems::UnpackRecord(buffer);
}

TEST_F(BinPacking, AChangeIsHeldAgainstWhatPackingMadeOfIt) {
    contents(binFile({binItem("a", 1, "x")}));
    BinItems items(file(), FEATURES);
    items.packRecord = packWithoutSecrets;
    EXPECT_EQ(change(items, binItem("a", 1), binItem("a", 2, "-secret")), 0U);
    EXPECT_EQ(contents(), binFile({binItem("a", 2)}));
    EXPECT_FALSE(exists(".tmp"));
}

TEST_F(BinPacking, AReplacedSlotIsAskedAboutEveryFrame) {
    const auto all = [&](unsigned long features) { return BinItems(file(), features, BinItems::Slots::All); };
    for (const unsigned long features : {PACKED, FEATURES}) {
        SCOPED_TRACE(features);
        contents(binFile({binItem("a", 1, "x"), binItem("b", 2, "y")}));
        BinItem found = {};
        BinItem key = binItem("B", 0);
        BinItems matches = all(features);
        matches.matchRecord = matchAnyCase;
        EXPECT_EQ(matches.Get(ITEM_NAME, &key, &found), 0U);
        EXPECT_EQ(found.value, 2);
        BinItems unpacks = all(features);
        unpacks.unpackRecord = unpackMarked;
        EXPECT_EQ(change(unpacks, binItem("a", 0), binItem("a", 3, "z")), 0U);
        EXPECT_EQ(contents(), binFile({binItem("a", 3, "z"), binItem("b", 2, "!")}));
        contents(binFile({binItem("a", 1, "x"), binItem("b", 2, "y")}));
        BinItems packs = all(PACKED);
        packs.packRecord = packMarked;
        EXPECT_EQ(change(packs, binItem("a", 0), binItem("a", 3, "z")), 0U);
        EXPECT_EQ(contents(), binFile({binItem("a", 3, "!"), binItem("b", 2, "!")}));
        BinItems measures = all(features);
        measures.getPackedRecordSize = sizeWithOneMore;
        for (const int value : {4, 5}) {
            EXPECT_EQ(change(measures, binItem("a", 0), binItem("a", value, "z")), 0U);
        }
        EXPECT_EQ(contents().size(), 2 + binFile({binItem("a", 5, "z"), binItem("b", 2, "!")}).size());
    }
}

TEST_F(BinPacking, NoCallIsSavedWhileItIsTraced) {
    static int saved = 0;
    BinItems items(file(), FEATURES, BinItems::Slots::All);
    items.useShortcuts(
        BinItems::CheckPacked, [](unsigned long, const void*, unsigned long, const void*) { return ++saved == 0; },
        [](const void*, unsigned long) { return ++saved > 0; });
    for (const int state : {0, GTRACE_ATTACHED | GTRACE_ENABLED}) {
        contents(binFile({binItem("a", 1)}));
        saved = 0;
        const int before = std::exchange(gtraceState, state);
        BinItem added = binItem("b", 2);
        EXPECT_EQ(items.Add(ITEM_NAME, &added), 0U);
        gtraceState = before;
        EXPECT_EQ(saved, state == 0 ? 2 : 0);
    }
}

TEST_F(BinPacking, ARecordLargerThanUnpackingFillsHasNothingOfTheOneBefore) {
    contents(binFrame(binImage(binItem("a", 1), std::string(100, 't'))) + binFile({binItem("b", 2)}));
    BinItems items(file(), PACKED, BinItems::Slots::All);
    items.getMaxRecordSize = largerRecord;
    items.matchRecord = matchAnyCase;
    char key[LARGER] = "b";
    char found[LARGER] = {};
    ASSERT_EQ(items.Get(0, key, found), 0U);
    EXPECT_EQ(std::string(found + sizeof(BinItem), 64), std::string(64, '\0'));
}

TEST_F(BinPacking, ABrokenImageReachesNoFunctionThatTheCheckSpeaksFor) {
    const std::string broken = binFrame(
        "\x05"
        "abc");
    contents(broken);
    BinItem item = binItem("a", 1);
    for (const bool replaced : {false, true}) {
        BinItems items(file(), FEATURES, BinItems::Slots::All);
        if (replaced) {
            items.unpackRecord = [](void** /*buffer*/) { return 0U; };
        }
        EXPECT_EQ(items.Add(ITEM_NAME, &item), REG_UNPACK_FAILED);
        EXPECT_EQ(contents(), broken);
    }
}

TEST_F(BinPacking, ARecordThatCannotBeUnpackedAgainIsNotCommitted) {
    contents(binFile({binItem("a", 1)}));
    BinItems items(file(), FEATURES);
    items.unpackRecord = failSecondUnpack;
    unpacked = 0;
    EXPECT_EQ(change(items, binItem("a", 1), binItem("a", 2)), REG_UNPACK_FAILED);
    EXPECT_EQ(contents(), binFile({binItem("a", 1)}));
}

TEST_F(BinPacking, ABlockOfJustTheImagesSizeIsTakenForNoMore) {
    contents("");
    for (const unsigned long features : {PACKED, FEATURES, PACKED | DUPLICATES, FEATURES | DUPLICATES}) {
        std::filesystem::remove(file());
        BinItems items(file(), features);
        items.packRecord = packTight;
        std::vector<BinItem> expected;
        for (const char* name : {"a", "b", "c", "d"}) {
            expected.push_back(binItem(name, 1, std::string(60, 'x')));
            BinItem record = expected.back();
            EXPECT_EQ(items.Add(ITEM_NAME, &record), 0U);
        }
        EXPECT_EQ(change(items, binItem("b", 0), binItem("b", 5)), 0U);
        expected[1] = binItem("b", 5);
        EXPECT_EQ(contents(), binFile(expected));
    }
}

}  // namespace

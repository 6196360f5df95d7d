// Packed updates whose schema does not give back just what it was given.
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

// The slots that look into images only save work: with and without them every operation gives the same code, the same
// record and the same bytes, and both what a plain list of records gives.
#include <random>

#include "support/BinRegistry.h"

namespace {

class BinFastAndPlain : public BinRegistry {
protected:
    std::mt19937 random_{20260};

    unsigned int upTo(unsigned int bound) { return static_cast<unsigned int>(random_() % bound); }
    BinItem someItem() {
        return binItem(std::string(1, static_cast<char>('a' + upTo(6))), static_cast<int>(upTo(4)),
                       std::string(std::size_t{20} * upTo(3), 't'));
    }
};

TEST_F(BinFastAndPlain, RandomOperationsAgreeStepByStep) {
    for (unsigned long features = 0; features < 16; ++features) {
        // The low bits: deferred commit, duplicates; big-endian lengths; the checksum header.
        const unsigned long all = PACKED | (features & (DEFERRED | DUPLICATES)) |
                                  ((features & 4) != 0 ? BIG_ENDIAN_LENGTHS : 0) | ((features & 8) != 0 ? CHECKSUM : 0);
        const bool bigEndian = (all & BIG_ENDIAN_LENGTHS) != 0;
        BinItems plain(path("plain.reg"), all);
        BinItems fast(path("fast.reg"), all, BinItems::Slots::All);
        BinModel model(all);
        // Records of a later release, and one whose image is not what packing makes of it.
        const std::string foreign = std::string("\5c\0x\0y", 6) + binImage(binItem("", 3, "foreign")).substr(1);
        model.entries = {{binItem("a", 1), "later"}, {binItem("b", 2), std::string(200, 'L')}};
        const std::string first = model.bytes(bigEndian);
        model.entries.push_back({binItem("c", 3, "foreign"), ""});
        bool foreignLeft = true;
        for (const char* name : {"plain.reg", "fast.reg"}) {
            (void)write(name, first + binFrame(foreign, bigEndian));
            std::filesystem::remove(path(name) + ".tmp");
        }
        for (int step = 0; step < 30; ++step) {
            const unsigned long mask = upTo(10) == 0 ? 0 : upTo(3) == 0 ? ITEM_NAME | ITEM_VALUE : ITEM_NAME;
            const BinOperation operation = {upTo(4), mask, someItem(), someItem()};
            SCOPED_TRACE(::testing::Message() << "features " << all << ", step " << step << ", operation "
                                              << operation.which << ", mask " << mask);
            BinItem results[3] = {};
            const unsigned int expected = operation.run(model, &results[0]);
            ASSERT_EQ(operation.run(plain, &results[1]), expected);
            ASSERT_EQ(operation.run(fast, &results[2]), expected);
            ASSERT_EQ(std::memcmp(&results[1], &results[0], sizeof results[0]), 0);
            ASSERT_EQ(std::memcmp(&results[2], &results[0], sizeof results[0]), 0);
            const std::string bytes = read(path("plain.reg"));
            ASSERT_TRUE(bytes == read(path("fast.reg")));
            // The first rewrite makes the foreign image a usual one.
            foreignLeft = foreignLeft && bytes.find(foreign) != std::string::npos;
            if (!foreignLeft) {
                const std::string frames = model.bytes(bigEndian);
                const bool stamped = (all & CHECKSUM) != 0 && bytes.size() == frames.size() + 32;
                ASSERT_TRUE(bytes.substr(stamped ? 32 : 0) == frames);
            }
        }
        EXPECT_FALSE(foreignLeft && (all & DUPLICATES) == 0);
    }
}

}  // namespace

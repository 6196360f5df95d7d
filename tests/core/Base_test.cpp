// Feature bits and checksums.
#include <genreg/Checksum.h>

#include "support/TextRegistry.h"

namespace {

TEST(Features, OnlyOneTo256AreTakenAndOnlySetOnesCleared) {
    GenRegBase base;
    for (const unsigned long beyond : {0UL, 257UL}) {
        EXPECT_EQ(base.setFeature(beyond), REG_FEATURE_OUT_OF_RANGE);
        EXPECT_EQ(base.unsetFeature(beyond), REG_FEATURE_OUT_OF_RANGE);
    }
    EXPECT_EQ(base.setFeature(256), 0u);
    EXPECT_EQ(base.unsetFeature(4), REG_FEATURE_NOT_SET);
    EXPECT_EQ(base.setFeature(1), 0u);
    EXPECT_EQ(base.unsetFeature(3), 0u);
    EXPECT_FALSE(base.isFeatureSet(3));
    EXPECT_TRUE(base.isFeatureSet(256 | 2));
}

TEST(Checksum, WordsAreXoredAndTheRestIsSignExtended) {
    const struct {
        std::vector<unsigned char> bytes;
        unsigned int plain;
        unsigned int wrapped;
    } cases[] = {
        {{}, 0, 0},
        {{0xFF}, 0xFFFFFFFF, 0xFFFFFFFF},
        {{0x7F, 0x80, 0x01}, 0xFFFFFFFE, 0xFFFFFFFE},
        {{1, 0, 0, 0, 2, 0, 0, 0}, 3, 0x4020},
        {{1, 0, 0, 0, 2, 0, 0, 0, 0x90}, 0xFFFFFF93, 0xFFFFBFB0},
    };
    for (const auto& sample : cases) {
        std::vector<unsigned char> shifted = {0xAA};
        shifted.insert(shifted.end(), sample.bytes.begin(), sample.bytes.end());
        EXPECT_EQ(sqlzChecksumXOR(shifted.data() + 1, sample.bytes.size()), sample.plain);
        EXPECT_EQ(sqlzChecksumXORWrap(shifted.data() + 1, static_cast<long>(sample.bytes.size())), sample.wrapped);
    }
    // Rotations run 5, 13, 21, 29, 6, 14, 22, 30, 7: one bit per word shows where each went.
    const std::vector<unsigned int> ones(9, 1);
    unsigned int expected = 0;
    for (const int rotation : {5, 13, 21, 29, 6, 14, 22, 30, 7}) {
        expected ^= 1U << rotation;
    }
    EXPECT_EQ(sqlzChecksumXORWrap(ones.data(), 36), expected);
}

}  // namespace

// Feature bits, codes and checksums.
#include <genreg/Checksum.h>

#include "support/VarValFile.h"

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

TEST(Codes, EachHasANameAndASentenceAndTheyAscend) {
    unsigned int before = 0;
    unsigned long count = 0;
    for (unsigned int code; (code = genregCodeAt(count)) != 0; ++count) {
        EXPECT_GT(code, before);
        EXPECT_STRNE(genregCodeName(code), "UNKNOWN");
        EXPECT_GT(std::strlen(genregCodeText(code)), 10u);
        before = code;
    }
    EXPECT_GT(count, 100u);
    EXPECT_EQ(genregCodeAt(count + 5), 0u);
    EXPECT_STREQ(genregCodeName(0x900001f6), "REG_NOT_FOUND");
    EXPECT_STREQ(genregCodeName(17), "UNKNOWN");
    EXPECT_STRNE(genregCodeText(0x90000100 + ENOSPC), genregCodeText(17));
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

// Versions in their three forms.
#include <genreg/VersionCodes.h>
#include <gtest/gtest.h>

#include <string>

namespace {

unsigned long codeOf(const char* text) {
    unsigned long code = 77;
    EXPECT_EQ(ossVersionStringToCode(text, &code), 0U) << text;
    return code;
}

TEST(VersionCodes, TheThreeFormsAgree) {
    EXPECT_EQ(codeOf("9.7.0.2"), 0x0009000700000002U);
    EXPECT_EQ(ossVersionCodeRVNToService(9070002), 0x0009000700000002U);
    EXPECT_EQ(ossVersionCodeServiceToRVN(0x0009000700000002), 9070002);
    EXPECT_EQ(ossVersionCodeRVNToService(4212345678U), 0x000c0022'0038004eU) << "digits above the eighth";
    EXPECT_EQ(ossVersionCodeServiceToRVN(0x0063006300630063), 99999999);
    EXPECT_EQ(ossVersionCodeServiceToRVN(0x0001000200030064), 10203100) << "a part above 99 shifts the others";
    char text[24] = "########";
    EXPECT_EQ(ossVersionCodeToString(0x0009000700000002, text, 7), 0x9000025eU);
    EXPECT_STREQ(text, "########");
    EXPECT_EQ(ossVersionCodeToString(0x0009000700000002, text, 8), 0U);
    EXPECT_STREQ(text, "9.7.0.2");
    text[9] = '#';
    EXPECT_EQ(ossVersionCodeToString(1, text, 10), 0U);
    EXPECT_EQ(text[9], '\0') << "the last byte, however short the text";
    EXPECT_EQ(ossVersionCodeToString(1, nullptr, 8), 0x9000025cU);
    EXPECT_EQ(ossVersionCodeToString(~0UL, text, sizeof text), 0U);
    EXPECT_STREQ(text, "65535.65535.65535.65535");
}

TEST(VersionCodes, MissingPartsAreZeroAndWhatIsNoVersionIsRefused) {
    EXPECT_EQ(codeOf(""), 0U);
    EXPECT_EQ(codeOf("9.1"), codeOf("9.1.0.0"));
    EXPECT_EQ(codeOf("9..2."), codeOf("9.0.2.0"));
    EXPECT_EQ(codeOf("65537.0.0.1"), codeOf("1.0.0.1"));
    EXPECT_EQ(codeOf("1.2.3.45678901234567890xyz"), codeOf("1.2.3.45678901234567890")) << "cut to 23 characters";
    for (const char* text : {"9.a", "10.1.1.1.1", "9 ", " 9", "-9", "+9", "9.7.0.2\n", "9,7"}) {
        unsigned long code = 77;
        EXPECT_EQ(ossVersionStringToCode(text, &code), 0x9000025fU) << text;
        EXPECT_EQ(code, 77U);
    }
}

}  // namespace

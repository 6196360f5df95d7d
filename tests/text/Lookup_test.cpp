// Get, GetNext and GetPortnumbers.
#include <random>

#include "support/VarValFile.h"

namespace {

using LookupTest = RegistryTest;

bool isZero(const GenRegVarValRecord& record) {
    const GenRegVarValRecord zero = {};
    return std::memcmp(&record, &zero, sizeof record) == 0;
}

TEST_F(LookupTest, TheFirstMatchIsHandedOutInTheCallersOwnRecord) {
    (void)write("reg", "# a = 0\nbroken\na=1 # first\na = 2\n");
    VarValFile file{reg()};
    GenRegVarValRecord record;
    ASSERT_EQ(file.get("a", &record), 0u);
    EXPECT_STREQ(record.value, "1");
    EXPECT_STREQ(record.comment, " first");
    EXPECT_EQ(record.contains, VARVAL_HAS_COMMENT | VARVAL_HAS_PAIR);
    const auto* begin = reinterpret_cast<const char*>(&record);
    EXPECT_TRUE(record.value > begin && record.value < begin + sizeof record);
    GenRegVarValRecord key = VarValFile::pair("a", "2");
    EXPECT_EQ(file.Get(VARVAL_MATCH_VARIABLE | VARVAL_MATCH_VALUE, &key, &record), 0u);
    EXPECT_EQ(record.contains, VARVAL_HAS_PAIR);
    EXPECT_EQ(file.get("A", &record), REG_NOT_FOUND);
    EXPECT_TRUE(isZero(record));
}

TEST_F(LookupTest, EmptyAndMissingFilesHaveTheirCodes) {
    VarValFile file{reg()};
    GenRegVarValRecord record;
    EXPECT_EQ(file.get("a", &record), REG_OPEN_FAILED);
    EXPECT_EQ(file.OpenScan(), REG_OPEN_FILE_FAILED);
    (void)write("reg", "");
    std::memset(&record, 1, sizeof record);
    EXPECT_EQ(file.get("a", &record), REG_NOT_FOUND);
    EXPECT_TRUE(isZero(record));
    ASSERT_EQ(file.OpenScan(), 0u);
    std::memset(&record, 1, sizeof record);
    EXPECT_EQ(file.GetNext(0, nullptr, &record), REG_NO_MORE_RECORDS);
    EXPECT_TRUE(isZero(record));
    std::memset(&record, 1, sizeof record);
    EXPECT_EQ(file.GetNext(0, nullptr, &record), REG_NO_MORE_RECORDS);
    EXPECT_FALSE(isZero(record));  // the second time it is left alone
    EXPECT_EQ(names(), "reg");
}

TEST_F(LookupTest, AScanYieldsEveryLineOrTheMatchingOnes) {
    (void)write("reg", "a = 1\n# comment\nbroken\n" + std::string(3000, 'x') + "\nb = 2\na = 3");
    VarValFile file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "a - - - b a ");
    ASSERT_EQ(file.Rewind(), 0u);
    GenRegVarValRecord record;
    GenRegVarValRecord key = VarValFile::pair("a", nullptr);
    EXPECT_EQ(file.GetNext(VARVAL_MATCH_VARIABLE, &key, &record), 0u);
    EXPECT_STREQ(record.value, "1");
    EXPECT_EQ(file.GetNext(VARVAL_MATCH_VARIABLE, &key, &record), 0u);
    EXPECT_STREQ(record.value, "3");
    EXPECT_EQ(file.GetNext(VARVAL_MATCH_VARIABLE, &key, &record), REG_NO_MORE_RECORDS);
}

TEST_F(LookupTest, AGetInAScanLeavesItWhereItWas) {
    std::string text;
    for (int i = 0; i < 20'000; ++i) {
        text += "v" + std::to_string(i) + " = 1\n";
    }
    (void)write("reg", text);
    VarValFile file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    GenRegVarValRecord record;
    EXPECT_EQ(file.get("v3", &record), REG_OPEN_FAILED);
    ASSERT_EQ(file.setFeature(REG_FEATURE_GET_IN_SCAN), 0u);
    EXPECT_EQ(file.get("v19999", &record), 0u);
    for (const char* expected : {"v0", "v1"}) {
        ASSERT_EQ(file.GetNext(0, nullptr, &record), 0u);
        EXPECT_STREQ(record.variable, expected);
        EXPECT_EQ(file.get("v19999", &record), 0u);
        EXPECT_EQ(file.get("w", &record), REG_NOT_FOUND);
    }
    while (file.GetNext(0, nullptr, &record) == 0) {
    }
    EXPECT_EQ(file.get("v7", &record), 0u);
    EXPECT_EQ(file.GetNext(0, nullptr, &record), REG_NO_MORE_RECORDS);  // the end stays the end
    ASSERT_EQ(file.CloseScan(), 0u);
    EXPECT_EQ(file.get("v7", &record), 0u);
}

TEST_F(LookupTest, PortsAreListedOncePerRun) {
    const std::string longComment = "# " + std::string(2045, '-') + " 7/tcp\n";
    (void)write("reg", "#c 1/tcp\n\nzero 0/tcp\na 50000/tcp\na\t50000/udp # x\n" + longComment +
                           "lone\nlone \nlone \r\n \nb  50001/tcp alias\nc /tcp\nd\t 50000\r\ne 6");
    VarValFile file{reg()};
    std::vector<int> ports(20, -1);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), REG_INVALID_ARGUMENT);
    ASSERT_EQ(file.OpenReg(REG_OP_READ), 0u);
    EXPECT_EQ(file.GetPortnumbers(nullptr), REG_INVALID_ARGUMENT);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), 0u);
    ASSERT_EQ(file.CloseReg(REG_OP_READ), 0u);
    EXPECT_EQ(std::vector<int>(ports.begin(), ports.begin() + 5), (std::vector<int>{50000, 50001, 50000, 6, -1}));
}

TEST_F(LookupTest, PortsAreListedFromWhereAScanStands) {
    (void)write("reg", "a 1/tcp\nb 2/tcp\nc 3/tcp\n");
    VarValFile file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    GenRegVarValRecord record;
    EXPECT_EQ(file.GetNext(0, nullptr, &record), 0u);
    std::vector<int> ports(4, -1);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), 0u);
    EXPECT_EQ(ports, (std::vector<int>{2, 3, -1, -1}));
    EXPECT_EQ(file.GetNext(0, nullptr, &record), REG_NO_MORE_RECORDS);
    ASSERT_EQ(file.Rewind(), 0u);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), 0u);
    EXPECT_EQ(ports, (std::vector<int>{1, 2, 3, -1}));
}

// Lookups with and without the look at the raw line, over lines and names of awkward characters.
TEST_F(LookupTest, SparingTheParseNeverChangesTheAnswer) {
    std::mt19937 random{7};
    const std::string letters = "ab \t=\"#\r\\\n\xe9";
    const auto text = [&](std::size_t most, std::size_t kinds) {
        std::string all;
        for (std::size_t size = random() % (most + 1); all.size() < size;) {
            all += letters[random() % kinds];
        }
        return all;
    };
    int found = 0;
    for (int round = 0; round < 1500; ++round) {
        (void)write("reg", text(60, letters.size()));
        const unsigned long features = round % 2 == 0 ? 0 : REG_FEATURE_LINE_CONTINUATION;
        VarValFile sparing{reg(), features};
        VarValFile plain{reg(), features};
        ASSERT_NE(sparing.lineMayMatch, nullptr);
        plain.lineMayMatch = nullptr;
        for (unsigned long i = 0; i < 8; ++i) {
            std::string name = text(3, round % 3 == 0 ? 6 : 3);
            std::string value = text(1, 2);
            GenRegVarValRecord key = VarValFile::pair(name.data(), value.data());
            GenRegVarValRecord seen, expected;
            const unsigned long mask = i % 4;
            const unsigned int rc = plain.Get(mask, &key, &expected);
            ASSERT_EQ(sparing.Get(mask, &key, &seen), rc) << content() << "|" << name;
            if (rc == 0) {
                ASSERT_STREQ(seen.variable, expected.variable);
                ASSERT_STREQ(seen.value, expected.value);
            }
            found += rc == 0 && (mask & VARVAL_MATCH_VARIABLE) != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(found, 300);
}

}  // namespace

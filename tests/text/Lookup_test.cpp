// Get, GetNext, GetPortnumbers, and the place of a scan.
#include "support/TextRegistry.h"

namespace {

using LookupTest = RegistryTest;

bool isZero(const GenRegVarValRecord& record) {
    const GenRegVarValRecord zero = {};
    return std::memcmp(&record, &zero, sizeof record) == 0;
}

TEST_F(LookupTest, TheFirstMatchIsHandedOutInTheCallersOwnRecord) {
    write("reg", "# a = 0\nbroken\na=1 # first\na = 2\n");
    TextRegistry file{reg()};
    GenRegVarValRecord record;
    ASSERT_EQ(file.get("a", &record), 0u);
    EXPECT_STREQ(record.value, "1");
    EXPECT_STREQ(record.comment, " first");
    EXPECT_EQ(record.contains, VARVAL_HAS_COMMENT | VARVAL_HAS_PAIR);
    const auto* begin = reinterpret_cast<const char*>(&record);
    EXPECT_TRUE(record.value > begin && record.value < begin + sizeof record);
    GenRegVarValRecord key = TextRegistry::pair("a", "2");
    EXPECT_EQ(file.Get(VARVAL_MATCH_VARIABLE | VARVAL_MATCH_VALUE, &key, &record), 0u);
    EXPECT_EQ(record.contains, VARVAL_HAS_PAIR);
    EXPECT_EQ(file.get("A", &record), REG_NOT_FOUND);
    EXPECT_TRUE(isZero(record));
}

TEST_F(LookupTest, EmptyAndMissingFilesHaveTheirCodes) {
    TextRegistry file{reg()};
    GenRegVarValRecord record;
    EXPECT_EQ(file.get("a", &record), REG_OPEN_FAILED);
    EXPECT_EQ(file.OpenScan(), REG_OPEN_FILE_FAILED);
    write("reg", "");
    const auto filled = [&] {
        std::memset(&record, 1, sizeof record);
        return &record;
    };
    EXPECT_EQ(file.get("a", filled()), REG_NOT_FOUND);
    EXPECT_TRUE(isZero(record));
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.GetNext(0, nullptr, filled()), REG_NO_MORE_RECORDS);
    EXPECT_TRUE(isZero(record));
    EXPECT_EQ(file.GetNext(0, nullptr, filled()), REG_NO_MORE_RECORDS);
    EXPECT_FALSE(isZero(record));  // the second time it is left alone
    EXPECT_EQ(names(), "reg");
}

TEST_F(LookupTest, AScanYieldsEveryLineOrTheMatchingOnes) {
    write("reg", "a = 1\n# comment\nbroken\n" + std::string(3000, 'x') + "\nb = 2\na = 3");
    TextRegistry file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "a - - - b a ");
    ASSERT_EQ(file.Rewind(), 0u);
    GenRegVarValRecord record;
    GenRegVarValRecord key = TextRegistry::pair("a", nullptr);
    for (const char* value : {"1", "3"}) {
        EXPECT_EQ(file.GetNext(VARVAL_MATCH_VARIABLE, &key, &record), 0u);
        EXPECT_STREQ(record.value, value);
    }
    EXPECT_EQ(file.GetNext(VARVAL_MATCH_VARIABLE, &key, &record), REG_NO_MORE_RECORDS);
}

TEST_F(LookupTest, AGetInAScanLeavesItWhereItWas) {
    std::string text;
    for (int i = 0; i < 20'000; ++i) {
        text += "v" + std::to_string(i) + " = 1\n";
    }
    write("reg", text);
    TextRegistry file{reg()};
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
    int next = 2;
    while (file.GetNext(0, nullptr, &record) == 0) {
        EXPECT_EQ(record.variable, "v" + std::to_string(next++));
    }
    EXPECT_EQ(next, 20'000);
    EXPECT_EQ(file.get("v7", &record), 0u);
    EXPECT_STREQ(record.variable, "v7");
    EXPECT_EQ(file.GetNext(0, nullptr, &record), REG_NO_MORE_RECORDS);  // the end stays the end
    EXPECT_STREQ(record.variable, "v7");
    EXPECT_EQ(file.get("w", &record), REG_NOT_FOUND);
    EXPECT_TRUE(isZero(record));
}

TEST_F(LookupTest, PortsAreListedOncePerRunFromWhereTheFileStands) {
    const std::string longComment = "# " + std::string(2045, '-') + " 7/tcp\n";
    write("reg", "#c 1/tcp\n\nzero 0/tcp\na 50000/tcp\na\t50000/udp # x\n" + longComment +
                     "lone\nlone \nlone \r\n \nb  50001/tcp alias\nc /tcp\nd\t 50000\r\ne 6");
    TextRegistry file{reg()};
    std::vector<int> ports(5, -1);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), REG_INVALID_ARGUMENT);  // nothing is open
    ASSERT_EQ(file.OpenReg(REG_OP_READ), 0u);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), 0u);
    ASSERT_EQ(file.CloseReg(REG_OP_READ), 0u);
    EXPECT_EQ(ports, (std::vector<int>{50000, 50001, 50000, 6, -1}));

    write("reg", "a 1/tcp\nb 2/tcp\nc 3/tcp\n");
    ASSERT_EQ(file.OpenScan(), 0u);
    GenRegVarValRecord record;
    EXPECT_EQ(file.GetNext(0, nullptr, &record), 0u);
    ports.assign(4, -1);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), 0u);
    EXPECT_EQ(ports, (std::vector<int>{2, 3, -1, -1}));
    EXPECT_EQ(file.GetNext(0, nullptr, &record), REG_NO_MORE_RECORDS);
    ASSERT_EQ(file.Rewind(), 0u);
    EXPECT_EQ(file.GetPortnumbers(ports.data()), 0u);
    EXPECT_EQ(ports, (std::vector<int>{1, 2, 3, -1}));
}

TEST_F(LookupTest, PositionsBelongToAnOpenScan) {
    write("reg", "a = 1\nb = 2\nc = 3\n");
    TextRegistry file{reg()};
    long long position = 0;
    EXPECT_EQ(file.getRegFilePosition(&position), REG_SCAN_NOT_OPEN);
    EXPECT_EQ(file.setRegFilePosition(nullptr), REG_SCAN_NOT_OPEN);
    EXPECT_EQ(file.Rewind(), REG_REWIND_FAILED);
    EXPECT_EQ(file.CloseScan(), 0u);
    ASSERT_EQ(file.OpenScan(), 0u);
    GenRegVarValRecord record;
    EXPECT_EQ(file.GetNext(0, nullptr, &record), 0u);
    EXPECT_EQ(file.getRegFilePosition(&position), 0u);
    EXPECT_EQ(file.scanned(), "b c ");
    EXPECT_EQ(file.setRegFilePosition(&position), 0u);
    EXPECT_EQ(file.scanned(), "");  // only going back to the start ends the end
    EXPECT_EQ(file.Rewind(), 0u);
    EXPECT_EQ(file.setRegFilePosition(&position), 0u);
    EXPECT_EQ(file.scanned(), "b c ");
    EXPECT_EQ(file.CloseScan(), 0u);
    EXPECT_EQ(file.scanned(), "REG_SCAN_NOT_OPEN");
}

TEST_F(LookupTest, AScanExcludesOtherWorkOfItsObjectAndSeesTheVersionThatItOpened) {
    write("reg", "a = 1\nb = 2\nc = 3\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.OpenReg(REG_OP_READ), REG_SCAN_OPEN);
    EXPECT_EQ(file.CloseReg(REG_OP_READ), REG_SCAN_OPEN);
    EXPECT_EQ(file.add("d", "4"), REG_OPEN_FAILED);
    TextRegistry writer{reg()};
    EXPECT_EQ(writer.remove("b"), 0u);
    EXPECT_EQ(file.scanned(), "a b c ");
    EXPECT_EQ(file.CloseScan(), 0u);
    EXPECT_EQ(file.OpenReg(REG_OP_READ), 0u);
    EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "a c ");
    // Opened anew without having been closed, too.
    EXPECT_EQ(writer.remove("a"), 0u);
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "c ");
}

// With its newline a line has at most 2,047 bytes.
TEST_F(LookupTest, TheLongestLineIsFoundAndChangedAndALongerOneOnlyCarried) {
    const std::string value(2042, 'x');
    const std::string longest = "a = " + value + "\n";
    const std::string longer = "b = x" + value + "\n";
    ASSERT_EQ(longest.size(), 2047U);
    for (const unsigned long features : UPDATE_WAYS) {
        write("reg", longest + longer);
        TextRegistry file{reg(), features};
        GenRegVarValRecord record;
        EXPECT_EQ(file.get("b", &record), REG_NOT_FOUND);
        EXPECT_EQ(file.change("b", "1"), REG_NOT_FOUND);
        ASSERT_EQ(file.get("a", &record), 0u);
        EXPECT_EQ(record.value, value);
        EXPECT_EQ(file.change("a", "1"), 0u);
        EXPECT_EQ(content(), "a = 1\n" + longer);
        EXPECT_EQ(file.change("a", ("x" + value).c_str()), REG_FORMAT_FAILED);
        EXPECT_EQ(file.change("a", value.c_str()), 0u);
        EXPECT_EQ(content(), longest + longer);
        // A last line has no newline to count.
        write("reg", longer + longest.substr(0, 2046) + "x");
        EXPECT_EQ(file.change("a", "1"), 0u);
        EXPECT_EQ(content(), longer + "a = 1\n");
        write("reg", longest + longer.substr(0, 2047) + "x");
        EXPECT_EQ(file.get("b", &record), REG_NOT_FOUND);
        EXPECT_EQ(file.remove("b"), REG_NOT_FOUND);
    }
}

}  // namespace

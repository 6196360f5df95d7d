// The variable/value form: reading, writing and comparing records, and the typed getters.
#include <cmath>
#include <cstdio>

#include "support/VarValFile.h"

namespace {

// "contains|variable|value|comment", with "-" for null.
std::string parsed(const std::string& line) {
    GenRegVarValRecord record;
    if (const unsigned int rc = GenRegVarVal::ParseLine(&record, line.c_str())) {
        return genregCodeName(rc);
    }
    std::string all = std::to_string(record.contains);
    for (const char* text : {record.variable, record.value, record.comment}) {
        all += std::string("|") + (text != nullptr ? text : "-");
    }
    return all;
}

TEST(VarVal, LinesAreReadAsVariableValueAndComment) {
    const struct {
        std::string line;
        const char* expected;
    } cases[] = {
        {"  port  =  5000   # main\n", "3|port|5000| main"},
        {"a=b", "2|a|b|-"},
        {"", "0|-|-|-"},
        {" \t \n", "0|-|-|-"},
        {"# only", "1|-|-| only"},
        {"  #\xe9\ttab", "1|-|-|.\ttab"},
        {"a=\"x # y\"\n", "REG_UNTERMINATED_QUOTE"},
        {"a = \"x  y\" tail # c", "3|a|\"x  y\"| c"},
        {"a = x  \"y  z\"", "2|a|x \"y  z\"|-"},
        {"a = b = c", "2|a|b = c|-"},
        {"two  words =", "2|two words||-"},
        {"= v", "2||v|-"},
        {"no pair", "REG_NO_EQUAL_SIGN"},
        {"no pair # c", "REG_NO_EQUAL_SIGN"},
        {"a = 1\r\n", "2|a|1|-"},
        {"a = 1\nb = 2", "2|a|1|-"},
    };
    for (const auto& sample : cases) {
        EXPECT_EQ(parsed(sample.line), sample.expected) << sample.line;
    }
    EXPECT_EQ(parsed("a=" + std::string(5000, 'x')), "2|a|" + std::string(2045, 'x') + "|-");
    EXPECT_EQ(GenRegVarVal::ParseLine(nullptr, ""), REG_EMPTY_ARGUMENT);
}

TEST(VarVal, AWrittenLineKeepsTheBlanksOfTheOldOne) {
    VarValFile resetsTheFlag{"x"};
    const struct {
        const char* old;
        GenRegVarValRecord record;
        const char* expected;
    } cases[] = {
        {"", VarValFile::pair("a", "1"), "a = 1\n"},
        {"", VarValFile::pair("a", "1", "c"), "a = 1 # c\n"},
        {"a\t=  1\n", VarValFile::pair("a", "2"), "a\t=  2\n"},
        {" \ta=1# old\n", VarValFile::pair("a", "2", " new"), " \ta=2 #  new\n"},
        {"two  words =x", VarValFile::pair("two words", "2"), "two words =2\n"},
        {"a = 1 = 2\n", VarValFile::pair("b", "3"), "b = 3\n"},
    };
    for (const auto& sample : cases) {
        char line[REG_LINE_SIZE];
        (void)std::snprintf(line, sizeof line, "%s", sample.old);
        GenRegVarValRecord record = sample.record;
        EXPECT_EQ(GenRegVarVal::FormatLine(&record, line), 0u);
        EXPECT_STREQ(line, sample.expected);
    }
    char line[REG_LINE_SIZE] = "no pair";
    GenRegVarValRecord record = VarValFile::pair("a", "1");
    EXPECT_EQ(GenRegVarVal::FormatLine(&record, line), REG_NO_EQUAL_SIGN);
    bCompactFormattedLine = 1;
    *line = '\0';
    EXPECT_EQ(GenRegVarVal::FormatLine(&record, line), 0u);
    EXPECT_STREQ(line, "a=1\n");
    std::strcpy(line, "a =1\n");
    EXPECT_EQ(GenRegVarVal::FormatLine(&record, line), 0u);
    EXPECT_STREQ(line, "a =1\n");
    const VarValFile another{"x"};
    EXPECT_EQ(bCompactFormattedLine, 0);
    record.contains = VARVAL_HAS_COMMENT;
    record.comment = const_cast<char*>("alone");
    EXPECT_EQ(GenRegVarVal::FormatLine(&record, line), 0u);
    EXPECT_STREQ(line, "# alone\n");
    for (const std::size_t length : {2042UL, 2043UL}) {
        const std::string value(length, 'v');
        record = VarValFile::pair("a", value.c_str());
        *line = '\0';
        EXPECT_EQ(GenRegVarVal::FormatLine(&record, line), length == 2042 ? 0u : REG_LINE_TOO_LONG);
        EXPECT_EQ(std::strlen(line), length == 2042 ? 2047u : 0u);
    }
}

TEST(VarVal, TheMaskSaysWhatIsCompared) {
    GenRegVarValRecord stored = VarValFile::pair("a", "1");
    const auto matches = [&](unsigned long mask, const char* variable, const char* value) {
        GenRegVarValRecord key = VarValFile::pair(variable, value);
        return GenRegVarVal::MatchRecord(mask, &stored, &key) == 1;
    };
    EXPECT_TRUE(matches(0, nullptr, nullptr));
    EXPECT_TRUE(matches(1, "a", nullptr));
    EXPECT_FALSE(matches(1, "A", nullptr));
    EXPECT_TRUE(matches(2, nullptr, "1"));
    EXPECT_FALSE(matches(3, "a", "2"));
    EXPECT_FALSE(matches(~0UL, "a", nullptr));
    stored.contains = VARVAL_HAS_COMMENT;
    EXPECT_FALSE(matches(0, "a", "1"));
}

TEST(VarVal, ARecordMustHoldWhatTheMaskAsksFor) {
    GenRegVarValRecord record = VarValFile::pair(nullptr, nullptr);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(0, &record), 0u);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(3, &record), REG_NAME_MISSING);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(2, &record), REG_VALUE_MISSING);
    record.contains = 0;
    EXPECT_EQ(GenRegVarVal::ValidateRecord(3, &record), REG_EMPTY_RECORD);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(0, nullptr), REG_EMPTY_ARGUMENT);
    unsigned long size = 0;
    EXPECT_EQ(GenRegVarVal::GetMaxRecordSize(&size), 0u);
    EXPECT_EQ(size, 2080u);
    EXPECT_EQ(GenRegVarVal::GetRecordSize(&record, &size), 0u);
    EXPECT_EQ(size, 2080u);
}

TEST(VarVal, ARecordIsPrintedWithWhatItHas) {
    GenRegVarValRecord record = VarValFile::pair("a", "1", " c");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(GenRegVarVal::PrintRecord(&record), 0u);
    record = {};
    EXPECT_EQ(GenRegVarVal::PrintRecord(&record), 0u);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Record Dump:\n   Variable = |a|\n   Value    = |1|\n   Contains = 3\n   Comment  = | c|\n"
              "Record Dump:\n   Contains = 0\n");
}

using GetterTest = RegistryTest;

TEST_F(GetterTest, ValuesAreConvertedWholeOrNotAtAll) {
    (void)write(
        "reg",
        "n = -12\nu = 12\nx = 12x\nq = \"12\"\nempty =\nbig = 18446744073709551615\nhuge = 99999999999999999999\n"
        "d = 2.5e1\nt = On\nf = no\ninf = 1e999\n# c = 1\nn = 13\n");
    VarValFile file{reg()};
    // What a getter tells of each variable; the sentinel stays where it answers false.
    const auto all = [&](auto get) {
        std::string told;
        for (const char* name : {"n", "u", "x", "q", "empty", "big", "huge", "d", "inf", "c", "missing"}) {
            told += get(name) + " ";
        }
        return told;
    };
    const auto signedOnes = [&](auto getter) {
        return all([&, getter](const char* name) {
            long value = 777;
            return (file.*getter)(name, &value) ? std::to_string(value) : value == 777 ? "no" : "written";
        });
    };
    const auto unsignedOnes = [&](auto getter) {
        return all([&, getter](const char* name) {
            unsigned long value = 777;
            return (file.*getter)(name, &value) ? std::to_string(value) : value == 777 ? "no" : "written";
        });
    };
    EXPECT_EQ(signedOnes(&GenRegVarVal::GetSintValue), "-12 12 no no no no no no no no no ");
    EXPECT_EQ(signedOnes(&GenRegVarVal::GetSint64Value), "-12 12 no no no no no no no no no ");
    EXPECT_EQ(unsignedOnes(&GenRegVarVal::GetUintValue),
              "18446744073709551604 12 no no no 18446744073709551615 no no no no no ");
    EXPECT_EQ(unsignedOnes(&GenRegVarVal::GetUint64Value),
              "18446744073709551604 12 no no no 18446744073709551615 no no no no no ");
    double number = 7;
    EXPECT_TRUE(file.GetDoubleValue("d", &number));
    EXPECT_EQ(number, 25.0);
    EXPECT_FALSE(file.GetDoubleValue("inf", &number));
    EXPECT_FALSE(file.GetDoubleValue("x", &number));
    EXPECT_EQ(number, 25.0);
    bool flag = false;
    EXPECT_TRUE(file.GetBooleanValue("t", &flag) && flag);
    EXPECT_TRUE(file.GetBooleanValue("f", &flag) && !flag);
    EXPECT_FALSE(file.GetBooleanValue("n", &flag));
    const char* text = "before";
    EXPECT_FALSE(file.GetStringValue("missing", &text));
    EXPECT_FALSE(file.GetStringValue(nullptr, &text));
    EXPECT_STREQ(text, "before");
    EXPECT_TRUE(file.GetStringValue("empty", &text));
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(file.GetStringValue("q", &text));
    EXPECT_TRUE(file.GetDoubleValue("d", &number));
    EXPECT_STREQ(text, "\"12\"");  // stays until the next text is asked for
}

TEST_F(GetterTest, TenChangesInARowKeepTheLayout) {
    (void)write("reg", "  a\t=  0   # comment\nb=0\n");
    VarValFile file{reg()};
    for (int i = 1; i <= 10; ++i) {
        GenRegVarValRecord found;
        ASSERT_EQ(file.get("a", &found), 0u);
        const std::string value = std::to_string(i);
        GenRegVarValRecord record = VarValFile::pair("a", value.c_str(), found.comment + 1);  // less the blank it gains
        ASSERT_EQ(file.Change(VARVAL_MATCH_VARIABLE, &found, &record), 0u);
        ASSERT_EQ(file.change("b", value.c_str()), 0u);
    }
    EXPECT_EQ(content(), "  a\t=  10 # comment\nb=10\n");
}

}  // namespace

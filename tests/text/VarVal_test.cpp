// The variable/value form: reading, writing and comparing records, and the typed getters.
#include <dlfcn.h>
#include <genreg/Cause.h>
#include <osse/Memory.h>

#include "SchemaFile.h"
#include "support/TextRegistry.h"

namespace {
bool memoryIsShort = false;
}

// Stands before the platform's own for everything that this program loads.
extern "C" __attribute__((visibility("default"))) void* _ossMemAlloc(unsigned long size, const char* file,
                                                                     unsigned long line) {
    static const auto given = reinterpret_cast<decltype(&_ossMemAlloc)>(::dlsym(RTLD_NEXT, "_ossMemAlloc"));
    return memoryIsShort ? nullptr : given(size, file, line);
}

namespace {

// "contains|variable|value|comment", with "-" for null.
std::string describe(const GenRegVarValRecord& record) {
    std::string all = std::to_string(record.contains);
    for (const char* text : {record.variable, record.value, record.comment}) {
        all += std::string("|") + (text != nullptr ? text : "-");
    }
    return all;
}

std::string parsed(const std::string& line) {
    GenRegVarValRecord record;
    const unsigned int rc = GenRegVarVal::ParseLine(&record, line.c_str());
    return rc != 0 ? genregCodeName(rc) : describe(record);
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
        {"  #\xe9\x01\x7f\ttab~ ", "1|-|-|...\ttab~ "},
        {"a=\"x # y\"\n", "REG_UNTERMINATED_QUOTE"},
        {"a = \"x  y\" tail # c", "3|a|\"x  y\"| c"},
        {"a = x  \"y  z\"", "2|a|x \"y  z\"|-"},
        {"a = a\tb\r\"  x\"\t \n", "2|a|a b \"  x\"|-"},
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
}

TEST(VarVal, AWrittenLineKeepsTheBlanksOfTheOldOne) {
    const TextRegistry resetsTheFlag{"x"};
    GenRegVarValRecord onlyComment = TextRegistry::pair(nullptr, nullptr, "alone");
    onlyComment.contains = VARVAL_HAS_COMMENT;
    const std::string longest(2042, 'v');
    const std::string tooLong(2043, 'v');
    const struct {
        const char* old;
        GenRegVarValRecord record;
        std::string expected;
    } cases[] = {
        {"", TextRegistry::pair("a", "1"), "a = 1\n"},
        {"", TextRegistry::pair("a", "1", "c"), "a = 1 # c\n"},
        {"a\t=  1\n", TextRegistry::pair("a", "2"), "a\t=  2\n"},
        {" \ta=1# old\n", TextRegistry::pair("a", "2", " new"), " \ta=2 #  new\n"},
        {"two  words =x", TextRegistry::pair("two words", "2"), "two words =2\n"},
        {"a = 1 = 2\n", TextRegistry::pair("b", "3"), "b = 3\n"},
        {"", onlyComment, "# alone\n"},
        {"", TextRegistry::pair("a", longest.c_str()), "a = " + longest + "\n"},
        {"", TextRegistry::pair("a", tooLong.c_str()), "REG_LINE_TOO_LONG"},
        {"no pair", TextRegistry::pair("a", "1"), "REG_NO_EQUAL_SIGN"},
    };
    for (const auto& sample : cases) {
        EXPECT_EQ(formattedLine<GenRegVarVal>(sample.record, sample.old), sample.expected);
    }
    bCompactFormattedLine = 1;
    EXPECT_EQ(formattedLine<GenRegVarVal>(TextRegistry::pair("a", "1")), "a=1\n");
    EXPECT_EQ(formattedLine<GenRegVarVal>(TextRegistry::pair("a", "1"), "a =2\n"), "a =1\n");
    const TextRegistry another{"x"};
    EXPECT_EQ(bCompactFormattedLine, 0);
}

TEST(VarVal, TheMaskSaysWhatIsCompared) {
    GenRegVarValRecord stored = TextRegistry::pair("a", "1");
    const auto matches = [&](unsigned long mask, const char* variable, const char* value) {
        GenRegVarValRecord key = TextRegistry::pair(variable, value);
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
    GenRegVarValRecord record = TextRegistry::pair(nullptr, nullptr);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(0, &record), 0u);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(3, &record), REG_NAME_MISSING);
    EXPECT_EQ(GenRegVarVal::ValidateRecord(2, &record), REG_VALUE_MISSING);
    record.contains = 0;
    EXPECT_EQ(GenRegVarVal::ValidateRecord(3, &record), REG_EMPTY_RECORD);
}

class VarValOnDisk : public SchemaFile {};

TEST_F(VarValOnDisk, ValuesAreConvertedWholeOrNotAtAll) {
    content(
        "n = -12\nu = 12\nx = 12x\nq = \"12\"\nempty =\nbig = 18446744073709551615\nhuge = 99999999999999999999\n"
        "d = 2.5e1\nt = On\nf = no\ninf = 1e999\nnil = 1e-999\ntiny = 1e-310\n# c = 1\nn = 13\n");
    TextRegistry file{registry()};
    // What a getter tells of each variable; the sentinel stays where it answers false.
    const auto all = [&](auto getter, auto value) {
        const auto sentinel = value;
        std::string told;
        for (const char* name : {"n", "u", "x", "q", "empty", "big", "huge", "inf", "t", "f", "c", "missing"}) {
            value = sentinel;
            const bool found = (file.*getter)(name, &value);
            told += (found ? std::to_string(value) : value == sentinel ? "no" : "written") + " ";
        }
        return told;
    };
    const std::string integers = "-12 12 no no no no no no no no no no ";
    EXPECT_EQ(all(&GenRegVarVal::GetSintValue, 777L), integers);
    EXPECT_EQ(all(&GenRegVarVal::GetSint64Value, 777L), integers);
    const std::string naturals = "18446744073709551604 12 no no no 18446744073709551615 no no no no no no ";
    EXPECT_EQ(all(&GenRegVarVal::GetUintValue, 777UL), naturals);
    EXPECT_EQ(all(&GenRegVarVal::GetUint64Value, 777UL), naturals);
    EXPECT_EQ(all(&GenRegVarVal::GetBooleanValue, true), "no no no no no no no no 1 0 no no ");
    EXPECT_EQ(all(&GenRegVarVal::GetBooleanValue, false), "no no no no no no no no 1 0 no no ");
    double number = 7;
    EXPECT_TRUE(file.GetDoubleValue("d", &number));
    EXPECT_FALSE(file.GetDoubleValue("inf", &number));
    EXPECT_FALSE(file.GetDoubleValue("nil", &number)) << "nothing is left of it";
    EXPECT_FALSE(file.GetDoubleValue("x", &number));
    EXPECT_EQ(number, 25.0);
    EXPECT_TRUE(file.GetDoubleValue("tiny", &number)) << "less precise than others is no overflow";
    EXPECT_EQ(number, 1e-310);
    const char* text = "before";
    EXPECT_FALSE(file.GetStringValue("missing", &text));
    EXPECT_STREQ(text, "before");
    EXPECT_TRUE(file.GetStringValue("empty", &text));
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(file.GetStringValue("q", &text));
    EXPECT_TRUE(file.GetDoubleValue("d", &number));
    EXPECT_STREQ(text, "\"12\"");  // stays until the next text is asked for
}

// A form derived from this one: its records are larger, and it makes what it likes of a value.
struct LargeRecord {
    GenRegVarValRecord base;
    char more[4096];
};

class LargeForm : public TextRegistry {
public:
    explicit LargeForm(const std::string& path) : TextRegistry(path) {
        getMaxRecordSize = [](unsigned long* size) { return *size = sizeof(LargeRecord), 0U; };
        matchRecord = [](unsigned long mask, void* record, void* key) {
            EXPECT_STREQ(static_cast<LargeRecord*>(key)->more, "");
            return MatchRecord(mask, record, key);
        };
        parseLine = [](void* record, const char* line) {
            auto& large = *static_cast<LargeRecord*>(record);
            std::memset(large.more, 'v', sizeof large.more);
            const unsigned int rc = ParseLine(&large.base, line);
            const std::string length = large.base.value != nullptr ? large.base.value : "none";
            large.more[length == "none" ? 0 : std::stoul(length)] = '\0';
            large.base.value = length == "none" ? nullptr : large.more;
            return rc;
        };
    }
};

TEST_F(VarValOnDisk, TheGettersTakeTheRecordsOfADerivedForm) {
    content("# none\nshort = 3\nlongest = 2047\nlonger = 2048\n");
    LargeForm file{registry()};
    const char* text = nullptr;
    EXPECT_TRUE(file.GetStringValue("short", &text));
    EXPECT_STREQ(text, "vvv");
    EXPECT_TRUE(file.GetStringValue("longest", &text));
    EXPECT_EQ(text, std::string(2047, 'v'));
    EXPECT_FALSE(file.GetStringValue("longer", &text));
    EXPECT_EQ(text, std::string(2047, 'v'));
    file.matchRecord = [](unsigned long, void*, void*) { return 1U; };
    EXPECT_FALSE(file.GetStringValue("any", &text)) << "a value of null is none";
    long number = 0;
    EXPECT_FALSE(file.GetSintValue("any", &number));
    if (this_system::PROGRAMS_GO_FIRST) {
        memoryIsShort = true;
        EXPECT_FALSE(file.GetStringValue("short", &text));
        memoryIsShort = false;
    }
    GenRegCause cause = {};
    genregLastCause(&cause);
    EXPECT_EQ(cause.code, REG_NO_RECORD_BUFFER);
}

}  // namespace

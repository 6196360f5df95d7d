// Schemas of a client's own, made from one of the library's by putting other functions into its slots.
#include "support/TextRegistry.h"

namespace {

using SlotsTest = RegistryTest;

int parsed = 0;

unsigned int countingParse(void* record, const char* line) {
    ++parsed;
    return GenRegVarVal::ParseLine(record, line);
}

unsigned int anyCase(unsigned long /*mask*/, void* record, void* key) {
    const auto* const a = static_cast<const GenRegVarValRecord*>(record)->variable;
    const auto* const b = static_cast<const GenRegVarValRecord*>(key)->variable;
    return a != nullptr && b != nullptr && ::strcasecmp(a, b) == 0 ? 1 : 0;
}

TEST_F(SlotsTest, AReplacedSlotIsAskedAboutEveryLine) {
    (void)write("reg", "# c\nOther = 0\nPort = 1\n");
    GenRegVarValRecord found;
    TextRegistry folded{reg()};
    folded.matchRecord = anyCase;
    EXPECT_EQ(folded.get("port", &found), 0U);
    EXPECT_STREQ(found.value, "1");
    TextRegistry counted{reg()};
    counted.parseLine = countingParse;
    parsed = 0;
    EXPECT_EQ(counted.get("Port", &found), 0U);
    EXPECT_EQ(parsed, 4) << "each line, and once more the one that is handed out";
}

TEST_F(SlotsTest, ANullKeyMatchesNothingUnlessNothingIsCompared) {
    (void)write("reg", "a = 1\n");
    GenRegVarValRecord record = TextRegistry::pair("a", "2");
    TextRegistry file{reg()};
    EXPECT_EQ(file.Change(VARVAL_MATCH_VARIABLE, nullptr, &record), REG_NOT_FOUND);
    EXPECT_EQ(content(), "a = 1\n");
    EXPECT_EQ(file.Change(0, nullptr, &record), 0U);
    EXPECT_EQ(content(), "a = 2\n");
}

}  // namespace

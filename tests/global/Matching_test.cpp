// Which record a key finds.
#include "global/Records.h"

namespace {

unsigned int match(unsigned long mask, GlobalRegRecord record, GlobalRegRecord key) {
    return GlobalReg::MatchRecord(mask, &record, &key);
}

TEST(Matching, TheTypeComesFirst) {
    const GlobalRegRecord service = recordOf(GLOBALREG_SERVICE, 3);
    GlobalRegRecord key = recordOf(GLOBALREG_INSTANCE, 3);
    EXPECT_EQ(match(7, service, key), 0U);
    EXPECT_EQ(match(0, service, key), 0U);
    key.recordType = 0;
    EXPECT_EQ(match(0, service, key), 1U);
    EXPECT_EQ(match(3, service, key), 1U) << "a key of no type asks every type";
    GlobalRegRecord strange = {};
    strange.recordType = 3;
    EXPECT_EQ(match(~0UL, strange, key), 1U) << "a record of another type has nothing to compare";
    EXPECT_EQ(match(~0UL, strange, service), 0U);
}

// Field by field: each difference counts under its own bit only.
TEST(Matching, TheMaskSaysWhatIsCompared) {
    for (const unsigned int type : {GLOBALREG_INSTANCE, GLOBALREG_SERVICE, GLOBALREG_VARIABLE}) {
        unsigned long count = 0;
        const GlobalRegField* fields = globalRegFields(type, &count);
        const GlobalRegRecord record = recordOf(type, ~0UL);
        for (unsigned long index = 0; index < count; ++index) {
            GlobalRegRecord key = record;
            reinterpret_cast<char*>(&key)[fields[index].offset] ^= 0x20;
            if (type == GLOBALREG_VARIABLE) {
                key.body.variable.variable[0] = '\0';
            }
            const unsigned long others = ~fields[index].bit & ~(type == GLOBALREG_VARIABLE ? VARIABLE_NAME : 0);
            EXPECT_EQ(match(fields[index].bit, record, key), 0U) << type << ' ' << fields[index].name;
            EXPECT_EQ(match(others, record, key), 1U) << type << ' ' << fields[index].name;
        }
        EXPECT_EQ(match(~0UL, record, record), 1U) << "bits without a field are ignored";
    }
}

TEST(Matching, ANamedVariableIsAskedForWhole) {
    const GlobalRegRecord record = recordOf(GLOBALREG_VARIABLE, ~0UL);
    GlobalRegRecord key = record;
    put(key.body.variable.variable, "another");
    EXPECT_EQ(match(VARIABLE_SERVICE, record, key), 0U);
    EXPECT_EQ(match(1UL << 20, record, key), 0U);
    EXPECT_EQ(match(0, record, key), 1U);
    key = record;
    key.body.variable.variableText[0] = '\0';
    EXPECT_EQ(match(VARIABLE_SERVICE, record, key), 0U);
    key.body.variable.variable[0] = '\0';
    EXPECT_EQ(match(VARIABLE_SERVICE, record, key), 1U);
    key = record;
    key.body.variable.value[0] = '\0';
    EXPECT_EQ(match(VARIABLE_SERVICE, record, key), 1U) << "the value takes no part in it";
}

}  // namespace

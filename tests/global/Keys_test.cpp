// Which record a key finds, and which may be written.
#include <set>

#include "global/GlobalRecords.h"

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

unsigned int validate(unsigned long mask, GlobalRegRecord record) {
    return GlobalReg::ValidateRecord(mask, &record);
}

TEST(Validation, EachFieldHasItsCodes) {
    std::set<unsigned int> codes;
    unsigned long told = 0;
    for (const unsigned int type : {GLOBALREG_INSTANCE, GLOBALREG_SERVICE, GLOBALREG_VARIABLE}) {
        const GlobalRegRecord whole = recordOf(type, ~0UL);
        EXPECT_EQ(validate(~0UL, whole), 0U);
        unsigned long count = 0;
        const GlobalRegField* fields = globalRegFields(type, &count);
        for (const GlobalRegField* field = fields; field != fields + count; ++field) {
            GlobalRegRecord record = whole;
            char* member = reinterpret_cast<char*>(&record) + field->offset;
            std::memset(member, field->kind == GLOBALREG_FIELD_TEXT ? 0 : 0xff, field->capacity);
            EXPECT_EQ(validate(1, record), field->refusedCode) << type << ' ' << field->name;
            record.fieldMask &= ~field->bit;
            record.fieldMask |= 1UL << 12;
            EXPECT_EQ(validate(field->bit, record), field->missingCode) << type << ' ' << field->name;
            EXPECT_EQ(validate(~field->bit, record), 0U) << "an absent field's contents are nobody's concern";
            for (const unsigned int code : {field->refusedCode, field->missingCode}) {
                told += code != 0 ? 1 : 0;
                codes.insert(code);
            }
        }
    }
    codes.erase(0);
    EXPECT_EQ(codes.size(), told) << "no two fields share one";
    EXPECT_EQ(told, 41U);
}

TEST(Validation, TheFirstFailureDecides) {
    GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, INSTANCE_SERVICE | INSTANCE_VERSION_CODE);
    EXPECT_EQ(validate(0x3, record), 0U);
    EXPECT_EQ(validate(0x7, record), 0x90000235);
    record.fieldMask |= INSTANCE_START_AT_BOOT | INSTANCE_PATH;
    record.body.instance.startAtBoot = 2;
    EXPECT_EQ(validate(0x7, record), 0x9000022c) << "contents before presence, in the order of the bits";
    EXPECT_EQ(validate(0, record), 0U);
}

TEST(Validation, TypeAndMaskAreCheckedFirst) {
    GlobalRegRecord record = {};
    EXPECT_EQ(validate(0, record), 0U);
    for (const unsigned int type : {0U, 5U, 8U, 0xffffffffU}) {
        record.recordType = type;
        EXPECT_EQ(validate(1, record), 0x90000226) << type;
    }
    record.recordType = 3;
    EXPECT_EQ(validate(1, record), 0x90000227);
    record.fieldMask = 1UL << 63;
    EXPECT_EQ(validate(~0UL, record), 0U) << "no rule exists for this type";
}

}  // namespace

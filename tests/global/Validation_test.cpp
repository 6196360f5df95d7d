// Which record may be written, and what is said of the others.
#include <set>

#include "global/Records.h"

namespace {

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

TEST(Validation, OnlyTheReadersNoteIsCleared) {
    GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, INSTANCE_SERVICE);
    record.missingFieldMask = 0x3fe;
    EXPECT_EQ(GlobalReg::ValidateRecord(0, &record), 0U);
    EXPECT_EQ(record.missingFieldMask, 0x3feU);
    GlobalRegRecord expected = record;
    expected.missingFieldMask = 0;
    EXPECT_EQ(GlobalReg::ValidateRecord(0x4, &record), 0x90000235);
    EXPECT_TRUE(bytesOf(record) == bytesOf(expected));
}

}  // namespace

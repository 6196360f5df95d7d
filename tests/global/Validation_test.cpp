// Which record may be written, and what is said of the others.
#include <map>

#include "global/Records.h"

namespace {

unsigned int validate(unsigned long mask, GlobalRegRecord record) {
    return GlobalReg::ValidateRecord(mask, &record);
}

using Codes = std::map<unsigned long, unsigned int>;

// The codes stand here a second time, apart from the table: they are part of the interface.
const Codes REFUSED[] = {
    {{0x1, 0x90000229},
     {0x4, 0x9000022b},
     {0x8, 0x9000022c},
     {0x10, 0x9000022d},
     {0x20, 0x9000022e},
     {0x40, 0x9000022f},
     {0x80, 0x90000230},
     {0x100, 0x90000231},
     {0x200, 0x90000232}},
    {{0x1, 0x9000023d}, {0x4, 0x9000023f}, {0x8, 0x90000240}, {0x10, 0x90000241}},
    {{0x1, 0x90000247}, {0x2, 0x90000248}, {0x4, 0x90000249}, {0x8, 0x900005e5}, {0x10, 0x9000024a}},
};
const Codes MISSING[] = {
    {{0x1, 0x90000233},
     {0x2, 0x90000234},
     {0x4, 0x90000235},
     {0x8, 0x90000236},
     {0x10, 0x90000237},
     {0x20, 0x90000238},
     {0x40, 0x90000239},
     {0x80, 0x9000023a},
     {0x100, 0x9000023b},
     {0x200, 0x9000023c}},
    {{0x1, 0x90000242},
     {0x2, 0x90000243},
     {0x4, 0x90000244},
     {0x8, 0x90000245},
     {0x10, 0x90000246},
     {0x40, 0x9000050e},
     {0x80, 0x90000510},
     {0x100, 0x9000050f},
     {0x200, 0x90000511}},
    {{0x1, 0x9000024b}, {0x2, 0x9000024c}, {0x4, 0x9000024d}, {0x10, 0x9000024e}},
};

unsigned int codeOf(const Codes& codes, unsigned long bit) {
    const auto found = codes.find(bit);
    return found == codes.end() ? 0 : found->second;
}

TEST(Validation, EachFieldHasItsCodes) {
    for (unsigned int index = 0; index < 3; ++index) {
        const unsigned int type = 1U << index;
        const GlobalRegRecord whole = recordOf(type, ~0UL);
        EXPECT_EQ(validate(~0UL, whole), 0U);
        unsigned long count = 0;
        const GlobalRegField* fields = globalRegFields(type, &count);
        for (const GlobalRegField* field = fields; field != fields + count; ++field) {
            GlobalRegRecord record = whole;
            char* member = reinterpret_cast<char*>(&record) + field->offset;
            std::memset(member, field->kind == GLOBALREG_FIELD_TEXT ? 0 : 0xff, field->capacity);
            EXPECT_EQ(validate(1, record), codeOf(REFUSED[index], field->bit)) << type << ' ' << field->name;
            record.fieldMask &= ~field->bit;
            record.fieldMask |= 1UL << 12;
            EXPECT_EQ(validate(field->bit, record), codeOf(MISSING[index], field->bit)) << type << ' ' << field->name;
            EXPECT_EQ(validate(~field->bit, record), 0U) << "an absent field's contents are nobody's concern";
        }
    }
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

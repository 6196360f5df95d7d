// Records and their images: the bytes in the file.
#include "global/GlobalRecords.h"

namespace {

using namespace std::string_literals;

// Nothing of the tables is used here: these are the bytes that other releases have written.
TEST(Packing, AServiceHasTheseBytes) {
    GlobalRegRecord record = {};
    record.recordType = GLOBALREG_SERVICE;
    record.fieldMask = SERVICE_KNOWN_FIELDS;
    auto& body = record.body.service;
    put(body.service, "DAS");
    put(body.servicePath, "/p");
    put(body.serviceText, "t");
    body.versionCode = 1;
    body.fixpackNumber = 2;
    body.serviceNumber1 = 3;
    body.serviceFlag = 'F';
    body.serviceNumber2 = 4;
    body.serviceNumber3 = 0x01020304;
    EXPECT_EQ(pack(record),
              "\x02\0\0\0\xff\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
              "\x04\0DAS\0\x08\0\x01\0\0\0\0\0\0\0\x03\0/p\0\x01\0\0\x02\0t\0"
              "\x04\0\x02\0\0\0\x04\0\x03\0\0\0\x01\0F\x04\0\x04\0\0\0\x04\0\x04\x03\x02\x01"
              "\0\0\0\0"s);
}

TEST(Packing, EveryTypeComesBackAsItWas) {
    for (const unsigned int type : {GLOBALREG_INSTANCE, GLOBALREG_SERVICE, GLOBALREG_VARIABLE}) {
        for (const bool toTheBrim : {false, true}) {
            const GlobalRegRecord record = recordOf(type, ~0UL, toTheBrim);
            const std::string image = pack(record);
            const GlobalRegRecord back = unpacked(image);
            EXPECT_TRUE(bytesOf(back) == bytesOf(record)) << type << toTheBrim;
            EXPECT_EQ(pack(back, image), image);
        }
    }
    // The one image that outgrows its record.
    EXPECT_EQ(pack(recordOf(GLOBALREG_INSTANCE, ~0UL, true)).size(), 2620U);
    EXPECT_EQ(sizeof(GlobalRegRecord), 2608U);
}

// Items of bits that only a later release knows keep their bytes, their place and their bits.
TEST(Packing, FieldsOfALaterReleaseAreCarried) {
    const unsigned long later = 1UL << 10 | 1UL << 40 | 1UL << 62;
    const auto image = [&](unsigned long bit, const std::string& text) {
        RecordImage whole(GLOBALREG_INSTANCE, INSTANCE_SERVICE | bit | later, 0x1fe);
        whole.text("RVN").text(text);
        return whole.item("later\0ten"s).item("").item(std::string(3000, 'z')).end(7);
    };
    const std::string previous = image(INSTANCE_COMMENT, "old");
    GlobalRegRecord record = unpacked(previous);
    EXPECT_EQ(record.fieldMask, INSTANCE_SERVICE | INSTANCE_COMMENT | later);
    EXPECT_EQ(pack(record, previous), previous);

    // A new record that knows nothing of them keeps them too.
    put(record.body.instance.usage, "new");
    record.fieldMask = INSTANCE_SERVICE | INSTANCE_USAGE;
    EXPECT_EQ(pack(record, previous), image(INSTANCE_USAGE, "new"));
}

TEST(Packing, TheMaskPromisesNothingThatIsNotThere) {
    GlobalRegRecord record = recordOf(GLOBALREG_VARIABLE, VARIABLE_SERVICE);
    record.fieldMask |= 1UL << 5 | 1UL << 62 | 1UL << 63;
    const std::string image = RecordImage(GLOBALREG_VARIABLE, 1 | 1UL << 63).text("service").end();
    EXPECT_EQ(pack(record), image) << "no image to take the later fields from; the last bit has no item";
    EXPECT_EQ(pack(record, pack(recordOf(GLOBALREG_INSTANCE, ~0UL))), image)
        << "the bits of an instance mean nothing for a variable";
    record.recordType = 3;
    EXPECT_EQ(pack(record).size(), 24U);
}

// A member without its NUL never draws in what stands behind it.
TEST(Packing, AnUnterminatedMemberIsCut) {
    GlobalRegRecord record = recordOf(GLOBALREG_SERVICE, SERVICE_SERVICE);
    std::memset(record.body.service.service, 's', 64);
    record.body.service.versionCode = ~0UL;
    EXPECT_EQ(pack(record), RecordImage(GLOBALREG_SERVICE, 1).text(std::string(63, 's')).end());
}

TEST(Packing, ShortAndOddItemsAreTaken) {
    const unsigned long mask =
        INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME | INSTANCE_START_AT_BOOT | INSTANCE_COMMENT;
    RecordImage image(GLOBALREG_INSTANCE, mask, 0x8000);
    image.item("bare").item("\x05").item("").item("\x01\x02").item(std::string(255, 'c'));
    const GlobalRegRecord record = unpacked(image.end());
    EXPECT_STREQ(record.body.instance.service, "bare");
    EXPECT_EQ(record.body.instance.versionCode, 5U);
    EXPECT_STREQ(record.body.instance.instanceName, "");
    EXPECT_EQ(record.body.instance.startAtBoot, 0x201);
    EXPECT_EQ(std::strlen(record.body.instance.comment), 255U);
    EXPECT_EQ(record.missingFieldMask, 0x8000U | 0x1d8U);
}

TEST(Packing, AnUnknownTypeIsRefusedAndLeftAlone) {
    for (const unsigned int type : {0U, 3U, 5U, 8U, 0xffffffffU}) {
        const std::string image = RecordImage(type, ~0UL).end();
        const Block block = blockOf(image.data(), image.size());
        void* buffer = block.get();
        EXPECT_EQ(GlobalReg::UnpackRecord(&buffer), REG_UNKNOWN_RECORD_TYPE);
        EXPECT_EQ(std::memcmp(buffer, image.data(), image.size()), 0);
        unsigned long size = 0;
        EXPECT_EQ(GlobalReg::GetPackedRecordSize(buffer, &size), 0U);
        EXPECT_EQ(size, 24U);
        EXPECT_EQ(slots().checkPacked(image.data(), image.size()), REG_UNKNOWN_RECORD_TYPE);
    }
}

using PackedRegistry = GlobalScratch;

TEST_F(PackedRegistry, ANullKeyAsksForEveryRecord) {
    const GlobalRegRecord record = recordOf(GLOBALREG_SERVICE, SERVICE_KNOWN_FIELDS);
    writeFrames({pack(record), pack(recordOf(GLOBALREG_VARIABLE, ~0UL))});
    GlobalReg registry;
    GlobalRegRecord found;
    ASSERT_EQ(registry.OpenScan(), 0U);
    EXPECT_EQ(registry.GetNext(0, nullptr, &found), 0U);
    EXPECT_TRUE(bytesOf(found) == bytesOf(record));
    EXPECT_EQ(registry.GetNext(0, nullptr, &found), 0U);
    EXPECT_EQ(registry.CloseScan(), 0U);
    EXPECT_EQ(registry.Get(0, nullptr, &found), 0U);
    EXPECT_EQ(registry.Delete(0, nullptr), REG_SEVERAL_MATCH);
}

}  // namespace

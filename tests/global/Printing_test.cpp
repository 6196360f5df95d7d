// The printed form of a record.
#include "global/Records.h"

namespace {

std::string printed(GlobalRegRecord record) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(GlobalReg::PrintRecord(&record), 0U);
    return testing::internal::GetCapturedStdout();
}

TEST(Printing, AnInstanceShowsWhatItsMembersHold) {
    GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, ~0UL);
    record.fieldMask = 1UL << 63;
    record.missingFieldMask = 5;
    record.checksum = -7;
    record.body.instance.versionCode = VERSION_9_7_0_2;
    record.body.instance.maintenance = -1;
    EXPECT_EQ(printed(record),
              "   RecordType   = 1\n"
              "   FieldMask    = -9223372036854775808\n"
              "   MissingFieldMask = 5\n"
              "   InstanceRecord:\n"
              "      Service      = |service|\n"
              "      VersionCode  = 2533304855166978\n"
              "      InstanceName = |instanceName|\n"
              "      InstancePath = |instancePath|\n"
              "      Usage        = |usage|\n"
              "      StartAtBoot  = 1\n"
              "      Maintenance  = -1\n"
              "      Comment      = |comment|\n"
              "      CheckSum    = -7\n");
}

TEST(Printing, TheOtherTypes) {
    const std::string masks = "   FieldMask    = 1\n   MissingFieldMask = 0\n";
    EXPECT_EQ(printed(recordOf(GLOBALREG_VARIABLE, VARIABLE_SERVICE)), "   RecordType   = 4\n" + masks +
                                                                           "   VariableRecord:\n"
                                                                           "      Service  = |service|\n"
                                                                           "      Variable = ||\n"
                                                                           "      Value    = ||\n"
                                                                           "      Comment  = ||\n"
                                                                           "      CheckSum    = 0\n");
    EXPECT_EQ(printed(recordOf(GLOBALREG_SERVICE, SERVICE_SERVICE)),
              "   RecordType   = 2\n" + masks + "Services record not yet implemented\n");
    GlobalRegRecord strange = {};
    strange.recordType = 3;
    strange.fieldMask = 1;
    EXPECT_EQ(printed(strange), "   RecordType   = 3\n" + masks);
}

}  // namespace

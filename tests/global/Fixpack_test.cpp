// The fixpack numbers, brought up to the running level.
#include <install/Install.h>

#include "global/GlobalRecords.h"

namespace {

class Fixpack : public GlobalScratch {
protected:
    void SetUp() override {
        SqleLevelInfo level = {};
        ASSERT_EQ(sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level), 0U);
        ASSERT_EQ(ossVersionStringToCode(level.versionString, &version_), 0U);
        running_ = static_cast<int>(level.fixpackNumber);
    }
    // A service of the running version with a field of a later release.
    [[nodiscard]] std::string service(const char* name, int fixpackNumber, unsigned long missing = 0x3dc) const {
        RecordImage image(2, 0x23 | 1UL << 30, missing);
        return image.text(name)
            .number(version_, 8)
            .number(static_cast<unsigned int>(fixpackNumber))
            .item("later")
            .end();
    }
    // How many were brought up, or the code.
    static std::string synchronised(GlobalReg& registry) {
        unsigned long updated = 99;
        const unsigned int rc = genregSyncGlobalRegFixpackNumber(&registry, &updated);
        EXPECT_TRUE(rc == 0 || updated == 99);
        return rc == 0 ? std::to_string(updated) : genregCodeName(rc);
    }

    int running_ = 0;
    unsigned long version_ = 0;
};

TEST_F(Fixpack, OwnServicesOfThisVersionAreBroughtUp) {
    const int old = running_ + 7;
    const auto file = [&](const std::string& rvn, const std::string& das) {
        writeFrames({rvn, pack(recordOf(GLOBALREG_INSTANCE, ~0UL)), service("OTHER", old), service("RVNX", old),
                     pack(recordOf(GLOBALREG_SERVICE, ~0UL)), das, service("das", old)});
        return bytes();
    };
    // A changed record goes without the note about absent fields; the second change, which reads and writes the first
    // one's record again, brings that one's back.
    const std::string expected = file(service("RVN", running_), service("DAS", running_, 0));
    (void)file(service("RVN", old), service("DAS", old));
    GlobalReg registry;
    EXPECT_EQ(synchronised(registry), "2");
    EXPECT_EQ(bytes(), expected);
    EXPECT_EQ(registry.GetChangeLoggingFuncID(), 0x082A0077U);
    EXPECT_EQ(synchronised(registry), "0");
    EXPECT_EQ(bytes(), expected);
}

TEST_F(Fixpack, TheFirstFailureIsReturnedAndNothingStaysOpen) {
    GlobalReg registry;
    writeFrames({service("RVN", running_ + 1), RecordImage(2, 1).item(std::string(64, 'x')).end()});
    EXPECT_EQ(synchronised(registry), "REG_UNPACK_FAILED") << "the scan's own code";
    // The record as it stands is none that could be written: its path is empty.
    RecordImage refused(2, 0x27);
    refused.text("RVN").number(version_, 8).text("").number(static_cast<unsigned int>(running_) + 1);
    writeFrames({service("DAS", running_ + 1), refused.end(), service("RVN", running_ + 1)});
    EXPECT_EQ(synchronised(registry), "REG_RECORD_REFUSED");
    EXPECT_EQ(registry.CloseReg(REG_OP_READ), 0U);
    OSSServiceInfo_t info = {};
    EXPECT_EQ(ossGetServiceInfo(const_cast<char*>("DAS"), 0, nullptr, &info), 0U);
    EXPECT_EQ(info.fixpackNumber, running_) << "what came before the failure stays";
    EXPECT_EQ(ossGetServiceInfo(const_cast<char*>("RVN"), 0, nullptr, &info), 0U);
    EXPECT_EQ(info.fixpackNumber, running_ + 1);
}

}  // namespace

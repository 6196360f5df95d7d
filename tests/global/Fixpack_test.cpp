// The fixpack numbers, brought up to the running level.
#include <install/Install.h>

#include "global/Records.h"
#include "global/World.h"

namespace {

class Fixpack : public RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        ASSERT_EQ(sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level_), 0U);
        ASSERT_EQ(ossVersionStringToCode(level_.versionString, &version_), 0U);
    }
    // A service of the running version with a field of a later release.
    [[nodiscard]] std::string service(const char* name, int fixpackNumber, unsigned long missing = 0x3dc) const {
        return Image(2, 0x23 | 1UL << 30, missing)
            .text(name)
            .number(8, 2)
            .number(version_, 8)
            .number(4, 2)
            .number(static_cast<unsigned int>(fixpackNumber), 4)
            .item("later")
            .end();
    }
    [[nodiscard]] int running() const { return static_cast<int>(level_.fixpackNumber); }
    [[nodiscard]] unsigned long version() const { return version_; }

private:
    SqleLevelInfo level_ = {};
    unsigned long version_ = 0;
};

TEST_F(Fixpack, OwnServicesOfThisVersionAreBroughtUp) {
    const int old = running() + 7;
    const auto file = [&](const std::string& rvn, const std::string& das) {
        writeFrames({rvn, pack(recordOf(GLOBALREG_INSTANCE, ~0UL)), service("OTHER", old), service("RVNX", old),
                     pack(recordOf(GLOBALREG_SERVICE, ~0UL)), das, service("das", old)});
        return contentsOf(path());
    };
    // A changed record goes without the note about absent fields; the second change, which reads and writes the first
    // one's record again, brings that one's back.
    const std::string expected = file(service("RVN", running()), service("DAS", running(), 0));
    (void)file(service("RVN", old), service("DAS", old));
    GlobalReg registry;
    unsigned long updated = 99;
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &updated), 0U);
    EXPECT_EQ(updated, 2U);
    EXPECT_EQ(contentsOf(path()), expected);
    EXPECT_EQ(registry.GetChangeLoggingFuncID(), 0x082A0077U);
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &updated), 0U);
    EXPECT_EQ(updated, 0U);
    EXPECT_EQ(contentsOf(path()), expected);
}

TEST_F(Fixpack, AServiceWithoutANumberIsLeftAlone) {
    OSSServiceInfo_t info = {};
    info.versionCode = version();
    put(info.service, "RVN");
    ASSERT_EQ(ossSetServiceInfo(&info), 0U);
    GlobalReg registry;
    unsigned long updated = 99;
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &updated), 0U);
    EXPECT_EQ(updated, 0U);
}

TEST_F(Fixpack, TheFirstFailureIsReturnedAndNothingStaysOpen) {
    GlobalReg registry;
    unsigned long updated = 99;
    writeFrames({service("RVN", running() + 1), Image(2, 1, 0).item(std::string(64, 'x')).end()});
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &updated), 0x90000254U) << "the scan's own code";
    // The record as it stands is none that could be written: its path is empty.
    const std::string refused = Image(2, 0x27, 0)
                                    .text("RVN")
                                    .number(8, 2)
                                    .number(version(), 8)
                                    .text("")
                                    .number(4, 2)
                                    .number(static_cast<unsigned int>(running()) + 1, 4)
                                    .end();
    writeFrames({service("DAS", running() + 1), refused, service("RVN", running() + 1)});
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &updated), 0x900001fcU);
    EXPECT_EQ(updated, 99U);
    EXPECT_EQ(registry.CloseReg(REG_OP_READ), 0U);
    OSSServiceInfo_t info = {};
    EXPECT_EQ(ossGetServiceInfo(const_cast<char*>("DAS"), 0, nullptr, &info), 0U);
    EXPECT_EQ(info.fixpackNumber, running()) << "what came before the failure stays";
    EXPECT_EQ(ossGetServiceInfo(const_cast<char*>("RVN"), 0, nullptr, &info), 0U);
    EXPECT_EQ(info.fixpackNumber, running() + 1);
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(nullptr, &updated), 0x9000000cU);
}

}  // namespace

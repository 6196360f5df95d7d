// The scan and its position.
#include "support/VarValFile.h"

namespace {

class ScanTest : public RegistryTest {
protected:
    ScanTest() { write("reg", "a = 1\nb = 2\nc = 3\n"); }
};

TEST_F(ScanTest, PositionsBelongToAnOpenScan) {
    VarValFile file{reg()};
    long long position = 0;
    EXPECT_EQ(file.getRegFilePosition(&position), REG_SCAN_NOT_OPEN);
    EXPECT_EQ(file.setRegFilePosition(nullptr), REG_SCAN_NOT_OPEN);
    EXPECT_EQ(file.Rewind(), REG_REWIND_FAILED);
    EXPECT_EQ(file.CloseScan(), 0u);
    ASSERT_EQ(file.OpenScan(), 0u);
    GenRegVarValRecord record;
    EXPECT_EQ(file.GetNext(0, nullptr, &record), 0u);
    EXPECT_EQ(file.getRegFilePosition(&position), 0u);
    EXPECT_EQ(file.scanned(), "b c ");
    EXPECT_EQ(file.setRegFilePosition(&position), 0u);
    EXPECT_EQ(file.scanned(), "");  // only going back to the start ends the end
    EXPECT_EQ(file.Rewind(), 0u);
    EXPECT_EQ(file.setRegFilePosition(&position), 0u);
    EXPECT_EQ(file.scanned(), "b c ");
    EXPECT_EQ(file.CloseScan(), 0u);
    EXPECT_EQ(file.scanned(), "REG_SCAN_NOT_OPEN");
}

TEST_F(ScanTest, ItExcludesOtherWorkOfItsObjectAndSeesTheVersionThatItOpened) {
    VarValFile file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.OpenReg(REG_OP_READ), REG_SCAN_OPEN);
    EXPECT_EQ(file.CloseReg(REG_OP_READ), REG_SCAN_OPEN);
    EXPECT_EQ(file.add("d", "4"), REG_OPEN_FAILED);
    VarValFile writer{reg()};
    EXPECT_EQ(writer.remove("b"), 0u);
    EXPECT_EQ(file.scanned(), "a b c ");
    EXPECT_EQ(file.CloseScan(), 0u);
    EXPECT_EQ(file.OpenReg(REG_OP_READ), 0u);
    EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "a c ");
}

TEST_F(ScanTest, ReopeningStartsOverAndAFailedReopeningEndsTheScan) {
    VarValFile file{reg()};
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "a b c ");
    ASSERT_EQ(file.OpenScan(), 0u);
    EXPECT_EQ(file.scanned(), "a b c ");
    VarValFile fails{reg()};
    ASSERT_EQ(fails.OpenScan(), 0u);
    remove("reg");
    EXPECT_EQ(fails.OpenScan(), REG_OPEN_FILE_FAILED);
    EXPECT_EQ(fails.scanned(), "REG_SCAN_NOT_OPEN");
}

}  // namespace

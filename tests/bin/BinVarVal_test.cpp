// The binary variable/value form.
#include <genreg/GenRegBinVarVal.h>

#include "support/BinRegistry.h"

namespace {

using Record = GenRegBinVarValRecord;

class BinVarVal : public BinRegistry {
protected:
    static Record record(const char* variable, int value, const char* comment = "") {
        Record made = {};
        (void)std::snprintf(made.variable, sizeof made.variable, "%s", variable);
        made.value = value;
        (void)std::snprintf(made.comment, sizeof made.comment, "%s", comment);
        return made;
    }
    static std::string frame(const Record& record) {
        return binFrame(std::string(reinterpret_cast<const char*>(&record), sizeof record));
    }
};

TEST_F(BinVarVal, RecordsGoThroughTheirLife) {
    unsigned int rc = 7;
    GenRegBinVarVal registry(file().c_str(), &rc);
    EXPECT_EQ(rc, 0U);
    Record port = record("port", 5000, "main");
    Record size = record("size", -1);
    Record again = record("port", 6000);
    ASSERT_EQ(registry.Add(BINVARVAL_MATCH_VARIABLE, &port), 0U);
    ASSERT_EQ(registry.Add(BINVARVAL_MATCH_VARIABLE, &size), 0U);
    ASSERT_EQ(registry.Add(BINVARVAL_MATCH_VARIABLE, &again), 0U);  // a name may come twice
    EXPECT_EQ(contents(), frame(port) + frame(size) + frame(again));
    EXPECT_EQ(contents().size(), 120U);

    Record found = {};
    ASSERT_EQ(registry.Get(BINVARVAL_MATCH_VARIABLE, &again, &found), 0U);
    EXPECT_EQ(found.value, 5000);
    ASSERT_EQ(registry.Get(BINVARVAL_MATCH_VARIABLE | BINVARVAL_MATCH_VALUE, &again, &found), 0U);
    EXPECT_EQ(found.value, 6000);

    // The comment takes part in no comparison: changing it alone changes nothing.
    Record commented = record("size", -1, "new");
    EXPECT_EQ(registry.Change(BINVARVAL_MATCH_VARIABLE, &size, &commented), REG_UNCHANGED);
    EXPECT_EQ(contents(), frame(port) + frame(size) + frame(again));
    Record both = record("port", 7000, "both");
    ASSERT_EQ(registry.Change(BINVARVAL_MATCH_VARIABLE, &port, &both), 0U);
    EXPECT_EQ(contents(), frame(both) + frame(size) + frame(both));
    ASSERT_EQ(registry.Delete(BINVARVAL_MATCH_VARIABLE, &port), 0U);
    EXPECT_EQ(contents(), frame(size));
}

TEST_F(BinVarVal, PrintingStaysInsideTheFields) {
    Record shown;
    std::memset(&shown, 'z', sizeof shown);  // as a file may hold it: no terminator anywhere
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(GenRegBinVarVal::PrintRecord(&shown), 0U);
    const std::string z(16, 'z');
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "   Variable = |" + z + "|\n   Value    = 2054847098\n   Comment  = |" + z + "|\n");
}

}  // namespace

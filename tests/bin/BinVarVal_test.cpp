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
    static std::string printed(Record* record, unsigned int code) {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(GenRegBinVarVal::PrintRecord(record), code);
        (void)std::fflush(stdout);
        return ::testing::internal::GetCapturedStdout();
    }
};

TEST_F(BinVarVal, PathsAreTakenOrRefused) {
    unsigned int rc = 7;
    char buffer[REG_PATH_SIZE];
    const GenRegBinVarVal none(nullptr, &rc);
    EXPECT_EQ(rc, REG_EMPTY_ARGUMENT);
    const GenRegBinVarVal empty("", &rc);
    EXPECT_EQ(rc, REG_EMPTY_ARGUMENT);
    const GenRegBinVarVal tooLong(std::string(1018, 'p').c_str(), &rc);
    EXPECT_EQ(rc, REG_PATH_TOO_LONG);
    GenRegBinVarVal longest(std::string(1017, 'p').c_str(), &rc);
    EXPECT_EQ(rc, 0U);
    GenRegBinVarVal here("reg.bin", &rc);
    EXPECT_EQ(rc, 0U);
    EXPECT_EQ(here.getRegistryLockPath(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, ".reg.bin.lock");
    EXPECT_EQ(here.getRegistryBackupPath(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, ".reg.bin.bkp");
    GenRegBinVarVal there("/x/reg.bin", &rc);
    EXPECT_EQ(there.getRegistryLockPath(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "/x/.reg.bin.lock");
    EXPECT_EQ(there.getRegistryTmpPath(buffer, sizeof buffer), 0U);
    EXPECT_STREQ(buffer, "/x/reg.bin.tmp");
    EXPECT_TRUE(there.isFeatureSet(REG_FEATURE_DEFERRED_COMMIT) && there.isFeatureSet(REG_FEATURE_ALLOW_DUPLICATES));
    EXPECT_FALSE(there.isFeatureSet(REG_FEATURE_PACKED));
}

TEST_F(BinVarVal, RecordsGoThroughTheirLife) {
    unsigned int rc = 7;
    GenRegBinVarVal registry(file().c_str(), &rc);
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

TEST_F(BinVarVal, MatchingComparesWhatTheMaskSelects) {
    Record a = record("name", 1, "x");
    Record b = record("name", 2, "y");
    Record c = record("nam", 1, "x");
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(1, &a, &b), 1U);
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(2, &a, &b), 0U);
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(2, &a, &c), 1U);
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(1, &a, &c), 0U);
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(0, &b, &c), 1U);
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(0, nullptr, &c), 0U);
    EXPECT_EQ(GenRegBinVarVal::MatchRecord(0, &a, nullptr), 0U);
}

TEST_F(BinVarVal, PrintingShowsThreeLinesAndStaysInsideTheFields) {
    Record shown = record("port", -5, "main");
    EXPECT_EQ(printed(&shown, 0), "   Variable = |port|\n   Value    = -5\n   Comment  = |main|\n");
    EXPECT_EQ(printed(nullptr, REG_EMPTY_ARGUMENT), "   Variable = NULL\n");
    std::memset(&shown, 'z', sizeof shown);  // as a file may hold it: no terminator anywhere
    const std::string z(16, 'z');
    EXPECT_EQ(printed(&shown, 0), "   Variable = |" + z + "|\n   Value    = 2054847098\n   Comment  = |" + z + "|\n");
}

}  // namespace

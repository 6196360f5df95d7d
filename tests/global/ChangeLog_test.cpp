// The change log, to the letter.
#include <install/Install.h>

#include <ctime>

#include "global/GlobalRecords.h"

namespace {

constexpr char LOG[] = "/tmp/globalreg.debug";

class LogFile : public GlobalScratch {
protected:
    void SetUp() override { write(LOG, ""); }

    // What follows "REC=" in the line of this change.
    [[nodiscard]] std::string logged(unsigned long action, GlobalRegRecord first,
                                     GlobalRegRecord* second = nullptr) const {
        write(LOG, "");
        GlobalReg registry;
        EXPECT_EQ(GlobalReg::Log(&registry, action, &first, second), 0U);
        const auto lines = Scratch::lines(LOG);
        EXPECT_EQ(lines.size(), 1U);
        return lines.at(0).substr(lines.at(0).find(";REC=") + 5);
    }
    [[nodiscard]] std::string commandLine(int count, std::vector<std::string> arguments) const {
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        write(LOG, "");
        GlobalReg registry;
        registry.SetCommandLine(count, pointers.data());
        EXPECT_EQ(GlobalReg::Log(&registry, 4, nullptr, nullptr), 0U);
        const std::string line = read(LOG);
        const std::size_t from = line.find(";CL=") + 4;
        return line.substr(from, line.find(";REC=") - from);
    }
};

using ChangeLog = InPrivateWorld<LogFile>;

TEST_F(ChangeLog, TheLineHasThisForm) {
    GlobalRegRecord record = recordOf(GLOBALREG_INSTANCE, INSTANCE_SERVICE | INSTANCE_VERSION_CODE);
    record.body.instance.versionCode = VERSION_9_7_0_2;
    SqleLevelInfo level = {};
    ASSERT_EQ(sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &level), 0U);
    GlobalReg registry;
    EXPECT_EQ(GlobalReg::Log(&registry, REG_OP_ADD, &record, nullptr), 0U);
    registry.SetChangeLoggingFuncID(0x082A0079);
    EXPECT_EQ(GlobalReg::Log(&registry, 99, &record, &record), 0U);

    const auto line = [&](const std::string& time, const std::string& caller, const std::string& action) {
        return "TS=\"" + time + "\";CALLER=" + caller + ";PID=" + std::to_string(::getpid()) +
               ";U=" + std::to_string(::getuid()) + ";BL=" + level.buildLevel +
               ";FP=" + std::to_string(level.fixpackNumber) + ";PATH=" + GlobalScratch::registry() + ";ACT=" + action +
               ";CL=N/A;REC=I,service,9.7.0.2,,,,,,,,";
    };
    const auto log = lines(LOG);
    ASSERT_EQ(log.size(), 2U);
    const std::string time = log[0].substr(4, 24);
    EXPECT_EQ(log[0], line(time, "UNKNOWN", "Add"));
    EXPECT_EQ(log[1], line(log[1].substr(4, 24), "ossSetInstanceInfo", "Unknown"));
    std::tm parts = {};
    ASSERT_NE(::strptime(time.c_str(), "%a %b %e %H:%M:%S %Y", &parts), nullptr) << time;
    parts.tm_isdst = -1;
    EXPECT_NEAR(static_cast<double>(std::mktime(&parts)), static_cast<double>(std::time(nullptr)), 60);
}

TEST_F(ChangeLog, EveryTypeHasItsForm) {
    GlobalRegRecord service = recordOf(GLOBALREG_SERVICE, ~0UL);
    service.body.service.versionCode = 1;
    service.body.service.serviceFlag = 'F';
    service.body.service.serviceNumber2 = -5;
    const std::string whole = "S,service,0.0.0.1,servicePath,serviceAltPath,serviceText,1,1,F,-5,1";
    EXPECT_EQ(logged(REG_OP_ADD, service), whole);
    const GlobalRegRecord variable = recordOf(GLOBALREG_VARIABLE, ~0UL);
    EXPECT_EQ(logged(REG_OP_DELETE, variable, &service), "V,service,variable,value,comment");
    EXPECT_EQ(logged(REG_OP_CHANGE, variable, &service), "V,service,variable,value,comment!" + whole);
    EXPECT_EQ(logged(REG_OP_ADD, recordOf(GLOBALREG_INSTANCE, ~0UL & ~INSTANCE_USAGE)),
              "I,service,0.0.0.1,instanceName,instancePath,,1,1,extraPath,extraName,comment");
    GlobalRegRecord absent = service;
    absent.fieldMask = 0;
    EXPECT_EQ(logged(REG_OP_ADD, absent), "S,,,,,,,,,,");
    absent.recordType = 3;
    EXPECT_EQ(logged(REG_OP_ADD, absent), "");
    GlobalRegRecord full = recordOf(GLOBALREG_INSTANCE, ~0UL, true);
    const std::string most = logged(REG_OP_CHANGE, full, &full);
    EXPECT_EQ(most.size(), 2 * (sizeof "I,,0.0.0.1,,,,1,1,,," - 1 + 4UL * 63 + 2UL * 1023 + 255) + 1);
}

TEST_F(ChangeLog, TheCommandLineEndsAtWhatDoesNotFit) {
    EXPECT_EQ(commandLine(0, {"x"}), "N/A");
    EXPECT_EQ(commandLine(-1, {}), "N/A");
    EXPECT_EQ(commandLine(3, {"a", "", "b c"}), "\"a  b c\"");
    const std::string fits(1019, 'x');
    EXPECT_EQ(commandLine(1, {fits}), '"' + fits + '"');
    EXPECT_EQ(commandLine(1, {fits + 'x'}), "\"\"");
    EXPECT_EQ(commandLine(3, {"a", fits, "b"}), "\"a\"") << "a later one that would fit is not taken";
}

TEST_F(ChangeLog, OnlyAPlainFileThatIsThereIsWritten) {
    GlobalReg registry;
    GlobalRegRecord record = recordOf(GLOBALREG_SERVICE, 1);
    const auto log = [&] { return GlobalReg::Log(&registry, REG_OP_ADD, &record, nullptr); };
    remove(LOG);
    EXPECT_EQ(log(), 0U);
    EXPECT_FALSE(exists(LOG)) << "never created";

    write("/tmp/target", "");
    link("/tmp/target", LOG);
    EXPECT_EQ(log(), 0U);
    EXPECT_EQ(read("/tmp/target"), "");

    remove(LOG);
    ASSERT_EQ(::link("/tmp/target", LOG), 0);
    EXPECT_EQ(log(), 0U);
    EXPECT_EQ(read("/tmp/target"), "") << "a second name of somebody's file";

    for (const char* kind : {"fifo", "directory"}) {
        remove(LOG);
        ASSERT_EQ(*kind == 'f' ? ::mkfifo(LOG, 0666) : ::mkdir(LOG, 0777), 0);
        const int reader = ::open(LOG, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_EQ(log(), 0U) << kind;
        char byte = 0;
        EXPECT_LE(::read(reader, &byte, 1), 0) << "somebody waits at the end of the pipe";
        ::close(reader);
    }
}

TEST_F(ChangeLog, TheFileStaysItsOwnersAndOpenToAll) {
    ASSERT_EQ(::chmod(LOG, 0600), 0);
    ASSERT_EQ(::chown(LOG, 1234, 2345), 0);
    GlobalRegRecord record = recordOf(GLOBALREG_SERVICE, 1);
    GlobalReg registry;
    EXPECT_EQ(GlobalReg::Log(&registry, REG_OP_ADD, &record, nullptr), 0U);
    struct stat status = {};
    ASSERT_EQ(::stat(LOG, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0666U);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 2345U);
    EXPECT_GT(status.st_size, 0);
}

}  // namespace

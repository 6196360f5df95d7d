// The diagnostic log and the trace. Both read the environment at load, so each scenario runs this program anew.
#include <fcntl.h>
#include <osse/Log.h>
#include <osse/Time.h>
#include <osse/Trace.h>

#include "support/Pattern.h"
#include "support/Scratch.h"

namespace {

using LogTest = Scratch;

// What follows time, process and thread; empty when one of them is out of shape.
std::string afterStamp(const std::string& line) {
    const auto parts =
        matched(line, "[0-9]{4}-[01][0-9]-[0-3][0-9]T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{6}Z [0-9]+ [0-9]+ (.*)");
    return parts.empty() ? "" : parts[1];
}

constexpr OSSFunctionName NAMES[] = {{0x082A00F0, "OpenReg"}};

TEST(Scenario, DISABLED_Log) {
    ecfRegisterFunctionNames(NAMES, 1);
    errno = EXDEV;
    ossLog(0x082A00F0, 0x900001bf, 60, OSS_SEVERITY_ERROR, "two\nlines\x01");
    ossLogRC(0x082A0FF9, 0x900001bf, 0x90000102, 70, OSS_SEVERITY_INFO, nullptr);
    const std::string longText(5000, 'x');
    ossLog(0x082A00F0, 1, 80, OSS_SEVERITY_ERROR, longText.c_str());
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(LogTest, OneLinePerFailureAndNoMore) {
    ASSERT_EQ(runAnew("Log", {"RVN_DIAG_LOG=" + path("log")}), 0);
    const auto found = lines("log");
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(afterStamp(found[0]), "OpenReg(0x082A00F0) sev=3 code=0x900001bf probe=60 two.lines.");
    EXPECT_EQ(afterStamp(found[1]), "UNKNOWN(0x082A0FF9) sev=5 code=0x900001bf rc=0x90000102 probe=70");
    EXPECT_EQ(found[2].size(), 2047u);
}

TEST_F(LogTest, NothingIsWrittenThroughALinkOrIntoAPipe) {
    link("target", "link");
    EXPECT_EQ(runAnew("Log", {"RVN_DIAG_LOG=" + path("link")}), 0);
    EXPECT_FALSE(exists("target"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    const int reader = ::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(runAnew("Log", {"RVN_DIAG_LOG=" + path("pipe")}), 0);
    char byte;
    EXPECT_EQ(::read(reader, &byte, 1), 0);
    ::close(reader);
    EXPECT_EQ(runAnew("Log", {"RVN_DIAG_LOG=" + path("pipe")}), 0);  // and it does not wait for a reader
}

// The numbers of the log's descriptor and of the standard streams pass to files that must stay clean.
TEST(Scenario, DISABLED_TakenDescriptors) {
    std::fflush(nullptr);
    const char* const log = ::getenv("RVN_DIAG_LOG");
    if (log == nullptr) {
        ::_exit(2);
    }
    const std::string taken = std::string(log) + ".taken";
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        ::close(descriptor);
    }
    ossLog(1, 2, 10, OSS_SEVERITY_ERROR, "before");
    bool standard = false;
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
        standard = standard || (descriptor < 3 && ::fcntl(descriptor, F_GETFD) != -1);
        ::close(descriptor);
    }
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
        (void)::open(taken.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    }
    ossLog(1, 2, 20, OSS_SEVERITY_ERROR, "after");
    ::_exit(standard ? 1 : 0);
}

TEST_F(LogTest, ALineNeverGoesToAnotherFileThatHasItsDescriptor) {
    ASSERT_EQ(runAnew("TakenDescriptors", {"RVN_DIAG_LOG=" + path("log")}), 0);
    EXPECT_EQ(lines("log").size(), 2u);
    EXPECT_EQ(read("log.taken"), "");
}

TEST(Scenario, DISABLED_Trace) {
    ASSERT_TRUE(gtraceIsAttached() && gtraceIsEnabled());
    _gtraceEntry(1, ossThreadID());
    _gtraceVar(1, ossThreadID(), 10, 5, "text");
    _gtraceVar(1, ossThreadID(), 20, 3, "a\nb");
    _gtraceErrorVar(1, ossThreadID(), 30, 4, "\x01\x02\xff\x00");
    _gtraceVar(1, ossThreadID(), 40, 8, nullptr);
    const std::vector<char> large(4000, '\0');
    _gtraceVar(1, ossThreadID(), 50, large.size(), large.data());
    _gtraceExit(1, ossThreadID(), 0x900001bf);
}

TEST_F(LogTest, TheTraceTellsEntryValuesAndResult) {
    ASSERT_EQ(runAnew("Trace", {"RVN_TRACE=" + path("trace")}), 0);
    const auto found = lines("trace");
    const std::string ends[] = {" > UNKNOWN(0x00000001)",           " = UNKNOWN(0x00000001) 10 text",
                                " = UNKNOWN(0x00000001) 20 610a62", " ! UNKNOWN(0x00000001) 30 0102ff00",
                                " = UNKNOWN(0x00000001) 40 null",   "0000",
                                " < UNKNOWN(0x00000001) 0x900001bf"};
    ASSERT_EQ(found.size(), std::size(ends));
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_TRUE(found[i].ends_with(ends[i])) << found[i];
    }
}

}  // namespace

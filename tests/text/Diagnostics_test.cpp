// What traces, the diagnostic log and the last cause tell of an operation.
#include <genreg/Cause.h>
#include <osse/Errors.h>
#include <osse/Log.h>
#include <osse/Trace.h>

#include "support/Pattern.h"
#include "support/TextRegistry.h"

namespace {

class DiagnosticsTest : public RegistryTest {
protected:
    // Runs the scenario below with the variable set; what it wrote of its codes.
    [[nodiscard]] std::string run(const std::string& variable) const {
        EXPECT_EQ(runAnew("Updates", {variable, "DIRECTORY=" + path("")}), 0);
        return read("codes");
    }
};

TEST(Scenario, DISABLED_Updates) {
    const char* const given = ::getenv("DIRECTORY");
    ASSERT_NE(given, nullptr);
    const std::string directory = given == nullptr ? "" : given;
    std::ofstream(directory + "/reg") << "a = 1\nb\n";
    TextRegistry file{directory + "/reg", REG_FEATURE_DEFERRED_COMMIT};
    GenRegVarValRecord record;
    std::ofstream codes(directory + "/codes");
    codes << std::hex << file.change("a", "2") << ' ' << file.add("a", "3") << ' ' << file.add("b", "x # y") << ' '
          << file.remove("z") << ' ' << file.get("a", &record) << ' ' << file.CloseReg(REG_OP_READ) << ' ';
    TextRegistry missing{directory + "/missing"};
    codes << missing.change("a", "2");
    GenRegVarVal::PrintRecord(&record);
}

constexpr const char* REFUSED[] = {"b", "z = \"open", "x\"y =\"z", "\"q\" = \"z # \"", "\"only\""};

TEST(Scenario, DISABLED_Refusals) {
    const char* const path = ::getenv("REGISTRY");
    ASSERT_NE(path, nullptr);
    TextRegistry file{path == nullptr ? "" : path};
    GenRegVarValRecord record;
    EXPECT_EQ(file.get("k", &record), 0u);
    EXPECT_EQ(file.add("z", "1"), 0u);
}

constexpr const char* CODES = "0 900001f1 900001fb 900001f6 0 0 900001c5";

TEST_F(DiagnosticsTest, EachFailurePointLeavesALineInTheLog) {
    EXPECT_EQ(run("RVN_DIAG_LOG=" + path("log")), CODES);
    const std::string log = read("log");
    for (const char* expected :
         {"GenRegText::Add(0x082A0029) sev=3 code=0x900001f1 probe=120", "code=0x90000215 rc=0x90000207 probe=110",
          "code=0x9000027a probe=190", "code=0x900001fb rc=0x9000027a probe=210",
          "GenRegText::Delete(0x082A002B) sev=5 code=0x900001f6 probe=150", "OpenReg(0x082A0012) sev=5 code=0x90000513",
          "GenRegText::Change(0x082A002A) sev=3 code=0x900001c5 rc=0x90000513 probe=80"}) {
        EXPECT_NE(log.find(expected), std::string::npos) << expected << "\n" << log;
    }
}

TEST_F(DiagnosticsTest, ARefusedLineIsLoggedThoughAnotherIsLookedFor) {
    std::string text;
    for (const char* line : REFUSED) {
        text += std::string(line) + "\n";
    }
    const std::string taken = "# x\"\n\"a\" = \"b\" # \"\nk = 1\n";
    EXPECT_EQ(runAnew("Refusals", {"RVN_DIAG_LOG=" + path("log"), "REGISTRY=" + write("reg", text + taken)}), 0);
    std::size_t refused = 0;
    for (const std::string& line : lines("log")) {
        refused += line.find("probe=110") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(refused, 2 * std::size(REFUSED)) << "by the look-up and by the add\n" << read("log");
}

TEST_F(DiagnosticsTest, TracingChangesNoResultAndPairsEveryEntryWithAnExit) {
    EXPECT_EQ(run("RVN_TRACE=" + path("trace")), CODES);
    std::vector<std::string> stack;
    int entries = 0;
    for (const std::string& line : lines("trace")) {
        EXPECT_EQ(line.find("UNKNOWN"), std::string::npos) << line;
        const auto parts = matched(line, "[^ ]+ [0-9]+ [0-9]+ ([<>]) ([^)]+[)]).*");
        if (parts.empty()) {
            continue;  // a value
        }
        if (parts[1] == ">") {
            stack.push_back(parts[2]);
            ++entries;
        } else {
            ASSERT_FALSE(stack.empty());
            EXPECT_EQ(stack.back(), parts[2]) << line;
            stack.pop_back();
        }
    }
    EXPECT_TRUE(stack.empty());
    EXPECT_GT(entries, 50);
}

TEST_F(DiagnosticsTest, TheLastCauseIsTheInnermostFailureOfTheLastOperation) {
    const auto cause = [] {
        GenRegCause found = {};
        genregLastCause(&found);
        return found;
    };
    TextRegistry file{reg()};
    EXPECT_EQ(file.change("a", "2"), REG_OPEN_FAILED);
    EXPECT_EQ(cause().code, REG_MISSING);
    EXPECT_STREQ(ecfGetFunctionName(cause().function), "OpenReg");
    EXPECT_EQ(cause().probe, 50u);
    TextRegistry elsewhere{path("none/reg")};
    EXPECT_EQ(elsewhere.change("a", "2"), REG_LOCK_FAILED);
    EXPECT_EQ(cause().code, REG_OPEN_LOCK_FAILED);
    EXPECT_EQ(cause().platformCode, ossErrorMapSystem(ENOENT));
    write("reg", "broken\na = 1\n");
    EXPECT_EQ(file.add("b", "x # y"), REG_VERIFY_FAILED);
    EXPECT_EQ(cause().code, REG_VERIFY_OTHER_ADDED);
    EXPECT_EQ(file.change("a", "1"), REG_UNCHANGED);
    EXPECT_EQ(cause().code, REG_UNCHANGED);
    EXPECT_EQ(file.change("a", "2"), 0u);
    EXPECT_EQ(cause().code, 0u);  // the broken line was survived, and is no cause
    GenRegVarValRecord record;
    EXPECT_EQ(file.get("z", &record), REG_NOT_FOUND);
    EXPECT_EQ(cause().code, REG_NOT_FOUND);
}

}  // namespace

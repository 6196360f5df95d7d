// The installation path and the level file.
#include <install/Install.h>
#include <osse/Errors.h>

#include <cstring>

#include "support/Scratch.h"

namespace {

class InstallTest : public Scratch {
protected:
    InstallTest() { std::filesystem::create_directory(path("adm")); }

    [[nodiscard]] static SqleLevelInfo level() {
        SqleLevelInfo info;
        std::memset(&info, 0xff, sizeof info);
        EXPECT_EQ(sqleGetLevelInfo(SQLE_LEVEL_INFO_VERSION, &info), 0u);
        return info;
    }

private:
    const Variable override_{"RVN_INSTALL_PATH_OVERRIDE", path("").c_str()};
};

TEST_F(InstallTest, EachLineOfTheLevelFileWinsByItself) {
    const SqleLevelInfo compiledIn = level();
    write("adm/level", "# level\nfixpack=7\nversion=10.1.0.0\nunknown=1");
    EXPECT_STREQ(level().versionString, "10.1.0.0");
    EXPECT_STREQ(level().buildLevel, compiledIn.buildLevel);
    EXPECT_EQ(level().fixpackNumber, 7u);
    write("adm/level", "build=s20");
    EXPECT_STREQ(level().buildLevel, "s20");
    EXPECT_STREQ(level().versionString, compiledIn.versionString);
}

TEST_F(InstallTest, LinesThatAreNotUnderstoodChangeNothing) {
    const SqleLevelInfo compiledIn = level();
    for (const std::string& text :
         {std::string("fixpack=-1\nfixpack=3x\nfixpack=\nfixpack=99999999999999999999999\n fixpack=4\n"),
          "version=\nversion=" + std::string(24, '9') + "\nbuild=a\x01z\nbuild\n=\n", std::string(5000, '=')}) {
        write("adm/level", text);
        const SqleLevelInfo found = level();
        EXPECT_STREQ(found.versionString, compiledIn.versionString) << text;
        EXPECT_STREQ(found.buildLevel, compiledIn.buildLevel) << text;
        EXPECT_EQ(found.fixpackNumber, compiledIn.fixpackNumber) << text;
    }
}

TEST_F(InstallTest, ThePathIsHandedOutWholeOrNotAtAll) {
    const std::string whole = path("");
    std::string buffer(whole.size() + 2, '?');
    EXPECT_EQ(sqloInstallPath(whole.size() + 1, buffer.data()), 0u);
    EXPECT_EQ(buffer, whole + std::string("\0?", 2));
    for (const unsigned long size : {whole.size(), 1UL, 0UL}) {
        buffer.assign(buffer.size(), '?');
        EXPECT_EQ(sqloInstallPath(size, buffer.data()), OSS_BUFFER_TOO_SMALL);
        EXPECT_EQ(buffer[0], size == 0 ? '?' : '\0');
        EXPECT_EQ(buffer[size], '?');
    }
    EXPECT_EQ(sqloInstallPath(1, nullptr), OSS_NULL_POINTER);
}

TEST_F(InstallTest, ASetuidProgramListensToNoEnvironment) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to make a set-user-ID program";
    }
    const std::string program = path("program");
    std::filesystem::copy_file(this_system::PROGRAM, program);
    ::chmod(program.c_str(), 04755);
    const int result = inChild([&] {
        if (::setgid(12345) != 0 || ::setuid(12345) != 0) {
            return 2;
        }
        ::execl(program.c_str(), "program", "--gtest_filter=Scenario.DISABLED_PathIsCompiledIn",
                "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
        return 2;
    });
    if (result != 0 && result != 1) {
        GTEST_SKIP() << "the copy cannot run as another user here";
    }
    EXPECT_EQ(result, 0);
}

TEST(Scenario, DISABLED_PathIsCompiledIn) {
    if (::geteuid() == ::getuid()) {
        ::_exit(2);  // the file system grants no set-user-ID bits
    }
    char text[1024];
    ASSERT_NE(::getenv("RVN_INSTALL_PATH_OVERRIDE"), nullptr);
    ASSERT_EQ(sqloInstallPath(sizeof text, text), 0u);
    EXPECT_STRNE(text, ::getenv("RVN_INSTALL_PATH_OVERRIDE"));
}

}  // namespace

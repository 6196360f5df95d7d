// Where the registry lies, and what an object makes of it.
#include <install/Install.h>
#include <pwd.h>

#include "global/GlobalRecords.h"

namespace {

constexpr char DEFAULT_PATH[] = "/var/rvn/global.reg";

struct Answer {
    unsigned int code;
    std::string path;
    unsigned short length;
};
Answer ask(bool useDefaultPath, unsigned short capacity = 1024) {
    std::string buffer(65536, '#');
    const unsigned int code = GetGlobalRegPathnameInternal(buffer.data(), &capacity, useDefaultPath);
    return {code, code == 0 ? std::string(buffer.c_str()) : buffer.substr(0, 4), capacity};
}

TEST(Path, TheLengthTellsWhatIsNeeded) {
    const Variable path("RVN_GLOBAL_REG_PATHNAME", nullptr);
    const Answer tooSmall = ask(true, 19);
    EXPECT_EQ(tooSmall.code, 0x90000258U);
    EXPECT_EQ(tooSmall.length, 20);
    EXPECT_EQ(tooSmall.path, "####") << "nothing is copied";
    EXPECT_EQ(ask(true, 20).path, DEFAULT_PATH);
    EXPECT_EQ(ask(true, 20).length, 20);
    const Variable huge("RVN_GLOBAL_REG_PATHNAME", std::string(65600, 'x').c_str());
    EXPECT_EQ(ask(false, 65535).code, 0x90000258U) << "a length beyond what the argument can tell";
    EXPECT_EQ(ask(false, 65535).length, 65535);
}

// Somebody whose home may be made here.
const passwd* userUnder(const std::string& place) {
    ::setpwent();
    const passwd* user = ::getpwent();
    while (user != nullptr && !std::string(user->pw_dir).starts_with(place)) {
        user = ::getpwent();
    }
    return user;
}

// The tool of an instance vouches for its directory only when it runs as root.
using PathOfAnInstance = InPrivateWorld<Scratch>;
TEST_F(PathOfAnInstance, AToolOfRootLeadsToIt) {
    const passwd* user = userUnder("/var/");
    if (user == nullptr) {
        GTEST_SKIP() << "nobody has a home in /var";
    }
    const std::string home = user->pw_dir;
    const Variable instance("RVNINSTANCE", user->pw_name);
    std::filesystem::create_directories(home + "/rvnhome/adm");
    const std::string tool = write(home + "/rvnhome/adm/rvntool", "");
    EXPECT_EQ(ask(false).path, DEFAULT_PATH);
    ASSERT_EQ(::chmod(tool.c_str(), 04755), 0);
    EXPECT_EQ(ask(false).path, home + "/rvnhome/global.reg");
    EXPECT_EQ(ask(true).path, DEFAULT_PATH);
}

TEST(GlobalRegObject, WithoutAUsablePathThereIsNoFile) {
    const auto lockPathOf = [](GlobalReg& registry) {
        char path[1024];
        return std::string(registry.getRegistryLockPath(path, sizeof path) == 0 ? path : "?");
    };
    const Variable path("RVN_GLOBAL_REG_PATHNAME", "/some/where/global.reg");
    Slots registry;
    EXPECT_EQ(lockPathOf(registry), "/some/where/.global.reg.lock");
    EXPECT_EQ(registry.features, 0x65U);
    EXPECT_EQ(registry.CheckFuncPtrs(), 0U);
    for (const std::string& bad : {std::string(), std::string(1018, 'x'), std::string(1100, 'x')}) {
        ::setenv("RVN_GLOBAL_REG_PATHNAME", bad.c_str(), 1);
        registry.init(false);
        EXPECT_EQ(registry.state & REG_STATE_CONFIGURED, 0U) << bad.size();
        EXPECT_EQ(lockPathOf(registry), "");
        EXPECT_NE(registry.OpenScan(), 0U);
    }
    ::setenv("RVN_GLOBAL_REG_PATHNAME", std::string(1017, 'x').c_str(), 1);
    registry.init(false);
    EXPECT_NE(registry.state & REG_STATE_CONFIGURED, 0U);
}

}  // namespace

// The registry path and its companions.
#include "support/VarValFile.h"

namespace {

// "registry|backup|lock|set aside|temporary"
std::string paths(GenRegFile& file) {
    char buffer[REG_PATH_SIZE];
    std::string all;
    for (const auto get :
         {&GenRegFile::getRegistryPath, &GenRegFile::getRegistryBackupPath, &GenRegFile::getRegistryLockPath,
          &GenRegFile::getRegistryCorruptTmpPath, &GenRegFile::getRegistryTmpPath}) {
        EXPECT_EQ((file.*get)(buffer, sizeof buffer), 0u);
        all += std::string(all.empty() ? "" : "|") + buffer;
    }
    return all;
}

TEST(Paths, CompanionsLieBesideTheRegistry) {
    const struct {
        const char* path;
        const char* expected;
    } cases[] = {
        {"reg.dat", "reg.dat|.reg.dat.bkp|.reg.dat.lock|reg.dat.cor|reg.dat.tmp"},
        {"/d/e/r", "/d/e/r|/d/e/.r.bkp|/d/e/.r.lock|/d/e/r.cor|/d/e/r.tmp"},
    };
    for (const auto& sample : cases) {
        VarValFile file{sample.path};
        EXPECT_EQ(file.code, 0u);
        EXPECT_EQ(paths(file), sample.expected);
    }
}

TEST(Paths, AnEmptyOrOverlongPathLeavesTheObjectUnconfigured) {
    EXPECT_EQ(VarValFile(std::string(1017, 'x')).code, 0u);
    VarValFile tooLong{std::string(1018, 'x')};
    EXPECT_EQ(tooLong.code, REG_PATH_TOO_LONG);
    EXPECT_EQ(tooLong.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10), REG_NOT_CONFIGURED);
    EXPECT_EQ(tooLong.OpenScan(), REG_NOT_CONFIGURED);
    EXPECT_EQ(VarValFile("").code, REG_EMPTY_ARGUMENT);
    unsigned int rc = 0;
    const GenRegVarVal null{nullptr, &rc};
    EXPECT_EQ(rc, REG_EMPTY_ARGUMENT);
}

TEST(Paths, ABufferMustHoldThePathAndItsTerminator) {
    VarValFile file{"abc"};
    char buffer[5] = "----";
    EXPECT_EQ(file.getRegistryPath(buffer, 3), REG_BUFFER_TOO_SMALL);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(file.getRegistryPath(buffer, 4), 0u);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(file.getRegistryPath(buffer, 0), REG_BUFFER_TOO_SMALL);
    EXPECT_STREQ(buffer, "abc");
}

class LinkTest : public RegistryTest {
protected:
    void link(const std::string& target, const std::string& name) const {
        ASSERT_EQ(::symlink(target.c_str(), path(name).c_str()), 0);
    }
};

TEST_F(LinkTest, EveryKindOfLinkLeadsToTheRealFileAndItsCompanions) {
    std::filesystem::create_directories(path("a"));
    std::filesystem::create_directories(path("b"));
    link("../b/real", "a/link");
    link("link", "a/chain");
    link(path("b/real"), "absolute");
    std::string last = "b/real";
    for (int i = 0; i < 40; ++i) {
        link(last, "l" + std::to_string(i));
        last = "l" + std::to_string(i);
    }
    for (const char* name : {"a/link", "a/chain", "absolute", "l39"}) {
        std::ofstream(path("b/real")) << "x = 1\n";
        VarValFile file{path(name)};
        ASSERT_EQ(file.change("x", "2"), 0u) << name;
        EXPECT_EQ(read(path("b/real")), "x = 2\n") << name;
        EXPECT_TRUE(std::filesystem::is_symlink(path(name)));
        EXPECT_TRUE(std::filesystem::exists(path("b/.real.lock"))) << name;
        std::filesystem::remove(path("b/.real.lock"));
    }
    VarValFile file{path("a/link")};
    (void)file.GetAndSetRealRegistryPaths();
    const std::string there = path("a/../b/");
    EXPECT_EQ(paths(file), there + "real|" + there + ".real.bkp|" + there + ".real.lock|" + there + "real.cor|" +
                               there + "real.tmp");
}

TEST_F(LinkTest, CirclesAndChainsBeyondFortyAreLeftAsTheyAre) {
    link("two", "one");
    link("one", "two");
    (void)write("real", "x = 1\n");
    std::string last = "real";
    for (int i = 0; i < 41; ++i) {
        link(last, "l" + std::to_string(i));
        last = "l" + std::to_string(i);
    }
    for (const char* name : {"one", "l40"}) {
        VarValFile file{path(name)};
        (void)file.GetAndSetRealRegistryPaths();
        EXPECT_STREQ(file.regPath, path(name).c_str());
        EXPECT_EQ(file.change("x", "2"), REG_OPEN_FAILED) << name;
    }
    EXPECT_EQ(read(path("real")), "x = 1\n");
}

TEST_F(LinkTest, ALinkToNothingIsFilledByAnAdd) {
    link("missing", "link");
    VarValFile file{path("link")};
    EXPECT_EQ(file.change("x", "1"), REG_OPEN_FAILED);
    EXPECT_EQ(file.add("x", "1"), 0u);
    EXPECT_EQ(read(path("missing")), "x = 1\n");
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
}

TEST_F(LinkTest, APathWithoutDirectoryIsFollowedFromTheCurrentOne) {
    EXPECT_TRUE(holdsInChild([&] {
        ASSERT_EQ(::chdir(path("").c_str()), 0);
        link("real", "link");
        (void)write("real", "x = 1\n");
        VarValFile file{"link"};
        EXPECT_EQ(file.change("x", "2"), 0u);
        EXPECT_STREQ(file.lockPath, "./.real.lock");
        EXPECT_EQ(read("real"), "x = 2\n");
        VarValFile plain{"plain"};
        EXPECT_EQ(plain.add("y", "1"), 0u);
        EXPECT_EQ(read("plain"), "y = 1\n");
        EXPECT_TRUE(std::filesystem::exists(".plain.lock"));
    }));
}

TEST_F(LinkTest, ALinkWhoseCompanionsWouldNotFitIsLeftAsItIs) {
    std::string target = "/";
    while (target.size() < 1000) {
        target += "d/";
    }
    target.resize(1018, 'x');
    link(target, "link");
    VarValFile file{path("link")};
    (void)file.GetAndSetRealRegistryPaths();
    EXPECT_STREQ(file.regPath, path("link").c_str());
}

}  // namespace

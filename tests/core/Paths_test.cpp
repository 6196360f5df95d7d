// The registry path and its companions.
#include "support/TextRegistry.h"

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
    TextRegistry here{"reg.dat"};
    EXPECT_EQ(paths(here), "reg.dat|.reg.dat.bkp|.reg.dat.lock|reg.dat.cor|reg.dat.tmp");
    TextRegistry there{"/d/e/r"};
    EXPECT_EQ(paths(there), "/d/e/r|/d/e/.r.bkp|/d/e/.r.lock|/d/e/r.cor|/d/e/r.tmp");
    char buffer[7];
    EXPECT_EQ(there.getRegistryPath(buffer, 7), 0u);
    EXPECT_EQ(there.getRegistryPath(buffer, 6), REG_BUFFER_TOO_SMALL);
    EXPECT_STREQ(buffer, "");
}

class LinkTest : public RegistryTest {
protected:
    // Links "l0", "l1" ... each to the one before it, the first to the target; the last one's name.
    [[nodiscard]] std::string chain(std::string target, int length) const {
        for (int i = 0; i < length; ++i) {
            link(target, "l" + std::to_string(i));
            target = "l" + std::to_string(i);
        }
        return target;
    }
};

TEST_F(LinkTest, EveryKindOfLinkLeadsToTheRealFileAndItsCompanions) {
    std::filesystem::create_directories(path("a"));
    std::filesystem::create_directories(path("b"));
    link("../b/real", "a/link");
    link("link", "a/chain");
    link(path("b/real"), "absolute");
    for (const std::string& name :
         {std::string("a/link"), std::string("a/chain"), std::string("absolute"), chain("b/real", 40)}) {
        write("b/real", "x = 1\n");
        TextRegistry file{path(name)};
        ASSERT_EQ(file.change("x", "2"), 0u) << name;
        EXPECT_EQ(read("b/real"), "x = 2\n") << name;
        EXPECT_TRUE(std::filesystem::is_symlink(path(name)));
        EXPECT_TRUE(exists("b/.real.lock")) << name;
        remove("b/.real.lock");
    }
    TextRegistry file{path("a/link")};
    (void)file.GetAndSetRealRegistryPaths();
    const std::string there = path("a/../b/");
    EXPECT_EQ(paths(file), there + "real|" + there + ".real.bkp|" + there + ".real.lock|" + there + "real.cor|" +
                               there + "real.tmp");
}

TEST_F(LinkTest, CirclesChainsBeyondFortyAndTargetsTooLongAreLeftAsTheyAre) {
    link("two", "one");
    link("one", "two");
    write("real", "x = 1\n");
    std::string target = "/";
    while (target.size() < 1000) {
        target += "d/";
    }
    target.resize(1018, 'x');  // its companions would not fit
    link(target, "long");
    for (const std::string& name : {std::string("one"), std::string("long"), chain("real", 41)}) {
        TextRegistry file{path(name)};
        (void)file.GetAndSetRealRegistryPaths();
        EXPECT_STREQ(file.regPath, path(name).c_str());
        EXPECT_EQ(file.change("x", "2"), REG_OPEN_FAILED) << name;
    }
    EXPECT_EQ(read("real"), "x = 1\n");
}

TEST_F(LinkTest, ALinkToNothingIsFilledByAnAdd) {
    link("missing", "link");
    TextRegistry file{path("link")};
    EXPECT_EQ(file.change("x", "1"), REG_OPEN_FAILED);
    EXPECT_EQ(file.add("x", "1"), 0u);
    EXPECT_EQ(read("missing"), "x = 1\n");
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
}

TEST_F(LinkTest, APathWithoutDirectoryIsFollowedFromTheCurrentOne) {
    EXPECT_EQ(inChild([&] {
                  EXPECT_EQ(::chdir(path("").c_str()), 0);
                  link("real", "link");
                  write("real", "x = 1\n");
                  TextRegistry file{"link"};
                  EXPECT_EQ(file.change("x", "2"), 0u);
                  EXPECT_STREQ(file.lockPath, "./.real.lock");
                  EXPECT_EQ(read("real"), "x = 2\n");
                  TextRegistry plain{"plain"};
                  EXPECT_EQ(plain.add("y", "1"), 0u);
                  EXPECT_EQ(read("plain"), "y = 1\n");
                  EXPECT_TRUE(exists(".plain.lock"));
                  return HasFailure() ? 1 : 0;
              }),
              0);
}

}  // namespace

// A file system without room.
#include <genreg/Cause.h>
#include <osse/Errors.h>
#include <sched.h>
#include <sys/mount.h>

#include "support/VarValFile.h"

namespace {

class DiskFullTest : public RegistryTest {
protected:
    // Runs the checks in a child that sees a file system of its own, of the size, in the directory.
    template <typename Body>
    void withRoomOf(const char* size, Body body) const {
        const int result = inChild([&] {
            if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount("tmpfs", path("").c_str(), "tmpfs", 0, size) != 0) {
                return 77;
            }
            body();
            std::fflush(nullptr);
            return ::testing::Test::HasFailure() ? 1 : 0;
        });
        if (result == 77) {
            GTEST_SKIP() << "mounting a small file system takes rights that this user has not";
        }
        EXPECT_EQ(result, 0);
    }
};

// On 24 KiB there is room for the file, the lock file, the ballast, and a part of a copy.
TEST_F(DiskFullTest, TheOldFileStandsAndUpdatesWorkAgainOnceThereIsRoom) {
    withRoomOf("size=24k", [&] {
        std::string old = "x = 1\n";
        while (old.size() < 7000) {
            old += "# a line that fills the file\n";
        }
        for (const unsigned long features : UPDATE_WAYS) {
            SCOPED_TRACE(features);
            (void)write("reg", old);
            std::ofstream(path("ballast")) << std::string(8192, 'b');
            VarValFile file{reg(), features};
            const bool inPlace = features == REG_FEATURE_ALLOW_DUPLICATES;
            EXPECT_EQ(file.change("x", "2"), REG_CLOSE_FAILED);
            GenRegCause cause = {};
            genregLastCause(&cause);
            EXPECT_EQ(cause.code, REG_CLOSE_TMP_FAILED);
            EXPECT_EQ(cause.platformCode, ossErrorMapSystem(ENOSPC));
            EXPECT_TRUE(content() == old);
            EXPECT_EQ(file.remove("x"), REG_CLOSE_FAILED);
            EXPECT_TRUE(content() == old);
            const std::string value(2000, 'v');
            EXPECT_EQ(file.add("y", value.c_str()), inPlace ? REG_RECORD_WRITE_FAILED : REG_COPY_WRITE_FAILED);
            EXPECT_TRUE(content() == old);
            EXPECT_FALSE(std::filesystem::exists(bkp()));
            std::filesystem::remove(path("ballast"));
            EXPECT_EQ(file.change("x", "2"), 0u);
            EXPECT_TRUE(content() == "x = 2" + old.substr(5));
            std::filesystem::remove(cor());
        }
    });
}

}  // namespace

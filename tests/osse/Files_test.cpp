// Directories of the platform, and files that vouch for somebody.
#include <osse/Errors.h>
#include <osse/Files.h>
#include <osse/OSSHFile.h>

#include <climits>

#include "support/Scratch.h"

namespace {

using FilesTest = Scratch;

TEST_F(FilesTest, DirectoriesAreCreatedWithTheirParentsOnlyWhenAsked) {
    const std::string deep = path("a//b/c/");
    OSSDirectoryCreateRequest request{OSS_REQUEST_VERSION, deep.c_str(), 0755, 1};
    EXPECT_EQ(ossDirectoryCreate(&request), ossErrorMapSystem(ENOENT));
    request.depth = 2;
    EXPECT_EQ(ossDirectoryCreate(&request), 0u);
    EXPECT_TRUE(ossIsDirectory(path("a/b/c").c_str()));
    EXPECT_EQ(ossDirectoryCreate(&request), 0u);
    const std::string file = write("file", "");
    request.path = file.c_str();
    EXPECT_EQ(ossDirectoryCreate(&request), ossErrorMapSystem(EEXIST));
    const std::string endless(PATH_MAX + 1, 'd');
    request.path = endless.c_str();
    EXPECT_EQ(ossDirectoryCreate(&request), ossErrorMapSystem(ENAMETOOLONG));
    request.version = 1;
    EXPECT_EQ(ossDirectoryCreate(&request), ossErrorMapSystem(EINVAL));
}

TEST_F(FilesTest, OnlyRootsOwnSetuidFilesCount) {
    const std::string file = write("file", "");
    ASSERT_EQ(ossFileSetPermissions(file.c_str(), 04751), 0u);
    EXPECT_EQ(ossPathIsSetuidRoot(file.c_str()) != 0, ::getuid() == 0);
    if (::getuid() == 0) {
        // Only a file, and only through links of root's.
        std::filesystem::create_directory(path("folder"));
        ASSERT_EQ(ossFileSetPermissions(path("folder").c_str(), 04755), 0u);
        EXPECT_EQ(ossPathIsSetuidRoot(path("folder").c_str()), 0);
        link("../file", "folder/link");
        link("folder", "short");
        link(path("short"), "whole");
        const std::string far = path("whole/../short/link");
        EXPECT_NE(ossPathIsSetuidRoot(far.c_str()), 0);
        for (const char* name : {"folder/link", "short", "whole"}) {
            ASSERT_EQ(::lchown(path(name).c_str(), 12345, 0), 0);
            EXPECT_EQ(ossPathIsSetuidRoot(far.c_str()), 0) << name;
            ASSERT_EQ(::lchown(path(name).c_str(), 0, 0), 0);
        }
        link("circle", "circle");
        EXPECT_EQ(ossPathIsSetuidRoot(path("circle").c_str()), 0);
        EXPECT_EQ(ossPathIsSetuidRoot(""), 0);
        ASSERT_EQ(::chown(file.c_str(), 12345, 0), 0);
        ASSERT_EQ(ossFileSetPermissions(file.c_str(), 04751), 0u);
        EXPECT_EQ(ossPathIsSetuidRoot(file.c_str()), 0);
    }
    OSSFileInfo info{};
    ASSERT_EQ(ossFileGetInfoV9(file.c_str(), &info), 0u);
    EXPECT_EQ(info.permissions, 04751u);
}

}  // namespace

// Files by path and by descriptor: nothing is followed, shared or half written by accident.
#include <fcntl.h>
#include <osse/Errors.h>
#include <signal.h>
#include <sys/resource.h>

#include <cerrno>

#include "../../platform/posix/Posix.h"
#include "Scratch.h"

namespace {

using FilesTest = Scratch;

TEST_F(FilesTest, AFreshFileIsPrivateAndNeverThePlantedOne) {
    const std::string planted = path("planted");
    ASSERT_EQ(::symlink(path("target").c_str(), planted.c_str()), 0);
    int descriptor = 99;
    EXPECT_EQ(posix::createFresh(planted.c_str(), false, &descriptor), ossErrorMapSystem(EEXIST));
    EXPECT_EQ(descriptor, -1);
    EXPECT_FALSE(posix::exists(path("target").c_str()));
    EXPECT_TRUE(posix::exists(planted.c_str()));
    EXPECT_EQ(posix::createIfMissing(planted.c_str(), 0644), 0u);
    EXPECT_FALSE(posix::exists(path("target").c_str()));

    const mode_t umaskBefore = ::umask(0);
    ASSERT_EQ(posix::createFresh(path("fresh").c_str(), true, &descriptor), 0u);
    ::umask(umaskBefore);
    posix::FileStatus status{};
    EXPECT_EQ(posix::statusOf(descriptor, &status), 0u);
    EXPECT_EQ(status.permissions, 0600u);
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    int second = 99;
    EXPECT_EQ(posix::createFresh(path("fresh").c_str(), true, &second), ossErrorMapSystem(EEXIST));
    EXPECT_EQ(second, -1);
    EXPECT_EQ(posix::createIfMissing(path("fresh").c_str(), 0644), 0u);
    EXPECT_TRUE(posix::isSameFile(descriptor, path("fresh").c_str()));
    std::filesystem::rename(planted, path("fresh"));
    EXPECT_FALSE(posix::isSameFile(descriptor, path("fresh").c_str()));
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
}

TEST_F(FilesTest, ExistingFilesAreOpenedWithoutFollowingOrWaiting) {
    int descriptor = 99;
    const std::string file = write("file", "0123456789");
    ASSERT_EQ(::symlink(file.c_str(), path("link").c_str()), 0);
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(posix::openToAppend(path("link").c_str(), &descriptor), ossErrorMapSystem(ELOOP));
    EXPECT_EQ(posix::openToPatch(path("link").c_str(), &descriptor), ossErrorMapSystem(ELOOP));
    EXPECT_EQ(posix::openToAppend(path("missing").c_str(), &descriptor), ossErrorMapSystem(ENOENT));
    EXPECT_EQ(posix::openToAppend(path("pipe").c_str(), &descriptor), ossErrorMapSystem(ENXIO));
    EXPECT_EQ(descriptor, -1);

    ASSERT_EQ(posix::openToAppend(file.c_str(), &descriptor), 0u);
    EXPECT_EQ(posix::writeOnce(descriptor, "+", 1), 0u);
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
    ASSERT_EQ(posix::openToPatch(file.c_str(), &descriptor), 0u);
    EXPECT_EQ(posix::writeAt(descriptor, "ab", 2, 3), 0u);
    char bytes[20] = {};
    std::size_t got = 99;
    EXPECT_EQ(posix::readAt(descriptor, bytes, sizeof bytes, 2, &got), 0u);
    EXPECT_EQ(std::string(bytes, got), "2ab56789+");
    EXPECT_EQ(posix::truncateTo(descriptor, 4), 0u);
    EXPECT_EQ(read(file), "012a");
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
    EXPECT_EQ(posix::closeDescriptor(descriptor), ossErrorMapSystem(EBADF));
    got = 99;
    EXPECT_EQ(posix::readAt(descriptor, bytes, 1, 0, &got), ossErrorMapSystem(EBADF));
    EXPECT_EQ(got, 99u);
}

TEST_F(FilesTest, AShortWriteIsAFailure) {
    EXPECT_EQ(inChild([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const struct rlimit limit = {10, 10};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  int descriptor = -1;
                  (void)posix::createFresh(path("f").c_str(), false, &descriptor);
                  const char bytes[16] = {};
                  if (posix::writeOnce(descriptor, bytes, sizeof bytes) != ossErrorMapSystem(ENOSPC)) {
                      return 1;
                  }
                  return posix::writeAt(descriptor, bytes, sizeof bytes, 5) == ossErrorMapSystem(EFBIG) ? 0 : 2;
              }),
              0);
}

TEST_F(FilesTest, LinksAreReadAndLinkedAsThemselves) {
    const std::string link = path("link");
    ASSERT_EQ(::symlink("target", link.c_str()), 0);
    char target[8];
    EXPECT_EQ(posix::readLink(link.c_str(), target, sizeof target), 6);
    EXPECT_STREQ(target, "target");
    EXPECT_EQ(posix::readLink(link.c_str(), target, 4), 3);
    EXPECT_STREQ(target, "tar");
    EXPECT_EQ(posix::readLink(path("missing").c_str(), target, sizeof target), -1);
    EXPECT_EQ(posix::readLink(link.c_str(), target, 0), -1);
    EXPECT_EQ(posix::linkFile(link.c_str(), path("second").c_str()), 0u);
    EXPECT_EQ(posix::readLink(path("second").c_str(), target, sizeof target), 6);
    EXPECT_EQ(posix::linkFile(link.c_str(), path("second").c_str()), ossErrorMapSystem(EEXIST));
}

TEST_F(FilesTest, SyncsAreAnsweredTruly) {
    int descriptor = -1;
    ASSERT_EQ(posix::createFresh(path("f").c_str(), false, &descriptor), 0u);
    EXPECT_EQ(posix::syncFile(descriptor), 0u);
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
    EXPECT_EQ(posix::syncFile(descriptor), ossErrorMapSystem(EBADF));
    EXPECT_EQ(posix::syncDirectory(path("").c_str()), 0u);
    EXPECT_EQ(posix::syncDirectory(path("f").c_str()), ossErrorMapSystem(ENOTDIR));
    EXPECT_EQ(posix::syncDirectory("/proc"), 0u);  // cannot be synced
}

}  // namespace

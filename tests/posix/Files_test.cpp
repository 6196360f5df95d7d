// Files by path and by descriptor, who holds a lock, and the signal to the holder: nothing is followed by accident.
#include <fcntl.h>
#include <osse/Errors.h>
#include <osse/OSSHFile.h>
#include <signal.h>
#include <sys/resource.h>

#include <cerrno>

#include "platform/posix/Posix.h"
#include "support/Scratch.h"

namespace {

using FilesTest = Scratch;

TEST_F(FilesTest, AFreshFileIsPrivateAndNeverThePlantedOne) {
    const std::string planted = path("planted");
    link("target", "planted");
    int descriptor = 99;
    EXPECT_EQ(posix::createFresh(planted.c_str(), false, &descriptor), ossErrorMapSystem(EEXIST));
    EXPECT_EQ(descriptor, -1);
    EXPECT_EQ(posix::createLockFile(planted.c_str(), "registry", 0644), 0u);
    EXPECT_EQ(names(), "planted");

    const std::string fresh = path("fresh");
    const mode_t umaskBefore = ::umask(0);
    ASSERT_EQ(posix::createFresh(fresh.c_str(), true, &descriptor), 0u);
    ::umask(umaskBefore);
    posix::FileStatus status{};
    EXPECT_EQ(posix::statusOf(descriptor, &status), 0u);
    EXPECT_EQ(status.permissions, 0600u);
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(posix::createLockFile(fresh.c_str(), "registry", 0644), 0u);
    EXPECT_TRUE(posix::isSameFile(descriptor, fresh.c_str()));
    std::filesystem::rename(planted, fresh);
    EXPECT_FALSE(posix::isSameFile(descriptor, fresh.c_str()));
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
}

TEST_F(FilesTest, ExistingFilesAreOpenedWithoutFollowingOrWaiting) {
    int descriptor = 99;
    const std::string file = write("file", "0123456789");
    link("file", "link");
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(posix::openToAppend(path("link").c_str(), &descriptor), ossErrorMapSystem(ELOOP));
    EXPECT_EQ(posix::openToPatch(path("link").c_str(), &descriptor), ossErrorMapSystem(ELOOP));
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
    EXPECT_EQ(read("file"), "012a");
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
    EXPECT_EQ(posix::closeDescriptor(descriptor), ossErrorMapSystem(EBADF));
}

TEST_F(FilesTest, AWriteThatTheSystemCutsShortIsGoneOnWith) {
    const std::string file = write("file", "");
    EXPECT_EQ(inChild([&] {
                  const rlimit limit{10, 10};
                  int descriptor = -1;
                  const bool ready = ::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && ::setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                                     posix::openToPatch(file.c_str(), &descriptor) == 0;
                  const std::string bytes(20, 'x');
                  const unsigned int rc = posix::writeAt(descriptor, bytes.data(), bytes.size(), 0);
                  return ready && rc == ossErrorMapSystem(EFBIG) ? 0 : 1;
              }),
              0);
    EXPECT_EQ(read("file").size(), 10U);
}

TEST_F(FilesTest, AFolderThatCannotBeSyncedIsNoFailure) {
    const std::string file = write("file", "");
    EXPECT_EQ(posix::syncDirectory(path("").c_str()), 0u);
    EXPECT_EQ(posix::syncDirectory(file.c_str()), ossErrorMapSystem(ENOTDIR));
    EXPECT_EQ(posix::syncDirectory("/proc"), 0u);
}

TEST_F(FilesTest, ALockOfTheSameProcessIsSeenAndStays) {
    const std::string file = write("file", "");
    bool locked = true;
    EXPECT_EQ(posix::isLocked(path("missing").c_str(), &locked), 0u);
    EXPECT_FALSE(locked);
    OSSHFile handle;
    const OSSFileOpenRequest request{OSS_REQUEST_VERSION, file.c_str(), OSS_OPEN_PLAIN, OSS_ACCESS_READ, 0, 0};
    const OSSFileLockRequest shared{OSS_REQUEST_VERSION, OSS_LOCK_SHARED, OSS_NO_WAIT};
    ASSERT_EQ(handle.open(&request), 0u);
    EXPECT_EQ(posix::isLocked(file.c_str(), &locked), 0u);
    EXPECT_FALSE(locked);
    ASSERT_EQ(handle.lock(&shared), 0u);
    const long descriptors = openDescriptors();
    for (int asked = 0; asked < 2; ++asked) {  // asking does not give it away
        EXPECT_EQ(posix::isLocked(file.c_str(), &locked), 0u);
        EXPECT_TRUE(locked);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    int descriptor = -1;
    long holder = 99;
    ASSERT_EQ(posix::openMonitorLock(file.c_str(), &descriptor), 0u);
    EXPECT_EQ(posix::recordLockHolder(descriptor, &holder), 0u);
    EXPECT_LT(holder, 1);  // such a lock names no process
    EXPECT_EQ(posix::closeDescriptor(descriptor), 0u);
    EXPECT_EQ(handle.close(), 0u);
}

TEST(Process, NoSignalGoesToWholeGroups) {
    EXPECT_EQ(inChild([] {
                  ::signal(SIGHUP, SIG_DFL);
                  ::setpgid(0, 0);
                  const unsigned int refused = ossErrorMapSystem(ESRCH);
                  return posix::sendHangup(0) == refused && posix::sendHangup(-::getpid()) == refused ? 0 : 1;
              }),
              0);
}

}  // namespace

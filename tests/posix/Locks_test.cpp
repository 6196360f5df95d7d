// Who holds a lock, and the signal to the holder.
#include <osse/Errors.h>
#include <osse/OSSHFile.h>
#include <signal.h>

#include <cerrno>

#include "platform/posix/Posix.h"
#include "support/Scratch.h"

namespace {

using LocksTest = Scratch;

TEST_F(LocksTest, ALockOfTheSameProcessIsSeenAndStays) {
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
    for (int asked = 0; asked < 2; ++asked) {  // asking does not give it away
        EXPECT_EQ(posix::isLocked(file.c_str(), &locked), 0u);
        EXPECT_TRUE(locked);
    }
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

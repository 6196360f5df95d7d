// The file handle: what its locks exclude, what a fork does to them, and which descriptors it hands out.
#include <fcntl.h>
#include <osse/Errors.h>
#include <osse/OSSHFile.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>

#include "support/Scratch.h"
#include "support/Ways.h"

namespace {

class HandleTest : public Scratch {
protected:
    std::string file_ = write("file", "contents");
};

unsigned int openFor(OSSHFile& file, const std::string& path, unsigned int access = OSS_ACCESS_READ_WRITE) {
    const OSSFileOpenRequest request{OSS_REQUEST_VERSION, path.c_str(), OSS_OPEN_PLAIN, access, 0, 0640};
    return file.open(&request);
}

unsigned int lockFor(OSSHFile& file, unsigned int type, unsigned int wait = OSS_NO_WAIT) {
    const OSSFileLockRequest request{OSS_REQUEST_VERSION, type, wait};
    return file.lock(&request);
}

bool lockedForOthers(const std::string& path) {
    return inChild([&] {
               const int descriptor = ::open(path.c_str(), O_RDWR);
               return lockAsOthers(descriptor) == -1 && errno == EAGAIN ? 1 : 0;
           }) == 1;
}

TEST_F(HandleTest, TwoHandlesOfOneProcessExcludeEachOther) {
    OSSHFile first, second;
    ASSERT_EQ(openFor(first, file_), 0u);
    ASSERT_EQ(openFor(second, file_), 0u);
    ASSERT_EQ(lockFor(first, OSS_LOCK_SHARED), 0u);
    ::close(::open(file_.c_str(), O_RDONLY));  // costs a classic lock its life
    EXPECT_TRUE(lockedForOthers(file_));
    EXPECT_EQ(lockFor(second, OSS_LOCK_SHARED), 0u);
    EXPECT_EQ(lockFor(second, OSS_LOCK_EXCLUSIVE), OSS_WOULD_BLOCK);
    ASSERT_EQ(first.unlock(), 0u);
    EXPECT_EQ(lockFor(second, OSS_LOCK_EXCLUSIVE), 0u);
    EXPECT_EQ(lockFor(first, OSS_LOCK_SHARED), OSS_WOULD_BLOCK);
    const int copy = ::dup(second.getFileHandle());  // as a child has one whose fork ran no handlers
    EXPECT_EQ(second.close(), 0u);
    EXPECT_FALSE(lockedForOthers(file_));
    ::close(copy);
    EXPECT_EQ(first.close(), 0u);
}

TEST_F(HandleTest, AClassicLockOfAnotherProgramExcludesTheHandle) {
    if (!MEETS_CLASSIC_LOCKS) {
        GTEST_SKIP() << "needs locks of open files that classic ones conflict with: flock has none on this system";
    }
    const int descriptor = ::open(file_.c_str(), O_RDWR);
    ASSERT_EQ(lockAsOthers(descriptor), 0);
    EXPECT_EQ(inChild([&] {
                  OSSHFile file;
                  return openFor(file, file_) == 0 && lockFor(file, OSS_LOCK_SHARED) == OSS_WOULD_BLOCK ? 0 : 1;
              }),
              0);
    ::close(descriptor);
}

TEST_F(HandleTest, ALockDiesWithItsOwnerWhateverChildrenLiveOn) {
    OSSHFile early;  // locked after the fork: its copy in the child is as dangerous
    ASSERT_EQ(openFor(early, path("early")), 0u);
    OSSHFile file;
    ASSERT_EQ(openFor(file, file_), 0u);
    ASSERT_EQ(lockFor(file, OSS_LOCK_EXCLUSIVE), 0u);
    const int descriptor = file.getFileHandle();
    const int earlyDescriptor = early.getFileHandle();
    int ready[2], end[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(end), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const unsigned int closed = ossErrorMapSystem(EBADF);
        const bool gone = file.getFileHandle() == -1 && lockFor(file, OSS_LOCK_SHARED) == closed &&
                          file.unlock() == closed && ::fcntl(descriptor, F_GETFD) == -1 &&
                          ::fcntl(earlyDescriptor, F_GETFD) == -1;
        const int taken = ::open("/dev/null", O_RDONLY);  // has the number of the one that is gone
        const bool spared = file.close() == closed && ::fcntl(taken, F_GETFD) != -1;
        OSSHFile own;  // the child locks for itself like any other process
        const bool excluded = openFor(own, file_) == 0 && lockFor(own, OSS_LOCK_EXCLUSIVE) == OSS_WOULD_BLOCK;
        (void)!::write(ready[1], gone && spared && excluded ? "+" : "-", 1);
        ::close(end[1]);
        char byte;
        (void)!::read(end[0], &byte, 1);
        ::_exit(0);
    }
    char sign = 0;
    ASSERT_EQ(::read(ready[0], &sign, 1), 1);
    EXPECT_EQ(sign, '+');
    EXPECT_TRUE(lockedForOthers(file_));
    ASSERT_EQ(lockFor(early, OSS_LOCK_EXCLUSIVE), 0u);
    ::close(descriptor);  // as the system does when the owner dies: no unlock before it
    ::close(earlyDescriptor);
    EXPECT_FALSE(lockedForOthers(file_));
    EXPECT_FALSE(lockedForOthers(path("early")));
    for (const int pipeEnd : {ready[0], ready[1], end[0], end[1]}) {
        ::close(pipeEnd);
    }
    EXPECT_EQ(waitFor(child), 0);
}

// However handles came and went, one that was given back and taken again included.
TEST_F(HandleTest, AChildHasNoneOfManyLocks) {
    std::vector<OSSHFile> files(3);
    const auto lock = [&](std::size_t i) { return lockFor(files[i], OSS_LOCK_EXCLUSIVE); };
    for (std::size_t i = 0; i < files.size(); ++i) {
        ASSERT_EQ(openFor(files[i], path("lock" + std::to_string(i))), 0u);
        ASSERT_EQ(lock(i), 0u);
    }
    const auto openInChild = [&] {
        std::vector<int> descriptors;
        for (const OSSHFile& file : files) {
            descriptors.push_back(file.getFileHandle());
        }
        return inChild([&] {
            int open = 0;
            for (std::size_t i = 0; i < files.size(); ++i) {
                open |= ::fcntl(descriptors[i], F_GETFD) != -1 ? 1 << i : 0;
            }
            return open;
        });
    };
    ASSERT_EQ(files[0].unlock(), 0u);
    EXPECT_EQ(openInChild(), 1);  // which holds no lock
    ASSERT_EQ(lock(0), 0u);
    EXPECT_EQ(openInChild(), 0);
}

TEST_F(HandleTest, AForkSparesADescriptorThatWasClosedBehindTheHandle) {
    OSSHFile file;
    ASSERT_EQ(openFor(file, file_), 0u);
    const int descriptor = file.getFileHandle();
    const int other = ::open(write("other", "").c_str(), O_RDWR);  // on the same device
    ::close(descriptor);
    ASSERT_EQ(::dup2(other, descriptor), descriptor);
    ::close(other);
    EXPECT_EQ(inChild([&] { return ::fcntl(descriptor, F_GETFD) != -1 ? 0 : 1; }), 0);
    EXPECT_EQ(file.close(), 0u);
}

TEST_F(HandleTest, ThreadsThatForkAndLockLeaveNoLockBehind) {
    constexpr int THREADS = 6;
    constexpr int ROUNDS = 30;
    std::atomic<int> failures = 0;
    int inside = 0;
    std::mutex counting;
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < ROUNDS; ++round) {
                std::vector<OSSHFile> others(20);  // enough for the table to grow
                for (OSSHFile& other : others) {
                    failures += openFor(other, path("other" + std::to_string(t))) != 0;
                }
                OSSHFile file;
                failures += openFor(file, file_) != 0 || lockFor(file, OSS_LOCK_EXCLUSIVE, OSS_WAIT) != 0;
                {
                    const std::lock_guard guard(counting);
                    failures += ++inside != 1;
                }
                if (t == 0) {
                    failures += inChild([&] { return file.getFileHandle() == -1 ? 0 : 1; }) != 0;
                }
                {
                    const std::lock_guard guard(counting);
                    --inside;
                }
                failures += file.unlock() != 0 || file.close() != 0;
                for (OSSHFile& other : others) {
                    failures += other.close() != 0;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_FALSE(lockedForOthers(file_));
}

TEST_F(HandleTest, NothingIsCreatedThroughALink) {
    link("missing", "loose");
    link("file", "link");
    OSSHFile file;
    EXPECT_EQ(openFor(file, path("link")), ossErrorMapSystem(ELOOP));
    EXPECT_EQ(openFor(file, path("loose")), ossErrorMapSystem(ELOOP));
    EXPECT_EQ(openFor(file, path("loose"), OSS_ACCESS_CREATE), ossErrorMapSystem(EEXIST));
    EXPECT_FALSE(exists("missing"));
    ASSERT_EQ(openFor(file, path("link"), OSS_ACCESS_CREATE), 0u);
    EXPECT_EQ(file.close(), 0u);
}

}  // namespace

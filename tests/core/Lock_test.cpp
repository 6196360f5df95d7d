// The lock: who may update a registry.
#include <genreg/LockStatus.h>

#include <chrono>
#include <thread>

#include "support/VarValFile.h"

namespace {

constexpr unsigned long HERE = REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT;

class LockTest : public RegistryTest {
protected:
    [[nodiscard]] std::string lock() const { return path(".reg.lock"); }
};

TEST_F(LockTest, FlagsMustNameATypeAndAWait) {
    VarValFile file{reg()};
    for (const unsigned long flags : {0x0UL, 0x1UL, 0x2UL, 0x4UL, 0x8UL, 0x10UL, 0x13UL, 0x1cUL}) {
        EXPECT_EQ(file.Lock(flags, 10), REG_INVALID_ARGUMENT) << flags;
    }
    EXPECT_FALSE(std::filesystem::exists(lock()));
    EXPECT_EQ(file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_SHARED | REG_LOCK_WAIT, 10), 0u);
    EXPECT_EQ(file.Lock(HERE, 10), REG_ALREADY_LOCKED);
    VarValFile other{reg()};  // exclusive won over shared, not waiting over waiting
    EXPECT_EQ(other.Lock(REG_LOCK_SHARED | REG_LOCK_WAIT | REG_LOCK_NOWAIT, 10), REG_LOCK_HELD);
    EXPECT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(other.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    EXPECT_EQ(file.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    EXPECT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(file.UnLock(), REG_RELEASE_LOCK_FAILED);
}

TEST_F(LockTest, TheDirectoryIsMadeOnlyWhenAskedFor) {
    VarValFile file{path("new/deep/reg")};
    EXPECT_EQ(file.Lock(HERE, 10), REG_OPEN_LOCK_FAILED);
    EXPECT_EQ(file.Lock(HERE | REG_LOCK_CREATE_DIR, 10), 0u);
    EXPECT_TRUE(std::filesystem::exists(path("new/deep/.reg.lock")));
    (void)write("plain", "");
    VarValFile inFile{path("plain/reg")};
    EXPECT_EQ(inFile.Lock(HERE | REG_LOCK_CREATE_DIR, 10), REG_CREATE_DIRECTORY_FAILED);
}

TEST_F(LockTest, AnotherProcessIsToldAtOnceAndAThreadToo) {
    VarValFile file{reg()};
    ASSERT_EQ(file.Lock(HERE, 10), 0u);
    const auto tryIt = [&] {
        VarValFile other{reg()};
        return other.Lock(HERE, 10);
    };
    EXPECT_EQ(inChild([&] { return tryIt() == REG_LOCK_HELD ? 0 : 1; }), 0);
    unsigned int seen = 0;
    std::thread([&] { seen = tryIt(); }).join();
    EXPECT_EQ(seen, REG_LOCK_HELD);
    ASSERT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(inChild([&] { return tryIt() == 0 ? 0 : 1; }), 0);
}

TEST_F(LockTest, AnObjectThatWasRefusedOnceLocksLater) {
    VarValFile file{reg()};
    {
        VarValFile holder{reg()};
        ASSERT_EQ(holder.Lock(HERE, 10), 0u);
        EXPECT_EQ(file.Lock(HERE, 10), REG_LOCK_HELD);
        EXPECT_GE(file.lockFile.getFileHandle(), 0);
    }
    EXPECT_EQ(file.Lock(HERE, 10), 0u);  // the end of the holder gave the lock back
}

TEST_F(LockTest, AForkedChildNeitherHoldsNorKeepsTheLock) {
    int pipes[2];
    ASSERT_EQ(::pipe(pipes), 0);
    pid_t child = 0;
    {
        VarValFile file{reg()};
        ASSERT_EQ(file.Lock(HERE, 10), 0u);
        child = ::fork();
        if (child == 0) {
            VarValFile mine{reg()};
            const bool right = file.UnLock() == REG_RELEASE_LOCK_FAILED && mine.Lock(HERE, 10) == REG_LOCK_HELD;
            char byte;
            ::close(pipes[1]);
            (void)!::read(pipes[0], &byte, 1);  // lives on behind its parent's lock
            ::_exit(right ? 0 : 1);
        }
    }
    VarValFile next{reg()};
    EXPECT_EQ(next.Lock(HERE, 10), 0u);
    ::close(pipes[1]);
    EXPECT_EQ(waitFor(child), 0);
    ::close(pipes[0]);
}

TEST_F(LockTest, TheWaitHasALimitAndNoticesAlongTheWay) {
    VarValFile holder{reg()};
    ASSERT_EQ(holder.Lock(HERE, 10), 0u);
    VarValFile file{reg()};
    std::vector<unsigned long> notices;
    file.SetLockWait(
        1300,
        [](void* context, const char*, unsigned long waited) {
            static_cast<std::vector<unsigned long>*>(context)->push_back(waited);
        },
        &notices);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10), REG_LOCK_HELD);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1299));  // both ends are cut to one
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_GE(notices[0], 1000u);
    EXPECT_EQ(file.add("x", "1"), REG_LOCK_FAILED);
    ASSERT_EQ(holder.UnLock(), 0u);
    EXPECT_EQ(file.add("x", "1"), 0u);
}

TEST_F(LockTest, TheNoteNamesTheHolderAndOutlivesItsLock) {
    GenRegLockNote note = {};
    EXPECT_EQ(genregLockStatus(lock().c_str(), &note), 0u);
    EXPECT_EQ(note.pid, 0);
    VarValFile file{reg()};
    ASSERT_EQ(file.Lock(HERE, 10), 0u);
    EXPECT_EQ(genregLockStatus(lock().c_str(), &note), REG_LOCK_HELD);
    EXPECT_EQ(note.pid, ::getpid());
    EXPECT_NEAR(static_cast<double>(note.since), static_cast<double>(::time(nullptr)), 5);
    EXPECT_STREQ(note.program, "core_test");
    ASSERT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(genregLockStatus(lock().c_str(), &note), 0u);
    EXPECT_EQ(note.pid, ::getpid());
    EXPECT_EQ(genregLockStatus(lock().c_str(), nullptr), 0u);
    EXPECT_EQ(genregLockStatus(nullptr, &note), REG_NULL_POINTER);
}

TEST_F(LockTest, TheNoteIsWrittenOverNothingButANote) {
    const std::string precious(200, 'p');
    (void)write("precious", precious);
    (void)write("empty", "");
    for (const char* target : {"precious", "empty"}) {
        std::filesystem::remove(lock());
        ASSERT_EQ(::symlink(path(target).c_str(), lock().c_str()), 0);
        VarValFile file{reg()};
        ASSERT_EQ(file.Lock(HERE, 10), 0u);
    }
    EXPECT_EQ(read(path("precious")), precious);
    EXPECT_EQ(read(path("empty")), "");
    std::filesystem::remove(lock());
    std::ofstream(lock()) << "somebody else's\n";
    VarValFile file{reg()};
    ASSERT_EQ(file.Lock(HERE, 10), 0u);
    EXPECT_EQ(read(lock()), "somebody else's\n");
}

TEST_F(LockTest, ThreadsWithAnObjectEachTakeTurns) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 50;
    (void)write("counter", "0");  // guarded by the lock alone
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            VarValFile file{reg()};
            for (int round = 0; round < ROUNDS; ++round) {
                ASSERT_EQ(file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10), 0u);
                (void)write("counter", std::to_string(std::stoi(read(path("counter"))) + 1));
                ASSERT_EQ(file.UnLock(), 0u);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(read(path("counter")), std::to_string(THREADS * ROUNDS));
}

}  // namespace

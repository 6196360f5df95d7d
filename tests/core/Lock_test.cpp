// The lock: who may update a registry.
#include <genreg/LockStatus.h>
#include <osse/Errors.h>

#include <cerrno>
#include <thread>

#include "support/VarValFile.h"

namespace {

constexpr unsigned long HERE = REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT;

using LockTest = RegistryTest;

TEST_F(LockTest, FlagsMustNameATypeAndAWait) {
    VarValFile file{reg()};
    for (const unsigned long flags : {0x0UL, 0x1UL, 0x2UL, 0x4UL, 0x8UL, 0x10UL, 0x13UL, 0x1cUL}) {
        EXPECT_EQ(file.Lock(flags, 10), REG_INVALID_ARGUMENT) << flags;
    }
    EXPECT_FALSE(exists(".reg.lock"));
    EXPECT_EQ(file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_SHARED | REG_LOCK_WAIT, 10), 0u);
    EXPECT_EQ(file.Lock(HERE, 10), REG_ALREADY_LOCKED);
    VarValFile other{reg()};  // exclusive won over shared, not waiting over waiting
    EXPECT_EQ(other.Lock(REG_LOCK_SHARED | REG_LOCK_WAIT | REG_LOCK_NOWAIT, 10), REG_LOCK_HELD);
    EXPECT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(other.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);  // although it was refused before
    EXPECT_EQ(file.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    EXPECT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(file.UnLock(), REG_RELEASE_LOCK_FAILED);
    write("plain", "");
    VarValFile inFile{path("plain/reg")};
    EXPECT_EQ(inFile.Lock(HERE | REG_LOCK_CREATE_DIR, 10), REG_CREATE_DIRECTORY_FAILED);
}

TEST_F(LockTest, TheLockFileIsMadeWithThePermissionsAskedFor) {
    for (const unsigned long asked : {0UL, 0600UL, 0640UL}) {
        for (const unsigned long type : {REG_LOCK_EXCLUSIVE, REG_LOCK_SHARED}) {
            remove(".reg.lock");
            VarValFile file{reg()};
            file.lockPermissions = asked;
            ASSERT_EQ(file.Lock(type | REG_LOCK_NOWAIT, 10), 0u);
            struct stat status = {};
            ASSERT_EQ(::stat(path(".reg.lock").c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777, asked != 0 ? asked : 0644UL);
        }
    }
}

TEST_F(LockTest, AnotherProcessIsToldAtOnceAndAThreadToo) {
    const auto tryIt = [&] {
        VarValFile other{reg()};
        return other.Lock(HERE, 10);
    };
    {
        VarValFile file{reg()};
        ASSERT_EQ(file.Lock(HERE, 10), 0u);
        EXPECT_EQ(inChild([&] { return tryIt() == REG_LOCK_HELD ? 0 : 1; }), 0);
        unsigned int seen = 0;
        std::thread([&] { seen = tryIt(); }).join();
        EXPECT_EQ(seen, REG_LOCK_HELD);
    }
    EXPECT_EQ(inChild([&] { return tryIt() == 0 ? 0 : 1; }), 0);  // the end of the holder gave the lock back
}

TEST_F(LockTest, ALinkIsNoLockFile) {
    write("empty", "");
    for (const char* target : {"missing", "empty"}) {
        link(target, ".reg.lock");
        for (const unsigned long type : {REG_LOCK_EXCLUSIVE, REG_LOCK_SHARED}) {
            VarValFile file{reg()};
            EXPECT_EQ(file.Lock(type | REG_LOCK_NOWAIT, 10), REG_OPEN_LOCK_FAILED) << target;
            EXPECT_EQ(genregLockStatus(file.lockPath, nullptr), ossErrorMapSystem(ELOOP)) << target;
        }
        remove(".reg.lock");
    }
    EXPECT_EQ(Scratch::names(), "empty");
    EXPECT_EQ(read("empty"), "");
}

TEST_F(LockTest, TheNoteIsWrittenOverNothingButANote) {
    write("empty", "");
    std::filesystem::create_hard_link(path("empty"), path(".reg.lock"));
    {
        VarValFile file{reg()};
        ASSERT_EQ(file.Lock(HERE, 10), 0u);
    }
    EXPECT_EQ(read("empty"), "");
    remove(".reg.lock");
    write(".reg.lock", "somebody else's\n");
    VarValFile file{reg()};
    ASSERT_EQ(file.Lock(HERE, 10), 0u);
    EXPECT_EQ(read(".reg.lock"), "somebody else's\n");
}

}  // namespace

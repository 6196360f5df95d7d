// The lock: who may update a registry.
#include <fcntl.h>
#include <genreg/Cause.h>
#include <genreg/LockStatus.h>
#include <osse/Errors.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "support/TextRegistry.h"
#include "support/Ways.h"

namespace {

constexpr unsigned long HERE = REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT;

using LockTest = RegistryTest;

TEST_F(LockTest, FlagsMustNameATypeAndAWait) {
    TextRegistry file{reg()};
    for (const unsigned long flags : {0x0UL, 0x1UL, 0x2UL, 0x4UL, 0x8UL, 0x10UL, 0x13UL, 0x1cUL}) {
        EXPECT_EQ(file.Lock(flags, 10), REG_INVALID_ARGUMENT) << flags;
    }
    EXPECT_FALSE(exists(".reg.lock"));
    EXPECT_EQ(file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_SHARED | REG_LOCK_WAIT, 10), 0u);
    EXPECT_EQ(file.Lock(HERE, 10), REG_ALREADY_LOCKED);
    TextRegistry other{reg()};  // exclusive won over shared, not waiting over waiting
    EXPECT_EQ(other.Lock(REG_LOCK_SHARED | REG_LOCK_WAIT | REG_LOCK_NOWAIT, 10), REG_LOCK_HELD);
    EXPECT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(other.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);  // although it was refused before
    EXPECT_EQ(file.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    EXPECT_EQ(file.UnLock(), 0u);
    EXPECT_EQ(file.UnLock(), REG_RELEASE_LOCK_FAILED);
    write("plain", "");
    TextRegistry inFile{path("plain/reg")};
    EXPECT_EQ(inFile.Lock(HERE | REG_LOCK_CREATE_DIR, 10), REG_CREATE_DIRECTORY_FAILED);
}

TEST_F(LockTest, TheLockFileIsMadeWithThePermissionsAskedFor) {
    for (const unsigned long asked : {0UL, 0600UL, 0640UL}) {
        for (const unsigned long type : {REG_LOCK_EXCLUSIVE, REG_LOCK_SHARED}) {
            remove(".reg.lock");
            TextRegistry file{reg()};
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
        TextRegistry other{reg()};
        return other.Lock(HERE, 10);
    };
    {
        TextRegistry file{reg()};
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
            TextRegistry file{reg()};
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
        TextRegistry file{reg()};
        ASSERT_EQ(file.Lock(HERE, 10), 0u);
    }
    EXPECT_EQ(read("empty"), "");
    remove(".reg.lock");
    write(".reg.lock", "somebody else's\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.Lock(HERE, 10), 0u);
    EXPECT_EQ(read(".reg.lock"), "somebody else's\n");
}

TEST_F(LockTest, TheHolderIsNamedNotTheLastWhoLeftANote) {
    const auto note = [&] {
        GenRegLockNote found = {};
        EXPECT_EQ(genregLockStatus(path(".reg.lock").c_str(), &found), REG_LOCK_HELD);
        return found;
    };
    EXPECT_EQ(inChild([&] { return TextRegistry{reg()}.Lock(HERE, 10) == 0 ? 0 : 1; }), 0);  // its note outlives it
    TextRegistry reader{reg()};
    ASSERT_EQ(reader.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    EXPECT_EQ(note().pid, NAMES_HOLDERS ? ::getpid() : 0) << "it left no note, and the writer's is a dead one's";
    EXPECT_EQ(note().since, 0);
    EXPECT_STREQ(note().program, NAMES_HOLDERS ? "core_test" : "");
    ASSERT_EQ(reader.UnLock(), 0u);

    TextRegistry writer{reg()};
    ASSERT_EQ(writer.Lock(HERE, 10), 0u);
    EXPECT_EQ(note().pid, ::getpid());
    EXPECT_NE(note().since, 0);
    EXPECT_STREQ(note().program, "core_test");
    // Where another's locks cannot be seen the note counts, unless it is of a process that had this number before.
    const auto seenByOthers = [&] {
        return inChild([&] { return ::setuid(12345) == 0 && note().pid == ::getppid() ? 0 : 1; });
    };
    const std::string written = read(".reg.lock");
    const std::size_t start = written.find("start=");
    ASSERT_NE(start, std::string::npos);
    if (::getuid() == 0) {
        EXPECT_EQ(seenByOthers(), 0);
        write(".reg.lock", std::string(written).replace(start, 8, "start=1 "));
        EXPECT_EQ(seenByOthers(), TELLS_STARTS ? 1 : 0);
        write(".reg.lock", std::string(written).replace(start, written.size() - 1 - start, 127 - start, ' '));
        EXPECT_EQ(seenByOthers(), 0) << "notes of earlier releases tell no start";
        write(".reg.lock", written);
    }
    ASSERT_EQ(writer.UnLock(), 0u);
    GenRegLockNote left = {};
    EXPECT_EQ(genregLockStatus(path(".reg.lock").c_str(), &left), 0u);
    EXPECT_EQ(left.pid, ::getpid());
}

// Where no call only asks, asking takes the lock for a moment.
TEST_F(LockTest, ThreadsThatAskDisturbNoReaderAndNobodyWhoWaits) {
    TextRegistry reader{reg()};
    ASSERT_EQ(reader.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    const std::string lock = path(".reg.lock");
    std::atomic<bool> ends = false;
    std::atomic<int> asked = 0;
    std::atomic<int> failures = 0;
    std::thread asking([&] {
        while (!ends) {
            const unsigned int rc = genregLockStatus(lock.c_str(), nullptr);
            failures += rc != 0 && rc != REG_LOCK_HELD;
            ++asked;
        }
    });
    TextRegistry other{reg()};
    for (int round = 0; round < 500 || asked < 100; ++round) {
        failures += other.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10) != 0 || other.UnLock() != 0;
    }
    EXPECT_EQ(failures, 0);
    ASSERT_EQ(reader.UnLock(), 0u);
    for (int round = 0; round < 500; ++round) {
        failures += other.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10) != 0 || other.UnLock() != 0;
    }
    ends = true;
    asking.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(genregLockStatus(lock.c_str(), nullptr), 0u);
}

TEST_F(LockTest, ALimitHoldsForTheRegistryFileToo) {
    write("reg", "x = 1\n");
    int held[2];
    ASSERT_EQ(::pipe(held), 0);
    const pid_t child = ::fork();
    if (child == 0) {  // a program that knows of no lock file
        const int descriptor = ::open(reg().c_str(), O_RDWR);
        (void)!::write(held[1], lockAsOthers(descriptor) == 0 ? "+" : "-", 1);
        ::pause();
    }
    char sign = 0;
    ASSERT_EQ(::read(held[0], &sign, 1), 1);
    ASSERT_EQ(sign, '+');
    TextRegistry file{reg()};
    std::string waitedFor;
    const auto notice = [](void* context, const char* of, unsigned long) { *static_cast<std::string*>(context) = of; };
    file.SetLockWait(20, nullptr, nullptr);
    EXPECT_EQ(file.OpenReg(REG_OP_READ), REG_LOCK_FILE_FAILED);
    EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    EXPECT_EQ(file.OpenScan(), REG_LOCK_FILE_FAILED);
    GenRegCause cause = {};
    genregLastCause(&cause);
    EXPECT_EQ(cause.platformCode, OSS_WOULD_BLOCK);
    file.SetLockWait(1100, notice, &waitedFor);
    EXPECT_EQ(file.change("x", "2"), REG_OPEN_FAILED);
    EXPECT_EQ(waitedFor, reg());
    ::kill(child, SIGKILL);
    (void)waitFor(child);
    EXPECT_EQ(file.change("x", "2"), 0u);
    ::close(held[0]);
    ::close(held[1]);
}

}  // namespace

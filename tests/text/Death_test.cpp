// What a writer leaves that dies at a given moment, what the next one makes of it, and failures of the last steps.
#include <osse/Errors.h>
#include <osse/Files.h>
#include <sys/syscall.h>

#include <csignal>
#include <utility>

#include "support/VarValFile.h"

namespace {

enum class Fault { None, DieBeforeRename, FailRename, DieBeforeRemoval, FailRemoval, FailSync };
Fault fault = Fault::None;
unsigned long linesUntilDeath = 0;
std::string steps;  // what the platform was asked for, in order, while it is recorded
bool recording = false;

void record(const char* step) {
    if (recording) {
        steps += step;
    }
}

[[noreturn]] void die() {
    (void)::kill(::getpid(), SIGKILL);
    ::_exit(1);
}

unsigned int parseUntilDeath(void* record, const char* line) {
    if (--linesUntilDeath == 0) {
        die();
    }
    return GenRegVarVal::ParseLine(record, line);
}

}  // namespace

// These stand before the platform's, so that the commit meets the fault on its way.
extern "C" OSSE_EXPORT int fsync(int descriptor) {
    char name[4096] = {};
    (void)!::readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), name, sizeof name - 1);
    record(std::filesystem::is_directory(name)   ? "sync directory, "
           : std::string(name).ends_with(".tmp") ? "sync copy, "
                                                 : "sync file, ");
    errno = EIO;
    return fault == Fault::FailSync ? -1 : ::fdatasync(descriptor);
}

extern "C" OSSE_EXPORT int linkat(int from, const char* path, int to, const char* second, int flags) {
    record("link, ");
    return static_cast<int>(::syscall(SYS_linkat, from, path, to, second, flags));
}

extern "C" unsigned int ossFileRename(const char* from, const char* to) {
    record(std::filesystem::exists(from) ? "rename, " : "");
    if (std::string(from).ends_with(".tmp") && !std::string(to).ends_with(".cor")) {
        if (fault == Fault::DieBeforeRename) {
            die();
        }
        if (fault == Fault::FailRename) {
            return ossErrorMapSystem(EIO);
        }
    }
    return ::rename(from, to) == 0 ? 0 : ossErrorMapSystem(errno);
}

extern "C" unsigned int ossFileDelete(const char* path) {
    record(std::filesystem::exists(path) ? "delete, " : "");
    if (std::string(path).ends_with(".bkp") && std::filesystem::exists(path)) {
        if (fault == Fault::DieBeforeRemoval) {
            die();
        }
        if (fault == Fault::FailRemoval) {
            return ossErrorMapSystem(EIO);
        }
    }
    return ::unlink(path) == 0 ? 0 : ossErrorMapSystem(errno);
}

namespace {

class DeathTest : public RegistryTest {
protected:
    DeathTest() {
        while (old_.size() < 300'000) {
            old_ += "filler" + std::to_string(old_.size()) + " = 1\n";
        }
        changed_ = old_ + "x = 2\n";
        old_ += "x = 1\n";
    }

    std::string old_;
    std::string changed_;
};

void dieLocked(VarValFile& file) {
    (void)file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10);
    die();
}
void dieOpened(VarValFile& file) {
    (void)file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10);
    (void)file.OpenReg(REG_OP_CHANGE);
    die();
}
void dieWriting(VarValFile& file) {
    linesUntilDeath = 12'000;
    file.lineMayMatch = nullptr;
    file.parseLine = parseUntilDeath;
    (void)file.change("x", "2");
}
template <Fault FAULT>
void dieCommitting(VarValFile& file) {
    fault = FAULT;
    (void)file.change("x", "2");
}
void dieAfterwards(VarValFile& file) {
    if (file.change("x", "2") == 0) {
        die();
    }
}

TEST_F(DeathTest, EachMomentLeavesTheFilesThatTheNextUpdateGoesOnFrom) {
    const struct {
        void (*writer)(VarValFile&);
        const char* left;
        bool committed;
    } moments[] = {
        {dieLocked, "reg reg.cor", false},
        {dieOpened, "reg reg.tmp", false},
        {dieWriting, "reg reg.tmp", false},
        {dieCommitting<Fault::DieBeforeRename>, ".reg.bkp reg reg.tmp", false},
        {dieCommitting<Fault::DieBeforeRemoval>, ".reg.bkp reg", true},
        {dieAfterwards, "reg", true},
    };
    for (const auto& moment : moments) {
        for (const unsigned long features : UPDATE_WAYS) {
            SCOPED_TRACE(std::string(moment.left) + " by way " + std::to_string(features));
            (void)write("reg", old_);
            (void)write("reg.cor", "older");  // deleted by an update that has opened the registry
            EXPECT_EQ(inChild([&] {
                          VarValFile file{reg(), features};
                          moment.writer(file);
                          return 1;
                      }),
                      -SIGKILL);
            EXPECT_TRUE(content() == (moment.committed ? changed_ : old_));
            EXPECT_EQ(names(), moment.left);
            const bool hasCopy = std::filesystem::exists(tmp());
            if (std::filesystem::exists(bkp())) {
                EXPECT_TRUE(read(bkp()) == old_);
            }
            const std::string copy = read(tmp());
            EXPECT_TRUE(changed_.starts_with(copy));
            if (moment.writer == dieWriting) {
                EXPECT_TRUE(!copy.empty() && copy.size() < changed_.size());
            }
            VarValFile next{reg(), features};
            EXPECT_EQ(next.change("x", "3"), 0u);
            EXPECT_TRUE(content() == old_.substr(0, old_.size() - 2) + "3\n");
            EXPECT_EQ(names(), hasCopy ? "reg reg.cor" : "reg");
            EXPECT_TRUE(!hasCopy || read(cor()) == copy);
            std::filesystem::remove(cor());
        }
    }
}

TEST_F(DeathTest, AFailedRenameKeepsTheOldFileAndTheBackup) {
    for (const unsigned long features : UPDATE_WAYS) {
        (void)write("reg", "x = 1\n");
        const bool deferred = (features & REG_FEATURE_DEFERRED_COMMIT) != 0;
        VarValFile file{reg(), features};
        fault = Fault::FailRename;
        EXPECT_EQ(file.change("x", "2"), deferred ? REG_VERIFY_FAILED : REG_CLOSE_FAILED);
        fault = Fault::None;
        EXPECT_EQ(content(), "x = 1\n");
        EXPECT_EQ(names(), ".reg.bkp reg reg.tmp");
        EXPECT_EQ(read(tmp()), "x = 2\n");
        EXPECT_EQ(file.change("x", "2"), 0u);
        EXPECT_EQ(content(), "x = 2\n");
        std::filesystem::remove(cor());
    }
}

TEST_F(DeathTest, ABackupThatCannotBeRemovedIsToldAndTheChangeStands) {
    (void)write("reg", "x = 1\n");
    VarValFile file{reg(), 0};
    fault = Fault::FailRemoval;
    ASSERT_EQ(file.OpenReg(REG_OP_CHANGE), 0u);
    std::fputs("x = 2\n", file.tmpFp);
    EXPECT_EQ(file.CloseReg(REG_OP_CHANGE), ossErrorMapSystem(EIO));
    EXPECT_EQ(content(), "x = 2\n");
    EXPECT_EQ(read(bkp()), "x = 1\n");
    EXPECT_EQ(file.change("x", "3"), REG_CLOSE_FAILED);  // the backup in the way: no commit
    fault = Fault::None;
    EXPECT_EQ(content(), "x = 2\n");
}

TEST_F(DeathTest, EveryStepIsOnTheMediumBeforeTheNextOneBuildsOnIt) {
    const std::string commit = "sync copy, link, rename, sync directory, delete, ";
    for (const unsigned long features : UPDATE_WAYS) {
        const bool inPlace = features == REG_FEATURE_ALLOW_DUPLICATES;
        (void)write("reg", "x = 1\n");
        VarValFile file{reg(), features};
        const auto took = [&](unsigned int rc) {
            EXPECT_EQ(rc, 0u);
            return std::exchange(steps, "");
        };
        recording = true;
        EXPECT_EQ(took(file.change("x", "2")), commit);
        EXPECT_EQ(took(file.remove("x")), commit);
        EXPECT_EQ(took(file.add("x", "1")), inPlace ? "sync file, " : commit);
        std::filesystem::remove(reg());
        EXPECT_EQ(took(file.add("x", "1")), inPlace ? "sync file, sync directory, " : commit);
        recording = false;
    }
}

TEST_F(DeathTest, WhatCannotBeSyncedIsNotCommitted) {
    for (const unsigned long features : UPDATE_WAYS) {
        (void)write("reg", "x = 1\n");
        VarValFile file{reg(), features};
        fault = Fault::FailSync;
        EXPECT_EQ(file.change("x", "2"), REG_CLOSE_FAILED);
        EXPECT_EQ(content(), "x = 1\n");
        EXPECT_EQ(file.add("y", "2"), REG_CLOSE_FAILED);
        EXPECT_EQ(content(), "x = 1\n");
        fault = Fault::None;
        EXPECT_EQ(file.change("x", "2"), 0u);
        EXPECT_EQ(content(), "x = 2\n");
    }
}

}  // namespace

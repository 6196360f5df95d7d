// OpenReg and CloseReg: codes, and what stands on disk.
#include <genreg/Cause.h>
#include <osse/Errors.h>
#include <sys/resource.h>

#include <csignal>

#include "support/Descriptors.h"
#include "support/VarValFile.h"

namespace {

using TransactionTest = RegistryTest;

constexpr unsigned long DEFERRED = REG_FEATURE_DEFERRED_COMMIT;
constexpr unsigned long DUPLICATES = REG_FEATURE_ALLOW_DUPLICATES;

unsigned long permissionsOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// Every operation by every way of updating: the next version is written by hand, and what stands afterwards judged.
TEST_F(TransactionTest, OnlyTheClosesThatCommitReplaceTheFile) {
    for (const unsigned long features : UPDATE_WAYS) {
        for (const unsigned long op : {REG_OP_CHANGE, REG_OP_ADD, REG_OP_DELETE}) {
            for (const unsigned long close : {op, REG_OP_READ}) {
                SCOPED_TRACE(std::to_string(features) + " " + std::to_string(op) + " " + std::to_string(close));
                std::filesystem::remove(tmp());
                (void)write("reg", "old\n");
                VarValFile file{reg(), features};
                ASSERT_EQ(file.OpenReg(op), 0u);
                const bool inPlace = op == REG_OP_ADD && features == DUPLICATES;
                EXPECT_EQ(names(), inPlace ? "reg" : "reg reg.tmp");
                ASSERT_EQ(file.tmpFp == nullptr, inPlace);
                std::fputs("new\n", inPlace ? file.regFp : file.tmpFp);
                EXPECT_EQ(file.CloseReg(close), 0u);
                const bool commits = close == op && (features & DEFERRED) == 0;
                EXPECT_EQ(content(), !commits ? "old\n" : inPlace ? "old\nnew\n" : "new\n");
                EXPECT_EQ(names(), commits || inPlace ? "reg" : "reg reg.tmp");
                if ((features & DEFERRED) != 0 && close == op) {
                    EXPECT_EQ(file.OpenReg(REG_OP_FINISH), 0u);
                    char line[8] = {};
                    EXPECT_STREQ(std::fgets(line, sizeof line, file.tmpFp), "new\n");
                    EXPECT_EQ(file.CloseReg(REG_OP_FINISH), 0u);
                    EXPECT_EQ(content(), "new\n");
                    EXPECT_EQ(names(), "reg");
                }
            }
        }
    }
}

TEST_F(TransactionTest, AMissingFileIsMadeByAnAddAlone) {
    for (const unsigned long op : {REG_OP_READ, REG_OP_CHANGE, REG_OP_DELETE, REG_OP_FINISH}) {
        VarValFile file{path("new/dir/reg")};
        EXPECT_EQ(file.OpenReg(op), REG_MISSING);
        EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    }
    EXPECT_EQ(names(), "");
    for (const unsigned long features : UPDATE_WAYS) {
        const ::mode_t mask = ::umask(022);
        VarValFile file{path("new/dir/reg"), features};
        EXPECT_EQ(file.OpenReg(REG_OP_ADD), 0u);
        EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
        ::umask(mask);
        EXPECT_EQ(permissionsOf(path("new/dir")), 0755u);
        EXPECT_EQ(permissionsOf(path("new/dir/reg")), 0644u);
        std::filesystem::remove_all(path("new"));
    }
}

TEST_F(TransactionTest, AStaleCopyIsSetAsideOverAnOlderOne) {
    (void)write("reg", "old\n");
    (void)write("reg.tmp", "stale");
    (void)write("reg.cor", "older");
    VarValFile file{reg()};
    EXPECT_EQ(file.OpenReg(REG_OP_READ), 0u);
    EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    EXPECT_EQ(read(cor()), "older");
    EXPECT_EQ(file.OpenReg(REG_OP_CHANGE), 0u);
    EXPECT_EQ(read(cor()), "stale");
    EXPECT_EQ(read(tmp()), "");
    EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    std::filesystem::remove(tmp());
    EXPECT_EQ(file.OpenReg(REG_OP_DELETE), 0u);  // with nothing stale, the older one goes all the same
    EXPECT_EQ(names(), "reg reg.tmp");
    EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
}

TEST_F(TransactionTest, WhatStandsInTheWayOfACompanionHasItsCode) {
    const struct {
        const char* name;
        unsigned int open;
        unsigned int close;
        const char* left;
    } cases[] = {
        {"reg.cor", REG_DELETE_CORRUPT_FAILED, 0, "reg reg.cor"},
        {".reg.bkp", 0, REG_BACKUP_FAILED, ".reg.bkp reg reg.tmp"},
    };
    for (const auto& sample : cases) {
        std::filesystem::remove(tmp());
        (void)write("reg", "old\n");
        std::filesystem::create_directories(path(sample.name) + "/in");
        VarValFile file{reg(), DUPLICATES};
        EXPECT_EQ(file.OpenReg(REG_OP_CHANGE), sample.open) << sample.name;
        EXPECT_EQ(file.CloseReg(sample.open == 0 ? REG_OP_CHANGE : REG_OP_READ), sample.close) << sample.name;
        EXPECT_EQ(content(), "old\n");
        EXPECT_EQ(names(), sample.left);
        std::filesystem::remove_all(path(sample.name));
    }
    // A directory in the place of the copy is set aside like any stale one.
    std::filesystem::remove(tmp());
    std::filesystem::create_directories(tmp() + "/in");
    VarValFile file{reg(), DUPLICATES};
    EXPECT_EQ(file.OpenReg(REG_OP_CHANGE), 0u);
    EXPECT_EQ(file.CloseReg(REG_OP_CHANGE), 0u);
    EXPECT_EQ(names(), "reg reg.cor");
}

TEST_F(TransactionTest, APlantedLinkIsNeverWrittenThrough) {
    (void)write("reg", "old\n");
    (void)write("precious", "precious");
    ASSERT_EQ(::symlink("precious", tmp().c_str()), 0);
    ASSERT_EQ(::symlink("precious", bkp().c_str()), 0);
    ASSERT_EQ(::symlink("precious", cor().c_str()), 0);
    VarValFile file{reg()};
    EXPECT_EQ(file.add("x", "1"), 0u);
    EXPECT_EQ(content(), "old\nx = 1\n");
    EXPECT_EQ(read(path("precious")), "precious");
    EXPECT_TRUE(std::filesystem::is_symlink(cor()));  // the stale copy, set aside
}

TEST_F(TransactionTest, OnlyARegularFileIsARegistry) {
    std::filesystem::create_directory(path("directory"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0644), 0);
    for (const char* name : {"directory", "pipe"}) {
        for (const unsigned long features : UPDATE_WAYS) {
            VarValFile file{path(name), features};
            for (const unsigned long op : {REG_OP_READ, REG_OP_CHANGE, REG_OP_ADD, REG_OP_FINISH}) {
                EXPECT_EQ(file.OpenReg(op), REG_OPEN_FILE_FAILED) << name << op;
                EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
            }
            EXPECT_EQ(file.OpenScan(), REG_OPEN_FILE_FAILED) << name;
            EXPECT_EQ(file.add("x", "1"), REG_OPEN_FAILED);
        }
    }
    std::filesystem::create_directory(path(".reg.lock"));
    VarValFile file{reg()};
    EXPECT_EQ(file.add("x", "1"), REG_LOCK_FAILED);
}

TEST_F(TransactionTest, TheNewFileKeepsPermissionBitsAndOwner) {
    (void)write("reg", "x = 1\n");
    ASSERT_EQ(::chmod(reg().c_str(), 0640), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(reg().c_str(), 12, 34), 0);
    }
    VarValFile file{reg()};
    EXPECT_EQ(file.change("x", "2"), 0u);
    EXPECT_EQ(permissionsOf(reg()), 0640u);
    struct stat status = {};
    EXPECT_EQ(::stat(reg().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, ::geteuid() == 0 ? 12 : ::geteuid());
}

TEST_F(TransactionTest, NoOutcomeLeavesADescriptorBehind) {
    std::filesystem::create_directory(path("directory"));
    const long before = openDescriptors();
    for (const unsigned long features : UPDATE_WAYS) {
        (void)write("reg", "x = 1\nx = 1\n");
        VarValFile file{reg(), features};
        GenRegVarValRecord record;
        (void)file.add("x", "2");
        (void)file.change("y", "2");
        (void)file.change("x", "1");
        (void)file.remove("x");
        (void)file.get("x", &record);
        VarValFile directory{path("directory"), features};
        (void)directory.add("x", "1");
        (void)directory.get("x", &record);
        VarValFile left{reg(), features};
        (void)left.OpenReg(REG_OP_CHANGE);
        VarValFile scan{reg(), features};
        (void)scan.OpenScan();
        (void)scan.OpenScan();
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TransactionTest, AnUpdateThatCannotBeWrittenLeavesTheOldFile) {
    std::string old;
    while (old.size() < 200'000) {
        old += "# a line that fills the file\n";
    }
    old += "x = 1\n";
    for (const unsigned long features : UPDATE_WAYS) {
        (void)write("reg", old);
        std::filesystem::remove(tmp());
        EXPECT_TRUE(holdsInChild([&] {
            ::signal(SIGXFSZ, SIG_IGN);
            const bool inPlace = features == DUPLICATES;
            // In place the limit falls into the new line, else into the copy.
            const ::rlim_t most = inPlace ? old.size() + 3 : 100'000;
            const struct rlimit limit = {most, most};
            ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
            VarValFile file{reg(), features};
            EXPECT_EQ(file.add("y", "1"), inPlace ? REG_RECORD_WRITE_FAILED : REG_COPY_WRITE_FAILED) << features;
            GenRegCause cause = {};
            genregLastCause(&cause);
            EXPECT_EQ(cause.platformCode, ossErrorMapSystem(inPlace ? ENOSPC : EFBIG));
            if (!inPlace) {
                EXPECT_EQ(file.change("x", "2"), REG_COPY_WRITE_FAILED);
                EXPECT_EQ(file.remove("x"), REG_COPY_WRITE_FAILED);
            }
        }));
        EXPECT_EQ(content(), old);
        VarValFile file{reg(), features};
        EXPECT_EQ(file.add("y", "1"), 0u);
        EXPECT_EQ(content(), old + "y = 1\n");
    }
}

TEST_F(TransactionTest, AnOrdinaryUserIsRefusedWithTheRightCode) {
    (void)write("reg", "x = 1\n");
    ASSERT_EQ(::chmod(path("").c_str(), 0555), 0);
    EXPECT_TRUE(holdsForOrdinaryUser([&] {
        VarValFile file{reg()};
        EXPECT_EQ(file.add("y", "1"), REG_LOCK_FAILED);
        EXPECT_EQ(file.OpenReg(REG_OP_CHANGE), REG_OPEN_TMP_FAILED);
        EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
        GenRegVarValRecord record;
        EXPECT_EQ(file.get("x", &record), 0u);
        VarValFile below{path("below/reg")};
        EXPECT_EQ(below.OpenReg(REG_OP_ADD), REG_CREATE_DIRECTORY_FAILED);
    }));
    ASSERT_EQ(::chmod(path("").c_str(), 0755), 0);
    ASSERT_EQ(::chmod(reg().c_str(), 0), 0);
    EXPECT_TRUE(holdsForOrdinaryUser([&] {
        VarValFile file{reg()};
        EXPECT_EQ(file.OpenReg(REG_OP_READ), REG_OPEN_FILE_FAILED);
        EXPECT_EQ(file.OpenScan(), REG_OPEN_FILE_FAILED);
    }));
    EXPECT_EQ(names(), "reg");
}

}  // namespace

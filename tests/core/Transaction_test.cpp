// OpenReg and CloseReg: codes, and what stands on disk.
#include "support/TextRegistry.h"

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
                remove("reg.tmp");
                write("reg", "old\n");
                TextRegistry file{reg(), features};
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
        TextRegistry file{path("new/dir/reg")};
        EXPECT_EQ(file.OpenReg(op), REG_MISSING);
        EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
    }
    EXPECT_EQ(names(), "");
    for (const unsigned long features : UPDATE_WAYS) {
        const ::mode_t mask = ::umask(022);
        TextRegistry file{path("new/dir/reg"), features};
        EXPECT_EQ(file.OpenReg(REG_OP_ADD), 0u);
        EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
        ::umask(mask);
        EXPECT_EQ(permissionsOf(path("new/dir")), 0755u);
        EXPECT_EQ(permissionsOf(path("new/dir/reg")), 0644u);
        remove("new");
    }
}

TEST_F(TransactionTest, OnlyARegularFileIsARegistry) {
    std::filesystem::create_directory(path("directory"));
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0644), 0);
    const long before = openDescriptors();
    for (const char* name : {"directory", "pipe"}) {
        for (const unsigned long features : UPDATE_WAYS) {
            TextRegistry file{path(name), features};
            for (const unsigned long op : {REG_OP_READ, REG_OP_CHANGE, REG_OP_ADD, REG_OP_FINISH}) {
                EXPECT_EQ(file.OpenReg(op), REG_OPEN_FILE_FAILED) << name << op;
                EXPECT_EQ(file.CloseReg(REG_OP_READ), 0u);
            }
            EXPECT_EQ(file.OpenScan(), REG_OPEN_FILE_FAILED) << name;
            EXPECT_EQ(file.add("x", "1"), REG_OPEN_FAILED);
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TransactionTest, TheNewFileKeepsPermissionBitsAndOwner) {
    write("reg", "x = 1\n");
    ASSERT_EQ(::chmod(reg().c_str(), 0640), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(reg().c_str(), 12, 34), 0);
    }
    TextRegistry file{reg()};
    EXPECT_EQ(file.change("x", "2"), 0u);
    EXPECT_EQ(permissionsOf(reg()), 0640u);
    struct stat status = {};
    EXPECT_EQ(::stat(reg().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, ::geteuid() == 0 ? 12 : ::geteuid());
}

}  // namespace

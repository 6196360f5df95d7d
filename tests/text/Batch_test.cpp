// Several updates with one commit.
#include <genreg/Cause.h>

#include "support/TextRegistry.h"

namespace {

using Batch = RegistryTest;

int notifications = 0;
unsigned int countNotification() {
    ++notifications;
    return 0;
}

TEST_F(Batch, ItsUpdatesAreSeenInItAndByNobodyElseUntilTheCommit) {
    write("reg", "# head\na = 1\nb = 2\nc = 3");  // the last line gains its newline
    TextRegistry batch(reg(), REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_NOTIFY);
    batch.notifyChange = countNotification;
    notifications = 0;
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.add("d", "4"), 0U);
    EXPECT_EQ(batch.change("b", "22"), 0U);
    EXPECT_EQ(batch.remove("a"), 0U);
    EXPECT_EQ(batch.change("d", "44"), 0U);
    GenRegVarValRecord found;
    ASSERT_EQ(batch.get("d", &found), 0U);
    EXPECT_STREQ(found.value, "44");
    EXPECT_EQ(batch.get("a", &found), REG_NOT_FOUND);
    TextRegistry reader(reg());
    ASSERT_EQ(reader.get("b", &found), 0U);
    EXPECT_STREQ(found.value, "2");
    EXPECT_EQ(notifications, 0);
    ASSERT_EQ(batch.CommitBatch(), 0U);
    EXPECT_EQ(content(), "# head\nb = 22\nc = 3\nd = 44\n");
    EXPECT_EQ(notifications, 1);
    EXPECT_EQ(names(), "reg");
    EXPECT_EQ(reader.add("e", "5"), 0U) << "the lock is free";
}

TEST_F(Batch, AnUpdateThatIsRefusedLeavesTheOthers) {
    write("reg", "a = 1\nb = 2\nb = 3\n");
    TextRegistry batch(reg(), REG_FEATURE_DEFERRED_COMMIT);
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.add("a", "2"), REG_DUPLICATE);
    EXPECT_EQ(batch.change("a", "1"), REG_UNCHANGED);
    EXPECT_EQ(batch.change("z", "1"), REG_NOT_FOUND);
    EXPECT_EQ(batch.change("b", "4"), REG_SEVERAL_MATCH);
    EXPECT_EQ(batch.add("c", std::string(3000, 'x').c_str()), REG_FORMAT_FAILED);
    EXPECT_EQ(batch.change("a", "5"), 0U);
    EXPECT_EQ(batch.CommitBatch(), 0U);
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.add("a", "2"), REG_DUPLICATE);
    EXPECT_EQ(batch.AbandonBatch(), 0U);
    GenRegCause cause = {};
    genregLastCause(&cause);
    EXPECT_EQ(cause.code, REG_DUPLICATE) << "of what it was abandoned for";
    EXPECT_EQ(content(), "a = 5\nb = 2\nb = 3\n");
}

TEST_F(Batch, WhatEndsAsItWasIsNotWritten) {
    write("reg", "a=1\n");
    TextRegistry batch(reg(), REG_FEATURE_DEFERRED_COMMIT | REG_FEATURE_NOTIFY);
    batch.notifyChange = countNotification;
    notifications = 0;
    struct stat before = {};
    ASSERT_EQ(::stat(reg().c_str(), &before), 0);
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.add("b", "2"), 0U);
    EXPECT_EQ(batch.remove("b"), 0U);
    EXPECT_EQ(batch.CommitBatch(), REG_UNCHANGED);
    struct stat after = {};
    ASSERT_EQ(::stat(reg().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(notifications, 0);
    EXPECT_EQ(batch.CommitBatch(), REG_NO_BATCH);
    EXPECT_EQ(batch.add("c", "3"), 0U) << "the lock is free";
}

TEST_F(Batch, AbandonedItLeavesNothing) {
    write("reg", "a=1\n");
    for (const bool byItsEnd : {false, true}) {
        TextRegistry batch(reg());
        ASSERT_EQ(batch.BeginBatch(), 0U);
        EXPECT_EQ(batch.BeginBatch(), REG_BATCH_OPEN);
        EXPECT_EQ(batch.change("a", "2"), 0U);
        EXPECT_EQ(byItsEnd ? 0U : batch.AbandonBatch(), 0U);
    }
    TextRegistry next(reg());
    EXPECT_EQ(next.AbandonBatch(), REG_NO_BATCH);
    EXPECT_EQ(content(), "a=1\n");
    EXPECT_EQ(next.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0), 0U);
    EXPECT_EQ(next.BeginBatch(), REG_LOCK_FAILED) << "by an object that holds the lock";
    EXPECT_EQ(names(), "reg");
}

TEST_F(Batch, ARegistryThatIsMissingIsMadeByItsFirstRecord) {
    TextRegistry batch(path("new/folder/reg"));
    ASSERT_EQ(batch.BeginBatch(), 0U);
    GenRegVarValRecord found;
    EXPECT_EQ(batch.get("a", &found), REG_OPEN_FAILED);
    EXPECT_EQ(batch.change("a", "1"), REG_OPEN_FAILED);
    EXPECT_EQ(batch.CommitBatch(), REG_UNCHANGED);
    EXPECT_FALSE(exists("new/folder/reg"));
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.add("a", "1"), 0U);
    EXPECT_EQ(batch.add("b", "2"), 0U);
    ASSERT_EQ(batch.CommitBatch(), 0U);
    EXPECT_EQ(read("new/folder/reg"), "a = 1\nb = 2\n");
}

// By a program that knows of no lock.
TEST_F(Batch, AFileThatChangesMeanwhileStands) {
    write("reg", "a=1\n");
    TextRegistry batch(reg());
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.change("a", "2"), 0U);
    write("reg", "a=3\n");
    EXPECT_EQ(batch.CommitBatch(), REG_VERIFY_FAILED);
    EXPECT_EQ(content(), "a=3\n");
    EXPECT_EQ(names(), "reg reg.tmp") << "as after any update that was not verified";
    EXPECT_EQ(batch.change("a", "4"), 0U) << "the lock is free";
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.change("a", "5"), 0U);
    remove("reg");
    EXPECT_EQ(batch.CommitBatch(), REG_OPEN_FAILED);
    EXPECT_FALSE(exists("reg"));
}

TEST_F(Batch, AScanReadsTheOldFileAndHoldsUpdatesUp) {
    write("reg", "a=1\nb=2\n");
    TextRegistry batch(reg());
    ASSERT_EQ(batch.OpenScan(), 0U);
    EXPECT_EQ(batch.BeginBatch(), REG_SCAN_OPEN);
    ASSERT_EQ(batch.CloseScan(), 0U);
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.remove("a"), 0U);
    ASSERT_EQ(batch.OpenScan(), 0U);
    EXPECT_EQ(batch.scanned(), "a b ");
    EXPECT_EQ(batch.remove("b"), REG_OPEN_FAILED);
    ASSERT_EQ(batch.CloseScan(), 0U);
    EXPECT_EQ(batch.CommitBatch(), 0U);
    EXPECT_EQ(content(), "b=2\n");
}

TEST_F(Batch, AForkedChildCannotCommitIt) {
    write("reg", "a=1\n");
    TextRegistry batch(reg());
    ASSERT_EQ(batch.BeginBatch(), 0U);
    EXPECT_EQ(batch.change("a", "2"), 0U);
    const pid_t child = ::fork();
    if (child == 0) {
        const bool refused = batch.change("a", "3") == REG_OPEN_FAILED && batch.CommitBatch() == REG_LOCK_FAILED &&
                             batch.AbandonBatch() == REG_NO_BATCH;
        ::_exit(refused ? 0 : 1);
    }
    EXPECT_EQ(waitFor(child), 0);
    EXPECT_EQ(content(), "a=1\n");
    EXPECT_EQ(batch.CommitBatch(), 0U);
    EXPECT_EQ(content(), "a=2\n");
}

// More than an index begins with; and what is replaced gives its room back.
TEST_F(Batch, ManyUpdatesKeepTheirOrder) {
    constexpr int MANY = 3000;
    write("reg", "first=0\n");
    TextRegistry batch(reg(), REG_FEATURE_DEFERRED_COMMIT);
    ASSERT_EQ(batch.BeginBatch(), 0U);
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < MANY; ++i) {
            const std::string name = "name" + std::to_string(i);
            const std::string value(static_cast<std::size_t>(200 * round + 1), static_cast<char>('a' + i % 26));
            ASSERT_EQ(round == 0 ? batch.add(name.c_str(), value.c_str()) : batch.change(name.c_str(), value.c_str()),
                      0U);
        }
    }
    for (int i = 0; i < MANY; i += 2) {
        ASSERT_EQ(batch.remove(("name" + std::to_string(i)).c_str()), 0U);
    }
    ASSERT_EQ(batch.CommitBatch(), 0U);
    std::string expected = "first=0\n";
    for (int i = 1; i < MANY; i += 2) {
        expected += "name" + std::to_string(i) + " = " + std::string(401, static_cast<char>('a' + i % 26)) + "\n";
    }
    EXPECT_TRUE(content() == expected);
}

}  // namespace

// Locks that are lent to those who work under them.
#include <fcntl.h>
#include <genreg/LockStatus.h>
#include <osse/Errors.h>

#include <cerrno>
#include <thread>

#include "support/TextRegistry.h"
#include "support/Ways.h"

namespace {

constexpr unsigned long HERE = REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT;

class LockLoan : public RegistryTest {
protected:
    void SetUp() override {
        write("reg", "x = 1\n");
        if (!LENDS_LOCKS) {
            TextRegistry file{reg()};
            GenRegLockLoan loan = {};
            EXPECT_EQ(file.Lock(HERE, 10), 0u);
            EXPECT_EQ(file.LendLock("sh", &loan), ossErrorMapSystem(ENOTSUP));
            EXPECT_EQ(TextRegistry{reg()}.Lock(HERE, 10), REG_LOCK_HELD) << "it is held as before";
            GTEST_SKIP() << "locks have no parts here";
        }
    }
    // What the object answers that asks for the lock at once and gives it back.
    unsigned int attempt(const GenRegLockLoan* loan = nullptr, unsigned long flags = HERE) const {
        TextRegistry file{reg()};
        EXPECT_EQ(file.BorrowLock(loan), 0u);
        const unsigned int rc = file.Lock(flags, 10);
        EXPECT_EQ(rc != 0 ? 0u : file.UnLock(), 0u);
        return rc;
    }
};

TEST_F(LockLoan, WhoBorrowsWorksUnderItAndNobodyElseDoes) {
    TextRegistry lender{reg()};
    GenRegLockLoan loan = {};
    EXPECT_EQ(lender.LendLock(nullptr, &loan), REG_INVALID_ARGUMENT) << "nothing is held yet";
    ASSERT_EQ(lender.Lock(HERE, 10), 0u);
    EXPECT_EQ(lender.LendLock(nullptr, nullptr), REG_NULL_POINTER);
    ASSERT_EQ(lender.LendLock("an\neditor", &loan), 0u);
    EXPECT_EQ(attempt(), REG_LOCK_HELD);
    EXPECT_EQ(attempt(nullptr, REG_LOCK_SHARED | REG_LOCK_NOWAIT), REG_LOCK_HELD);

    TextRegistry borrower{reg()};
    EXPECT_EQ(borrower.BorrowLock(&loan), 0u);
    EXPECT_EQ(borrower.change("x", "2"), 0u);
    EXPECT_EQ(borrower.add("y", "3"), 0u);
    EXPECT_EQ(attempt(), REG_LOCK_HELD) << "what was borrowed is back, what was lent is held";
    GenRegLockNote note = {};
    EXPECT_EQ(genregLockStatus(path(".reg.lock").c_str(), &note), REG_LOCK_HELD);
    EXPECT_EQ(note.pid, ::getpid());
    EXPECT_STREQ(note.program, "an editor");

    // Those who borrow exclude each other, and what one has begun outlasts the loan.
    ASSERT_EQ(borrower.Lock(HERE, 10), 0u);
    EXPECT_EQ(attempt(&loan), REG_LOCK_HELD);
    EXPECT_EQ(lender.UnLock(), 0u);
    EXPECT_EQ(attempt(), REG_LOCK_HELD);
    EXPECT_EQ(attempt(&loan), REG_LOCK_HELD);
    EXPECT_EQ(borrower.UnLock(), 0u);
    EXPECT_EQ(attempt(), 0u);
    EXPECT_EQ(read("reg"), "x = 2\ny = 3\n");
}

TEST_F(LockLoan, ALoanCanBeLentOn) {
    TextRegistry outer{reg()};
    TextRegistry inner{reg()};
    TextRegistry innermost{reg()};
    GenRegLockLoan loans[2] = {};
    ASSERT_EQ(outer.Lock(HERE, 10), 0u);
    ASSERT_EQ(outer.LendLock("outer", &loans[0]), 0u);
    ASSERT_EQ(inner.BorrowLock(&loans[0]), 0u);
    ASSERT_EQ(inner.Lock(HERE, 10), 0u);
    ASSERT_EQ(inner.LendLock("inner", &loans[1]), 0u);
    ASSERT_EQ(innermost.BorrowLock(&loans[1]), 0u);
    EXPECT_EQ(innermost.change("x", "2"), 0u);
    EXPECT_EQ(attempt(&loans[0]), REG_LOCK_HELD) << "what is lent on is lent to nobody else";
    EXPECT_EQ(outer.UnLock(), 0u);
    EXPECT_EQ(attempt(), REG_LOCK_HELD);
    EXPECT_EQ(innermost.change("x", "3"), 0u);
    EXPECT_EQ(inner.UnLock(), 0u);
    EXPECT_EQ(attempt(), 0u);
}

// Each is as if there were none: who says so waits like everybody, and gets the lock like everybody.
TEST_F(LockLoan, ALoanThatIsNotTrueIsNoneInAnyThread) {
    write("other", "");
    TextRegistry other{path("other")};
    TextRegistry past{reg()};
    GenRegLockLoan ended = {};
    ASSERT_EQ(past.Lock(HERE, 10), 0u);
    ASSERT_EQ(past.LendLock(nullptr, &ended), 0u);
    ended.descriptor = ::fcntl(ended.descriptor, F_DUPFD_CLOEXEC, 0);  // as a child keeps it
    ASSERT_EQ(past.UnLock(), 0u);
    GenRegLockLoan ofOther = {};
    ASSERT_EQ(other.Lock(HERE, 10), 0u);
    ASSERT_EQ(other.LendLock(nullptr, &ofOther), 0u);
    const int fresh = ::open(path(".reg.lock").c_str(), O_RDWR | O_CLOEXEC);
    const GenRegLockLoan untrue[] = {ended,
                                     ofOther,
                                     {fresh, 0, REG_LOCK_EXCLUSIVE},
                                     {fresh, 1, REG_LOCK_EXCLUSIVE},
                                     {-1, 0, REG_LOCK_EXCLUSIVE},
                                     {9999, 0, REG_LOCK_EXCLUSIVE},
                                     {ended.descriptor, 0xffffffff, REG_LOCK_EXCLUSIVE}};
    for (const GenRegLockLoan& loan : untrue) {
        EXPECT_EQ(attempt(&loan), 0u) << loan.descriptor << " " << loan.depth;
    }
    // Nor does it let anybody in where another holds the lock, has lent it, or works under it.
    TextRegistry holder{reg()};
    TextRegistry worker{reg()};
    GenRegLockLoan held = {};
    for (int step = 0; step < 3; ++step) {
        EXPECT_EQ(step == 0   ? holder.Lock(HERE, 10)
                  : step == 1 ? holder.LendLock(nullptr, &held)
                              : (worker.BorrowLock(&held), worker.Lock(HERE, 10)),
                  0u);
        for (const GenRegLockLoan& loan : untrue) {
            EXPECT_EQ(attempt(&loan), REG_LOCK_HELD) << step << " " << loan.descriptor << " " << loan.depth;
        }
    }
    // And who was refused holds nothing that those under a true loan would wait for.
    EXPECT_EQ(worker.UnLock(), 0u);
    TextRegistry refused{reg()};
    EXPECT_EQ(refused.BorrowLock(&ended), 0u);
    EXPECT_EQ(refused.Lock(HERE, 10), REG_LOCK_HELD);
    EXPECT_EQ(attempt(&held), 0u);
    EXPECT_EQ(worker.Lock(HERE, 10), 0u);
    // One that waits for the lock of another gets it in its turn, as a whole.
    TextRegistry waiting{reg()};
    std::thread asks([&] {
        EXPECT_EQ(waiting.BorrowLock(&ended), 0u);
        EXPECT_EQ(waiting.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_WAIT, 10), 0u);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(worker.UnLock(), 0u);
    EXPECT_EQ(holder.UnLock(), 0u);
    asks.join();
    EXPECT_EQ(attempt(&held), REG_LOCK_HELD);
    GenRegLockLoan whole = {};
    EXPECT_EQ(waiting.LendLock(nullptr, &whole), 0u);
    EXPECT_EQ(whole.depth, 0u);
    ::close(ended.descriptor);
    ::close(fresh);
}

TEST_F(LockLoan, NobodyWaitsBelowASharedLock) {
    TextRegistry lender{reg()};
    GenRegLockLoan loan = {};
    ASSERT_EQ(lender.Lock(REG_LOCK_SHARED | REG_LOCK_NOWAIT, 10), 0u);
    ASSERT_EQ(lender.LendLock("reader", &loan), 0u);
    TextRegistry borrower{reg()};
    ASSERT_EQ(borrower.BorrowLock(&loan), 0u);
    EXPECT_EQ(borrower.change("x", "2"), REG_LOCK_FAILED) << "it would wait for ever";
    EXPECT_EQ(attempt(&loan, REG_LOCK_SHARED | REG_LOCK_WAIT), 0u);
    EXPECT_EQ(attempt(), REG_LOCK_HELD);
    loan.kind = REG_LOCK_EXCLUSIVE;
    EXPECT_EQ(attempt(&loan), REG_LOCK_HELD) << "it lends no more than it is";
    ASSERT_EQ(lender.UnLock(), 0u);
    EXPECT_EQ(borrower.change("x", "2"), 0u);
}

TEST_F(LockLoan, ManyProcessesUnderOneLoanLoseNoChange) {
    TextRegistry lender{reg()};
    GenRegLockLoan loan = {};
    ASSERT_EQ(lender.Lock(HERE, 10), 0u);
    ASSERT_EQ(lender.LendLock(nullptr, &loan), 0u);
    loan.descriptor = ::fcntl(loan.descriptor, F_DUPFD, 0);  // which a fork leaves open
    std::vector<pid_t> children;
    for (int child = 0; child < 4; ++child) {
        children.push_back(::fork());
        if (children.back() == 0) {
            int failures = 0;
            for (int i = 0; i < 10; ++i) {
                TextRegistry file{reg()};
                (void)file.BorrowLock(&loan);
                const std::string name = "n" + std::to_string(child) + "_" + std::to_string(i);
                failures += file.add(name.c_str(), "1") == 0 ? 0 : 1;
            }
            ::_exit(failures);
        }
    }
    for (const pid_t child : children) {
        EXPECT_EQ(waitFor(child), 0);
    }
    EXPECT_EQ(lines("reg").size(), 41U);
    EXPECT_EQ(attempt(), REG_LOCK_HELD);
    ::close(loan.descriptor);
}

}  // namespace

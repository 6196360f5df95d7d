// Transactions whose streams other hands have touched, and what their closing half makes of them.
#include <fcntl.h>

#include <cstdlib>

#include "support/TextRegistry.h"

namespace {

class StreamsTest : public RegistryTest {
protected:
    [[nodiscard]] static unsigned long permissionsOf(const std::string& path) {
        struct stat status = {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    }
};

TEST_F(StreamsTest, AChildForkedWhileACopyIsWrittenAddsNothingToIt) {
    (void)write("reg", "old\n");
    TextRegistry file{reg(), 0};
    ASSERT_EQ(file.OpenReg(REG_OP_CHANGE), 0U);
    EXPECT_GE(std::fputs("new\n", file.tmpFp), 0);
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        char byte = 0;
        std::exit(::read(gate[0], &byte, 1) == 1 ? 0 : 1);
    }
    EXPECT_EQ(file.CloseReg(REG_OP_CHANGE), 0U);
    EXPECT_EQ(::write(gate[1], "x", 1), 1);
    EXPECT_EQ(waitFor(child), 0);
    EXPECT_EQ(content(), "new\n");
    ::close(gate[0]);
    ::close(gate[1]);
}

// What a child may try with an object that its parent has in use.
TEST_F(StreamsTest, NoCallsOfAChildCommitTheParentsCopy) {
    constexpr unsigned long CALLS[][4] = {{REG_OP_CHANGE, 0, 0, 0},
                                          {REG_OP_FINISH, 0, 0, 0},
                                          {REG_OP_CHANGE, REG_OP_FINISH, 0, 0},
                                          {REG_OP_READ, REG_OP_FINISH, 0, 0}};
    for (const unsigned long features : {0UL, REG_FEATURE_DEFERRED_COMMIT}) {
        for (const char* moment : {"written", "closed", "verified"}) {
            (void)write("reg", "old\n");
            TextRegistry file{reg(), features};
            ASSERT_EQ(file.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0), 0U);
            ASSERT_EQ(file.OpenReg(REG_OP_CHANGE), 0U);
            EXPECT_GE(std::fputs("new\n", file.tmpFp), 0);
            if (*moment != 'w') {
                file.features |= REG_FEATURE_DEFERRED_COMMIT;
                ASSERT_EQ(file.CloseReg(REG_OP_CHANGE), 0U);
            }
            if (*moment == 'v') {
                ASSERT_EQ(file.OpenReg(REG_OP_FINISH), 0U);
            }
            const std::string before = names() + content() + read("reg.tmp");
            for (const auto& calls : CALLS) {
                for (const bool opens : {false, true}) {
                    EXPECT_EQ(inChild([&] {
                                  unsigned int failed = 0;
                                  for (const unsigned long op : calls) {
                                      failed += op > REG_OP_READ && opens && file.OpenReg(op) != 0 ? 1 : 0;
                                      failed += op > REG_OP_READ && file.CloseReg(op) != 0 ? 1 : 0;
                                      if (op == REG_OP_READ) {
                                          (void)file.UnLock();
                                          (void)file.OpenReg(op);
                                          (void)file.CloseReg(op);
                                      }
                                  }
                                  const bool refused = failed > 0 || *moment == 'c';
                                  return refused && file.change("old", "x") != 0 ? 0 : 1;
                              }),
                              0)
                        << moment;
                    EXPECT_EQ(names() + content() + read("reg.tmp"), before) << moment << calls[0] << opens;
                }
            }
            EXPECT_EQ(file.CloseReg(*moment == 'w' ? REG_OP_CHANGE : REG_OP_FINISH), 0U);
            if (*moment == 'w' && features != 0) {
                EXPECT_EQ(file.CloseReg(REG_OP_FINISH), 0U);
            }
            EXPECT_EQ(content(), "new\n") << moment;
            // At rest again, it serves a child like any other object.
            EXPECT_EQ(file.UnLock(), 0U);
            write("reg", "old = 1\n");
            file.features = features;
            EXPECT_EQ(inChild([&] { return file.change("old", "2") == 0 ? 0 : 1; }), 0);
            EXPECT_EQ(content(), "old = 2\n");
        }
    }
}

TEST_F(StreamsTest, AScanFailsInAChildWhereverItStands) {
    (void)write("reg", "x = 1\ny = 2\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.OpenScan(), 0U);
    GenRegVarValRecord record;
    for (const unsigned int rc : {0U, 0U, static_cast<unsigned int>(REG_NO_MORE_RECORDS)}) {
        const auto child = [&] {
            const bool failed = file.GetNext(0, nullptr, &record) == REG_READ_FAILED && std::fgetc(file.regFp) == EOF &&
                                std::ferror(file.regFp) != 0;
            return failed && file.CloseScan() == 0 && file.OpenScan() == 0 && file.scanned() == "x y " ? 0 : 1;
        };
        EXPECT_EQ(inChild(child), 0);
        EXPECT_EQ(file.GetNext(0, nullptr, &record), rc);
    }
    EXPECT_EQ(inChild([&] { return file.GetNext(0, nullptr, &record) == REG_READ_FAILED ? 0 : 1; }), 0);
}

TEST_F(StreamsTest, AClientsOwnStreamTakesNobodysLockWithIt) {
    (void)write("reg", "x = 1\n");
    TextRegistry closer{reg()};
    ASSERT_EQ(closer.OpenReg(REG_OP_READ), 0U);
    ASSERT_EQ(closer.CloseReg(REG_OP_READ), 0U);
    TextRegistry holder{reg()};
    ASSERT_EQ(holder.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0), 0U);
    closer.regFp = std::fopen(reg().c_str(), "r");
    EXPECT_EQ(closer.CloseReg(REG_OP_READ), 0U);
    TextRegistry other{reg()};
    EXPECT_EQ(other.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0), REG_LOCK_HELD);
}

TEST_F(StreamsTest, AClosedRegistrysNumberIsNobodysInAChild) {
    (void)write("reg", "x = 1\n");
    TextRegistry file{reg()};
    ASSERT_EQ(file.OpenReg(REG_OP_READ), 0U);
    const int descriptor = ::fileno(file.regFp);
    ASSERT_EQ(file.CloseReg(REG_OP_READ), 0U);
    // The client's own, of the same file, which the child keeps.
    const int own = ::open(reg().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(own, descriptor);
    EXPECT_EQ(inChild([&] {
                  char byte = 0;
                  return ::read(own, &byte, 1) == 1 ? 0 : 1;
              }),
              0);
    ::close(own);
}

TEST_F(StreamsTest, TheCommitKeepsTheBitsThatTheRegistryHasByThen) {
    (void)write("reg", "x = 1\n");
    (void)write("reg.tmp", "x = 2\n");
    ASSERT_EQ(::chmod(reg().c_str(), 0640), 0);
    ASSERT_EQ(::chmod(path("reg.tmp").c_str(), 0600), 0);
    TextRegistry file{reg(), REG_FEATURE_DEFERRED_COMMIT};
    ASSERT_EQ(file.OpenReg(REG_OP_FINISH), 0U);
    ASSERT_EQ(file.CloseReg(REG_OP_FINISH), 0U);
    EXPECT_EQ(content(), "x = 2\n");
    EXPECT_EQ(permissionsOf(reg()), 0640U);
}

TEST_F(StreamsTest, OnlyAbandoningDropsWhatWasAppendedInPlace) {
    for (const unsigned long op : {REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE, REG_OP_FINISH, REG_OP_READ}) {
        (void)write("reg", "x = 1\n");
        TextRegistry file{reg(), REG_FEATURE_ALLOW_DUPLICATES};
        ASSERT_EQ(file.OpenReg(REG_OP_ADD), 0U);
        EXPECT_GE(std::fputs("y = 2\n", file.regFp), 0);
        EXPECT_EQ(file.CloseReg(op), 0U);
        EXPECT_EQ(content(), op == REG_OP_READ ? "x = 1\n" : "x = 1\ny = 2\n") << op;
    }
}

}  // namespace

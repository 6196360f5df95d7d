// The checksum header in front of the records: where there is none, none that fits, and none that may stay.
#include <genreg/Checksum.h>
#include <genreg/GlobalRegRecord.h>
#include <genreg/RegistryBytes.h>

#include <cerrno>

#include "support/BinRegistry.h"
#include "support/GlobalScratch.h"
#include "support/KeptContents.h"

namespace {
bool syncsFail = false;
}

// Stands before the system's own for everything that this program loads.
extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
    if (syncsFail) {
        errno = EIO;
        return -1;
    }
    return this_system::sync(descriptor);
}

namespace {

class ChecksumHeader : public BinRegistry {
protected:
    static std::string stamped(const std::string& body) {
        std::string header = std::to_string(static_cast<int>(sqlzChecksumXOR(body.data(), body.size())));
        header.resize(32, '\0');
        return header + body;
    }
    static std::string stamped(const std::vector<BinItem>& items) { return stamped(binFile(items)); }

    // The ways in which the header is used: what is committed how.
    template <typename Body>
    static void eachCommit(Body body) {
        for (const unsigned long features : {0UL, DEFERRED, DEFERRED | DUPLICATES, DUPLICATES}) {
            SCOPED_TRACE(features);
            body(PACKED | CHECKSUM | features);
        }
    }
    static unsigned int add(BinItems& items, BinItem item) { return items.Add(ITEM_NAME, &item); }
    static unsigned int remove(BinItems& items, BinItem item) { return items.Delete(ITEM_NAME, &item); }
    static unsigned int find(BinItems& items, BinItem item) { return items.Get(ITEM_NAME, &item, &item); }
    // The values that a scan gives, or "code" where it ends otherwise than at its end.
    static std::string scan(BinItems& items) {
        std::string values;
        BinItem item = {};
        unsigned int rc = items.OpenScan();
        while (rc == 0) {
            rc = items.GetNext(0, &item, &item);
            values += rc == 0 ? std::to_string(item.value) : "";
        }
        (void)items.CloseScan();
        return rc == REG_NO_MORE_RECORDS ? values : genregCodeName(rc);
    }
};

TEST_F(ChecksumHeader, TwoObjectsGoOnWhereTheOtherStopped) {
    eachCommit([&](unsigned long features) {
        contents(binFile({a_, b_}));
        BinItems known(file(), features);
        ASSERT_EQ(remove(known, a_), 0U);
        EXPECT_TRUE(contents() == stamped({b_}));
        ASSERT_EQ(add(known, c_), 0U);
        BinItems fresh(file(), features);
        EXPECT_EQ(scan(fresh), "23");
        ASSERT_EQ(remove(fresh, b_), 0U);
        ASSERT_EQ(add(fresh, d_), 0U);
        EXPECT_TRUE(contents() == stamped({c_, d_}));
        EXPECT_EQ(scan(known), "34");
        EXPECT_EQ(remove(known, c_), 0U);
        EXPECT_TRUE(contents() == stamped({d_}));
        // The file that one knows is gone; the next is begun afresh.
        Scratch::remove("items.reg");
        EXPECT_EQ(find(known, d_), REG_MISSING);
        ASSERT_EQ(add(known, a_), 0U);
        EXPECT_EQ(scan(fresh), "1");
        ASSERT_EQ(add(known, b_), 0U);
        EXPECT_EQ(scan(fresh), "12");
    });
}

TEST_F(ChecksumHeader, AShortFileHasNoHeader) {
    for (const auto& [body, values] : {std::pair{std::string(), ""}, {binFile({a_}), "1"}}) {
        ASSERT_LT(body.size(), 32U);
        contents(body);
        BinItems items(file(), PACKED | CHECKSUM);
        EXPECT_EQ(scan(items), values);
        EXPECT_EQ(add(items, b_), 0U);
        EXPECT_TRUE(contents() == stamped(body + binFile({b_})));
    }
    // An object that knows of a header wants to see it.
    contents(stamped({a_}));
    BinItems known(file(), PACKED | CHECKSUM);
    ASSERT_EQ(add(known, b_), 0U);
    contents(binFile({a_}));
    EXPECT_EQ(known.OpenReg(REG_OP_READ), REG_READ_FAILED);
    EXPECT_EQ(known.CloseReg(REG_OP_READ), 0U);
}

TEST_F(ChecksumHeader, AFileThatHasOneIsReadEachTime) {
    contents(stamped({a_, b_}));
    BinItems items(file(), PACKED | CHECKSUM);
    ASSERT_EQ(items.KeepContents(PLENTY), 0U);
    askUntilKept([&] { EXPECT_EQ(find(items, b_), 0U); });
    EXPECT_EQ(find(items, c_), REG_NOT_FOUND);
    EXPECT_EQ(find(items, a_), 0U);
}

TEST_F(ChecksumHeader, BytesInMemoryTellWhetherTheyHaveOne) {
    const std::string sound = stamped({a_, b_});
    const std::string sum = sound.c_str();
    const auto headed = [&](std::string text, char behind) {
        text.resize(text.size() + 1);
        text.resize(32, behind);
        return text + sound.substr(32);
    };
    const std::string lookalike = binFrame(std::string(0x31, 'x'));  // whose length reads as a digit and its end
    const std::string big = binFrame(std::string(0x31, 'x'), true);
    // The length of the first record's frame looks like a header, and the second one is cut off.
    const std::string record =
        frame(RecordImage(GLOBALREG_INSTANCE, 0x27).text("RVN").version().text("inst1").number(1).end());
    ASSERT_EQ(record.size(), 58U);
    const struct {
        std::string bytes;
        unsigned long features;
        bool differs = false;
    } cases[] = {{"", 0},
                 {sound.substr(0, 31), 0},
                 {sound.substr(32), 0},
                 {stamped(""), CHECKSUM},
                 {sound, CHECKSUM},
                 {sound + "x", CHECKSUM, true},
                 {headed(sum, 'x'), CHECKSUM},
                 {headed("0" + sum, 0), CHECKSUM, true},
                 {headed("99999999999", 0), CHECKSUM, true},
                 {headed("999999999999", 0), 0},
                 {headed("-", 0), 0},
                 {lookalike, 0},
                 {lookalike + "y", CHECKSUM, true},
                 {big, BIG_ENDIAN_LENGTHS},
                 {big + "y", BIG_ENDIAN_LENGTHS},
                 {stamped(big), CHECKSUM | BIG_ENDIAN_LENGTHS},
                 {record + record.substr(0, 40), 0}};
    for (const auto& tried : cases) {
        GenRegLayout layout;
        const unsigned int rc = genregReadLayout(tried.bytes.data(), tried.bytes.size(), &layout);
        EXPECT_EQ(rc, tried.differs ? REG_CHECKSUM_DIFFERS : 0U) << tried.bytes;
        EXPECT_EQ(layout.features, tried.features) << tried.bytes;
        EXPECT_EQ(layout.records, (tried.features & CHECKSUM) != 0 ? 32U : 0U) << tried.bytes;
    }
    GenRegLayout none;
    EXPECT_EQ(genregReadLayout(nullptr, 99, &none), 0U);
    EXPECT_EQ(none.stated, nullptr);
}

TEST_F(ChecksumHeader, AnAppendThatCannotBeMadeDurableLeavesFileAndHeaderAsTheyWere) {
    if (!this_system::PROGRAMS_GO_FIRST) {
        GTEST_SKIP() << "needs a sync of the program's own in the place of the system's";
    }
    const std::string before = stamped({a_});
    contents(before);
    BinItems items(file(), PACKED | CHECKSUM | DUPLICATES);
    syncsFail = true;
    EXPECT_EQ(add(items, b_), REG_CLOSE_FAILED);
    syncsFail = false;
    EXPECT_TRUE(contents() == before);
    EXPECT_EQ(add(items, c_), 0U);
    EXPECT_TRUE(contents() == stamped({a_, c_}));
}

// A client with an engine of its own on the transaction: it writes a frame, and goes back to put it right.
TEST_F(ChecksumHeader, WhatAClientWritesWhereItSoughtToStandsThere) {
    for (const bool known : {false, true}) {
        contents("");
        BinItems items(file(), CHECKSUM);
        if (known) {
            ASSERT_EQ(add(items, a_), 0U);
        }
        ASSERT_EQ(items.OpenReg(REG_OP_CHANGE), 0U);
        const long begin = std::ftell(items.tmpFp);
        BinItem record = b_;
        EXPECT_EQ(items.WriteRecord(items.tmpFp, &record), 0U);
        EXPECT_EQ(std::fseek(items.tmpFp, begin, SEEK_SET), 0);
        record = c_;
        EXPECT_EQ(items.WriteRecord(items.tmpFp, &record), 0U);
        EXPECT_EQ(items.CloseReg(REG_OP_CHANGE), 0U);
        EXPECT_TRUE(contents() == stamped(binFile({c_}, false))) << known;
    }
}

}  // namespace

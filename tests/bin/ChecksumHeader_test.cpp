// The checksum header in front of the records: where there is none, none that fits, and none that may stay.
#include <genreg/Checksum.h>
#include <genreg/GlobalRegRecord.h>
#include <genreg/RegistryBytes.h>
#include <sys/syscall.h>

#include <cerrno>
#include <map>

#include "support/BinRegistry.h"
#include "support/GlobalScratch.h"

namespace {
bool syncsFail = false;
}

// Stands before the system's own for everything that this program loads.
extern "C" __attribute__((visibility("default"))) int fsync(int descriptor) {
    if (syncsFail) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
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

    // The frames of these bytes are what the object, which is open, reads of the file.
    static void expectSameFrames(BinItems& items, const std::string& bytes, const GenRegLayout& layout) {
        void* buffer = ossMemAlloc(sizeof(BinItem));
        unsigned long length = 0;
        GenRegFrame frame;
        unsigned int rc = 0;
        for (unsigned long at = layout.records; rc == 0; at = frame.end) {
            rc = genregReadFrame(bytes.data(), bytes.size(), layout.features, at, &frame);
            EXPECT_EQ(items.ReadRecord(items.regFp, &buffer, &length), rc) << bytes;
            EXPECT_TRUE(rc != 0 || std::string(static_cast<const char*>(frame.payload), frame.length) ==
                                       std::string(static_cast<char*>(buffer), length));
            EXPECT_TRUE(rc != REG_FRAME_TRUNCATED || frame.length == length || bytes.size() - at < 4);
            EXPECT_LE(frame.end, bytes.size());
        }
        (void)ossMemFree(buffer);
    }

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

TEST_F(ChecksumHeader, ABodyWhoseChecksumIsZeroIsGoneOnFrom) {
    eachCommit([&](unsigned long features) {
        contents("");
        BinItems items(file(), features);
        ASSERT_EQ(add(items, a_), 0U);
        ASSERT_EQ(remove(items, a_), 0U);
        EXPECT_TRUE(contents() == stamped(""));  // "0"
        EXPECT_EQ(find(items, a_), REG_NOT_FOUND);
        BinItems fresh(file(), features);
        EXPECT_EQ(scan(fresh), "");
        ASSERT_EQ(add(fresh, b_), 0U);
        ASSERT_EQ(add(items, c_), 0U);
        EXPECT_TRUE(contents() == stamped({b_, c_}));
        EXPECT_EQ(remove(fresh, c_), 0U);
    });
}

TEST_F(ChecksumHeader, TheLongestChecksumIsOneToo) {
    constexpr std::size_t LONGEST = 11;  // a minus and ten digits
    BinItem item = a_;
    for (int i = 0; i < 256 && stamped({item}).find('\0') != LONGEST; ++i) {
        std::memset(&item.value, i, sizeof item.value);
    }
    ASSERT_EQ(stamped({item}).find('\0'), LONGEST);
    contents(stamped({item}));
    BinItems fresh(file(), PACKED | CHECKSUM);
    EXPECT_EQ(scan(fresh), std::to_string(item.value));
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

// The length of the first frame reads as a digit, an end of text and more.
TEST_F(ChecksumHeader, FramesThatLookLikeAHeaderAreFrames) {
    const std::string lookalike = binFrame(std::string(0x31, 'x'));
    ASSERT_EQ(lookalike.substr(0, 2), std::string("1\0", 2));
    contents(lookalike);
    BinItems items(file(), CHECKSUM);
    BinItem found = {};
    EXPECT_EQ(items.Get(0, &found, &found), 0U);
    EXPECT_EQ(std::string(found.name, sizeof found.name), std::string(16, 'x'));
    // The same beginning without the frames is a header that does not fit.
    contents(lookalike + "y");
    EXPECT_EQ(items.Get(0, &found, &found), REG_OPEN_FAILED);
    EXPECT_EQ(scan(items), "REG_CHECKSUM_DIFFERS");
}

// What is read in memory is what an object finds that does not know the file yet.
TEST_F(ChecksumHeader, BytesAreReadAsTheFileIs) {
    const std::string sound = stamped({a_, b_});
    const std::string body = sound.substr(32);
    const auto headed = [&](std::string text, char behind) {
        text.resize(text.size() + 1);
        text.resize(32, behind);
        return text + body;
    };
    const std::string sum = sound.c_str();
    const std::string big = std::string("\0\0\0\x31", 4) + std::string(0x31, 'x');
    std::map<std::pair<unsigned int, unsigned long>, int> seen;
    for (const std::string& bytes : {std::string(),
                                     sound.substr(0, 31),
                                     stamped(""),
                                     body,
                                     body + body,
                                     sound,
                                     sound + "x",
                                     headed(sum, 'x'),
                                     headed("0" + sum, 0),
                                     headed("99999999999", 0),
                                     headed("-", 0),
                                     headed("999999999999", 0),
                                     binFrame(std::string(0x31, 'x')),
                                     binFrame(std::string(0x31, 'x')) + "y",
                                     big,
                                     stamped(big),
                                     big + "y",
                                     big.substr(0, 3),
                                     std::string(4, '\0'),
                                     body.substr(0, body.size() - 1)}) {
        GenRegLayout layout;
        const unsigned int rc = genregReadLayout(bytes.data(), bytes.size(), &layout);
        contents(bytes);
        BinItems items(file(), CHECKSUM | layout.features);
        EXPECT_EQ(items.OpenReg(REG_OP_READ), rc) << bytes;
        EXPECT_EQ(layout.stated != nullptr, layout.records == 32) << bytes;
        ++seen[{rc, layout.features}];
        if (rc == 0) {
            EXPECT_EQ(std::ftell(items.regFp), static_cast<long>(layout.records)) << bytes;
            expectSameFrames(items, bytes, layout);
        }
        EXPECT_EQ(items.CloseReg(REG_OP_READ), 0U);
    }
    EXPECT_EQ(seen.size(), 5U);
    EXPECT_EQ((seen[{REG_CHECKSUM_DIFFERS, CHECKSUM}]), 4);
    GenRegLayout none;
    EXPECT_EQ(genregReadLayout(nullptr, 99, &none), 0U);
    EXPECT_EQ(none.stated, nullptr);
    // The length of a record's frame looks like a header, and the record behind it is cut off.
    const std::string record =
        RecordImage(GLOBALREG_INSTANCE, 0x27).text("RVN").version().text("inst1").number(1).end();
    ASSERT_EQ(record.size(), 54U);
    const std::string damaged = frame(record) + frame(record).substr(0, 40);
    EXPECT_EQ(genregReadLayout(damaged.data(), damaged.size(), &none), 0U);
    EXPECT_EQ(none.records, 0U);
}

TEST_F(ChecksumHeader, AnAppendThatCannotBeMadeDurableLeavesFileAndHeaderAsTheyWere) {
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

// One frame between a stream and memory.
#include <genreg/ByteOrder.h>

#include "support/BinRegistry.h"

namespace {

class Frames : public BinRegistry {
protected:
    std::FILE* stream_ = std::tmpfile();
    void* buffer_ = ossMemAlloc(sizeof(BinItem));
    unsigned long length_ = 77;

    ~Frames() override {
        (void)std::fclose(stream_);
        (void)ossMemFree(buffer_);
    }
    void holds(const std::string& bytes) {
        (void)std::fclose(stream_);
        stream_ = std::tmpfile();
        ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), stream_), bytes.size());
        std::rewind(stream_);
    }
    [[nodiscard]] std::string bytes() const {
        std::string all(2 * REG_MAX_RECORD_SIZE, '\0');
        std::rewind(stream_);
        all.resize(std::fread(all.data(), 1, all.size(), stream_));
        std::rewind(stream_);
        return all;
    }
    unsigned int readFrom(BinItems& items) { return items.ReadRecord(stream_, &buffer_, &length_); }
    [[nodiscard]] std::string payload() const { return {static_cast<const char*>(buffer_), length_}; }
};

TEST_F(Frames, WrittenBytesAreTheLengthInTheFilesOrderAndThePayload) {
    for (const unsigned long order : {0UL, BIG_ENDIAN_LENGTHS}) {
        BinItems items(file(), order);
        for (const unsigned long size : {3UL, 259UL, REG_MAX_RECORD_SIZE}) {
            SCOPED_TRACE(::testing::Message() << "order " << order << ", size " << size);
            std::string record(size, 'r');
            holds("");
            BinItems::knobs().recordSize = size;
            ASSERT_EQ(items.WriteRecord(stream_, record.data()), 0U);
            ASSERT_EQ(bytes(), binFrame(record, order != 0));
            ASSERT_EQ(readFrom(items), 0U);
            EXPECT_EQ(payload(), record);
            EXPECT_EQ(readFrom(items), REG_NO_MORE_RECORDS);
        }
    }
    EXPECT_EQ(binFrame(std::string(259, 'r'), true).substr(0, 4), std::string("\0\0\1\3", 4));
    EXPECT_EQ(binFrame(std::string(259, 'r'), false).substr(0, 4), std::string("\3\1\0\0", 4));
}

TEST_F(Frames, RefusedWritesLeaveTheFileAlone) {
    BinItems items(file());
    std::string record(REG_MAX_RECORD_SIZE + 1, 'r');
    for (const auto& [size, code] : {std::pair{2UL, REG_RECORD_TOO_SMALL},
                                     {0UL, REG_RECORD_TOO_SMALL},
                                     {REG_MAX_RECORD_SIZE + 1, REG_RECORD_SIZE_REFUSED},
                                     {0x100000002UL, REG_RECORD_TOO_SMALL}}) {  // its low 32 bits count
        BinItems::knobs().recordSize = size;
        EXPECT_EQ(items.WriteRecord(stream_, record.data()), code) << size;
    }
    items.getRecordSize = nullptr;
    EXPECT_EQ(items.WriteRecord(stream_, record.data()), REG_NO_GET_RECORD_SIZE);
    BinItems packed(file(), PACKED);
    packed.getPackedRecordSize = nullptr;
    EXPECT_EQ(packed.WriteRecord(stream_, record.data()), REG_NO_GET_PACKED_RECORD_SIZE);
    EXPECT_EQ(bytes(), "");
}

TEST_F(Frames, FailingStreamsAreTold) {
    BinItems items(file());
    std::string record(1000, 'r');
    BinItems::knobs().recordSize = record.size();
    char fewBytes[256];  // they take the length, not the payload
    for (const auto& [buffer, code] : {std::pair{static_cast<char*>(nullptr), REG_FRAME_LENGTH_WRITE_FAILED},
                                       {fewBytes, REG_FRAME_PAYLOAD_WRITE_FAILED}}) {
        std::FILE* const full = std::fopen("/dev/full", "w");
        (void)std::setvbuf(full, buffer, buffer == nullptr ? _IONBF : _IOFBF, sizeof fewBytes);
        EXPECT_EQ(items.WriteRecord(full, record.data()), code);
        (void)std::fclose(full);
    }
    std::FILE* const unreadable = std::fopen("/dev/null", "w");
    EXPECT_EQ(items.ReadRecord(unreadable, &buffer_, &length_), REG_FRAME_LENGTH_READ_FAILED);
    (void)std::fclose(unreadable);
}

TEST_F(Frames, ReadRecordAndGetNextShareTheScansPosition) {
    contents(binFile({a_, b_, c_}));
    BinItems items(file(), PACKED);
    ASSERT_EQ(items.OpenScan(), 0U);
    BinItem key = {};
    BinItem result = {};
    ASSERT_EQ(items.GetNext(0, &key, &result), 0U);
    long long behindFirst = 0;
    ASSERT_EQ(items.getRegFilePosition(&behindFirst), 0U);
    EXPECT_EQ(behindFirst, static_cast<long long>(binFile({a_}).size()));
    ASSERT_EQ(items.ReadRecord(items.regFp, &buffer_, &length_), 0U);
    EXPECT_EQ(payload(), binImage(b_));
    ASSERT_EQ(items.GetNext(0, &key, &result), 0U);
    EXPECT_STREQ(result.name, "c");
    EXPECT_EQ(items.CloseScan(), 0U);
}

TEST(ByteOrder, BigEndianBytes) {
    signed char bytes[4] = {};
    unsigned int value = 5;
    EXPECT_EQ(toBigEndianUint32(bytes, 0x80ff0103U), 0U);
    EXPECT_EQ(std::memcmp(bytes, "\x80\xff\x01\x03", 4), 0);
    EXPECT_EQ(fromBigEndianUint32(bytes, &value), 0U);
    EXPECT_EQ(value, 0x80ff0103U);
}

}  // namespace

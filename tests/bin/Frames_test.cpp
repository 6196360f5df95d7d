// One frame between a stream and memory.
#include "support/BinRegistry.h"

namespace {

class Frames : public BinRegistry {
protected:
    // What the writing of these bytes, which are told to have that size, leaves.
    static std::string written(BinItems& items, std::string record, unsigned long size, unsigned int code) {
        BinItems::knobs().recordSize = size;
        char* bytes = nullptr;
        std::size_t count = 0;
        std::FILE* const stream = ::open_memstream(&bytes, &count);
        EXPECT_EQ(items.WriteRecord(stream, record.data()), code) << size;
        (void)std::fclose(stream);
        std::string all(bytes, count);
        std::free(bytes);
        return all;
    }
};

TEST_F(Frames, TheLengthStandsInTheFilesOrder) {
    const std::string record(259, 'r');
    BinItems little(file());
    EXPECT_EQ(written(little, record, 259, 0), std::string("\3\1\0\0", 4) + record);
    BinItems big(file(), BIG_ENDIAN_LENGTHS);
    EXPECT_EQ(written(big, record, 259, 0), std::string("\0\0\1\3", 4) + record);
}

TEST_F(Frames, RefusedWritesLeaveTheFileAlone) {
    const std::string record(REG_MAX_RECORD_SIZE + 1, 'r');
    BinItems items(file());
    EXPECT_EQ(written(items, record, 0, REG_RECORD_TOO_SMALL), "");
    EXPECT_EQ(written(items, record, 2, REG_RECORD_TOO_SMALL), "");
    EXPECT_EQ(written(items, record, REG_MAX_RECORD_SIZE + 1, REG_RECORD_SIZE_REFUSED), "");
    EXPECT_EQ(written(items, record, 0x100000002UL, REG_RECORD_TOO_SMALL), "");  // its low 32 bits count
    items.getRecordSize = nullptr;
    EXPECT_EQ(written(items, record, 3, REG_NO_GET_RECORD_SIZE), "");
    BinItems packed(file(), PACKED);
    packed.getPackedRecordSize = nullptr;
    EXPECT_EQ(written(packed, record, 3, REG_NO_GET_PACKED_RECORD_SIZE), "");
}

}  // namespace

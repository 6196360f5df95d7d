// Records of the global registry, and what its packing makes of them.
#pragma once

#include <genreg/genreg.h>
#include <osse/Memory.h>

#include <cstring>
#include <memory>

#include "support/GlobalScratch.h"

template <std::size_t size>
void put(char (&member)[size], const std::string& text) {
    member[text.copy(member, size - 1)] = '\0';
}

// With the padding: what the library hands out is zero there too.
template <class Plain>
std::string bytesOf(const Plain& plain) {
    return {reinterpret_cast<const char*>(&plain), sizeof plain};
}

// The slots that the engine sees, and the object's bits.
class Slots : public GlobalReg {
public:
    using GlobalReg::checkPacked;
    using GlobalReg::features;
    using GlobalReg::packedMayMatch;
    using GlobalReg::packsAlike;
    using GlobalReg::state;
};
inline const Slots& slots() {
    static const Slots object;
    return object;
}

struct FreeBlock {
    void operator()(void* block) const { (void)ossMemFree(block); }
};
using Block = std::unique_ptr<void, FreeBlock>;

inline Block blockOf(const void* bytes, std::size_t size) {
    unsigned long least = 0;
    (void)GlobalReg::GetMaxRecordSize(&least);
    Block block(ossMemAlloc(std::max<unsigned long>(size, least)));
    std::memcpy(block.get(), bytes, size);
    return block;
}

inline std::string pack(const GlobalRegRecord& record, std::string previous = "") {
    void* buffer = blockOf(&record, sizeof record).release();
    EXPECT_EQ(GlobalReg::PackRecord(&buffer, previous.empty() ? nullptr : previous.data()), 0U);
    const Block owner(buffer);
    unsigned long size = 0;
    EXPECT_EQ(GlobalReg::GetPackedRecordSize(buffer, &size), 0U);
    return {static_cast<const char*>(buffer), size};
}

inline GlobalRegRecord unpacked(const std::string& image) {
    void* buffer = blockOf(image.data(), image.size()).release();
    EXPECT_EQ(GlobalReg::UnpackRecord(&buffer), 0U);
    const Block owner(buffer);
    GlobalRegRecord record;
    std::memcpy(static_cast<void*>(&record), buffer, sizeof record);
    return record;
}

// Every field of the mask set to something valid: numbers to 1, texts to their names or, to the brim, to x's.
inline GlobalRegRecord recordOf(unsigned int type, unsigned long mask, bool toTheBrim = false) {
    GlobalRegRecord record = {};
    record.recordType = type;
    unsigned long count = 0;
    const GlobalRegField* fields = globalRegFields(type, &count);
    for (unsigned long index = 0; index < count; ++index) {
        const GlobalRegField& field = fields[index];
        if ((mask & field.bit) == 0) {
            continue;
        }
        char* member = reinterpret_cast<char*>(&record) + field.offset;
        if (field.kind != GLOBALREG_FIELD_TEXT) {
            member[0] = 1;
        } else if (toTheBrim) {
            std::memset(member, 'x', field.capacity - 1);
        } else {
            std::memcpy(member, field.name, std::strlen(field.name));
        }
        record.fieldMask |= field.bit;
    }
    return record;
}

// Any bytes as the packed image of a global registry record: a bad one is refused, a good one is measured, unpacked,
// packed again and printed without touching a byte outside, and the second round gives what the first one gave.
#include <genreg/genreg.h>
#include <osse/Memory.h>

#include <cstring>
#include <memory>

#include "Fuzz.h"

namespace {

class Block {
public:
    explicit Block(unsigned long size) : block_(ossMemAlloc(size)) {}
    ~Block() { (void)ossMemFree(block_); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    [[nodiscard]] void* get() const { return block_; }
    [[nodiscard]] void** slot() { return &block_; }

private:
    void* block_;
};

bool sameRecord(const void* a, const void* b) {
    GlobalRegRecord first;
    GlobalRegRecord second;
    std::memcpy(static_cast<void*>(&first), a, sizeof first);
    std::memcpy(static_cast<void*>(&second), b, sizeof second);
    return first.recordType == second.recordType && first.fieldMask == second.fieldMask &&
           first.missingFieldMask == second.missingFieldMask && first.checksum == second.checksum &&
           GlobalReg::MatchRecord(~0UL, &first, &second) == 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const FuzzQuiet quiet;
    // A copy of just the image, so that a look behind its end is seen.
    const std::unique_ptr<std::uint8_t[]> image(new std::uint8_t[size]);
    std::memcpy(image.get(), bytes, size);
    unsigned long damage = 0;
    if (globalRegCheckImage(image.get(), size, &damage) != 0) {
        claim(damage <= size, "the damage lies in the image");
        return 0;
    }
    unsigned long measured = 0;
    claim(GlobalReg::GetPackedRecordSize(image.get(), &measured) == 0 && measured == size, "the image fills its frame");

    const unsigned long room = size > sizeof(GlobalRegRecord) ? size : sizeof(GlobalRegRecord);
    Block record(room);
    std::memcpy(record.get(), image.get(), size);
    claim(GlobalReg::UnpackRecord(record.slot()) == 0, "a whole image is unpacked");
    claim(GlobalReg::PrintRecord(record.get()) == 0, "its record is printed");
    (void)GlobalReg::ValidateRecord(0, record.get());

    Block packed(room);
    std::memcpy(packed.get(), record.get(), sizeof(GlobalRegRecord));
    claim(GlobalReg::PackRecord(packed.slot(), image.get()) == 0, "and packed again");
    unsigned long again = 0;
    claim(GlobalReg::GetPackedRecordSize(packed.get(), &again) == 0, "the new image is measured");
    claim(globalRegCheckImage(packed.get(), again, nullptr) == 0, "the new image is whole");

    Block second(again > room ? again : room);
    std::memcpy(second.get(), packed.get(), again);
    claim(GlobalReg::UnpackRecord(second.slot()) == 0, "and unpacked");
    claim(sameRecord(record.get(), second.get()), "both rounds give the same record");
    return 0;
}

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

// The slots that the engine sees.
class Slots : public GlobalReg {
public:
    using GlobalReg::packedMayMatch;
    using GlobalReg::packsAlike;
};

// Whether a key finds the image is told without unpacking it as its record tells it: the record itself, one of no type,
// and those that lack a field or have another one there.
void claimSameMatches(const std::uint8_t* image, std::size_t size, GlobalRegRecord& record) {
    static const Slots slots;
    const auto ask = [&](void* key) {
        for (const unsigned long mask : {0UL, 1UL, 2UL, 4UL, 8UL, 0x10UL, 0x20UL, 0x80UL, 0x3f8UL, ~0UL}) {
            const bool matches = GlobalReg::MatchRecord(mask, &record, key) == 1;
            claim(slots.packedMayMatch(mask, image, size, key) == matches, "the image matches as its record does");
        }
    };
    ask(nullptr);
    GlobalRegRecord key = record;
    ask(&key);
    key.recordType = 0;
    ask(&key);
    unsigned long count = 0;
    const GlobalRegField* const fields = globalRegFields(record.recordType, &count);
    for (unsigned long i = 0; i < count; ++i) {
        for (const char* const change : {"empty", "other", "longer"}) {
            key = record;
            char* const member = reinterpret_cast<char*>(&key) + fields[i].offset;
            const bool longer = *change == 'l' && fields[i].kind == GLOBALREG_FIELD_TEXT;
            char& letter = member[longer ? ::strnlen(member, fields[i].capacity - 2) : 0];
            letter = *change == 'e' ? '\0' : static_cast<char>(letter ^ 'a');
            ask(&key);
        }
    }
}

// What is read of an image that nobody has checked: its items one behind the other up to the damage, and their values.
void claimItems(const std::uint8_t* image, std::size_t size, unsigned int result, unsigned long damage) {
    GlobalRegRecord read;
    claim(globalRegReadImage(image, size, &read) == result, "reading and checking agree");
    unsigned long seen = 0;
    unsigned long end = 20;
    GlobalRegItem item = {};
    unsigned int rc = 0;
    while ((rc = globalRegNextItem(image, size, &item)) == 0) {
        const unsigned long known = read.recordType == GLOBALREG_VARIABLE ? 0x1f : 0x3ff;
        claim(item.offset == end && item.bytes == image + end + 2, "an item stands behind the one before");
        claim((item.field != nullptr) == ((item.bit & known) != 0), "a known bit has its field");
        claim(item.bit > seen, "the items stand in the order of their bits");
        seen |= item.bit;
        end += 2 + item.length;
    }
    claim(rc == (result == 0 ? unsigned{REG_NO_MORE_RECORDS} : result), "the items end as the check does");
    claim(result == 0 ? seen == (read.fieldMask & ~(1UL << 63)) : item.offset == damage, "all of them, or up to there");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const FuzzQuiet quiet;
    // A copy of just the image, so that a look behind its end is seen.
    const std::unique_ptr<std::uint8_t[]> image(new std::uint8_t[size]);
    std::memcpy(image.get(), bytes, size);
    unsigned long damage = 0;
    const unsigned int checked = globalRegCheckImage(image.get(), size, &damage);
    claimItems(image.get(), size, checked, damage);
    if (checked != 0) {
        claim(damage <= size, "the damage lies in the image");
        return 0;
    }
    unsigned long measured = 0;
    claim(GlobalReg::GetPackedRecordSize(image.get(), &measured) == 0 && measured == size, "the image fills its frame");

    const unsigned long room = size > sizeof(GlobalRegRecord) ? size : sizeof(GlobalRegRecord);
    Block record(room);
    std::memcpy(record.get(), image.get(), size);
    claim(GlobalReg::UnpackRecord(record.slot()) == 0, "a whole image is unpacked");
    GlobalRegRecord read;
    (void)globalRegReadImage(image.get(), size, &read);
    read.missingFieldMask = static_cast<GlobalRegRecord*>(record.get())->missingFieldMask;
    const std::string inPlace(reinterpret_cast<const char*>(&read), sizeof read);  // padding is zero, too
    claim(inPlace == std::string(static_cast<char*>(record.get()), sizeof read), "reading in place gives the record");
    claimSameMatches(image.get(), size, *static_cast<GlobalRegRecord*>(record.get()));
    claim(GlobalReg::PrintRecord(record.get()) == 0, "its record is printed");
    (void)GlobalReg::ValidateRecord(0, record.get());

    Block packed(room);
    std::memcpy(packed.get(), record.get(), sizeof(GlobalRegRecord));
    claim(GlobalReg::PackRecord(packed.slot(), image.get()) == 0, "and packed again");
    unsigned long again = 0;
    claim(GlobalReg::GetPackedRecordSize(packed.get(), &again) == 0, "the new image is measured");
    const bool alike = again == size && std::memcmp(packed.get(), image.get(), size) == 0;
    claim(Slots().packsAlike(image.get(), size) == alike, "what packs alike is known without packing");
    claim(globalRegCheckImage(packed.get(), again, nullptr) == 0, "the new image is whole");

    Block second(again > room ? again : room);
    std::memcpy(second.get(), packed.get(), again);
    claim(GlobalReg::UnpackRecord(second.slot()) == 0, "and unpacked");
    claim(sameRecord(record.get(), second.get()), "both rounds give the same record");
    return 0;
}

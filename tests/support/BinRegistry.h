// A binary registry in a folder of its own, and what an operation may leave behind.
#pragma once

#include "support/BinSchema.h"
#include "support/Scratch.h"

class BinRegistry : public Scratch {
protected:
    static constexpr unsigned long DEFERRED = REG_FEATURE_DEFERRED_COMMIT;
    static constexpr unsigned long DUPLICATES = REG_FEATURE_ALLOW_DUPLICATES;
    static constexpr unsigned long PACKED = REG_FEATURE_PACKED;
    static constexpr unsigned long BIG_ENDIAN_LENGTHS = REG_FEATURE_BIG_ENDIAN;
    static constexpr unsigned long CHECKSUM = REG_FEATURE_CHECKSUM_HEADER;

    BinRegistry() { BinItems::knobs() = {}; }

    const BinItem a_ = binItem("a", 1), b_ = binItem("b", 2), c_ = binItem("c", 3), d_ = binItem("d", 4);

    [[nodiscard]] std::string file() const { return path("items.reg"); }
    [[nodiscard]] std::string contents() const { return read("items.reg"); }
    void contents(const std::string& bytes) const { write("items.reg", bytes); }

    // Nothing is open, nothing is locked, no backup is left.
    void expectAtRest(long descriptors) const {
        EXPECT_EQ(openDescriptors(), descriptors);
        BinItems other(file());
        EXPECT_EQ(other.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT | REG_LOCK_CREATE_DIR, 0), 0U);
        EXPECT_EQ(other.UnLock(), 0U);
        EXPECT_FALSE(exists(".items.reg.bkp"));
    }

    // Runs the body for deferred commit x duplicates x packing, with the given slots and with all.
    template <typename Body>
    static void eachWay(Body body) {
        for (unsigned long way = 0; way < 12; ++way) {
            const unsigned long features =
                (way & 1 ? DEFERRED : 0) | (way & 2 ? DUPLICATES : 0) | (way < 8 ? PACKED : 0);
            const auto slots = (way & 4) != 0 ? BinItems::Slots::All : BinItems::Slots::Given;
            SCOPED_TRACE(::testing::Message() << "features " << features << ", slots " << static_cast<int>(slots));
            body(features, slots);
        }
    }
};

// The verification, called on a registry and a temporary copy that were written by hand.
#include "support/BinRegistry.h"

namespace {

class BinVerification : public BinRegistry {
protected:
    const BinItem b9_ = binItem("b", 9), x_ = binItem("x", 1);
    const std::string broken_ = std::string("\x9\0\0\0rest", 8);  // a frame that is cut short

    static std::string image(const std::vector<BinItem>& items) { return binFile(items); }

    unsigned int verify(BinItems& items, const std::string& before, const std::string& after, unsigned long operation,
                        unsigned long mask, const BinItem& record, const BinItem& key) {
        contents(before);
        write("items.reg.tmp", after);
        BinItem recordGiven = record;
        BinItem keyGiven = key;
        const bool added = operation == REG_OP_ADD;
        const bool deleted = operation == REG_OP_DELETE;
        return items.Verify(operation, mask, deleted ? nullptr : &recordGiven, added ? nullptr : &keyGiven);
    }
};

// Where this engine judges, reads or commits by itself; the walk itself is the text engine's too.
TEST_F(BinVerification, EveryDifferenceHasItsCodeAndOnlyWhatWasCountedIsCommitted) {
    struct Case {
        unsigned int code;
        bool committed;
        std::string before, after;
    };
    const auto tryAll = [&](unsigned long operation, unsigned long features, unsigned long mask, const BinItem& record,
                            const BinItem& key, const std::vector<Case>& cases) {
        for (std::size_t i = 0; i < cases.size(); ++i) {
            for (const auto slots : {BinItems::Slots::Given, BinItems::Slots::All}) {
                SCOPED_TRACE(::testing::Message() << "operation " << operation << ", features " << features << ", case "
                                                  << i << ", slots " << static_cast<int>(slots));
                const Case& tried = cases[i];
                BinItems items(file(), PACKED | DEFERRED | features, slots);
                const long descriptors = openDescriptors();
                EXPECT_EQ(verify(items, tried.before, tried.after, operation, mask, record, key), tried.code);
                EXPECT_TRUE(contents() == (tried.committed ? tried.after : tried.before));
                EXPECT_EQ(exists("items.reg.tmp"), !tried.committed);
                expectAtRest(descriptors);
            }
        }
    };
    const std::string abc = image({a_, b_, c_});
    const std::string ab = image({a_, b_});
    tryAll(REG_OP_CHANGE, 0, ITEM_NAME, b9_, b_,
           {{0, true, abc, image({a_, b9_, c_})},
            {REG_VERIFY_SEVERAL_CHANGED, true, image({b_, b_}), image({b9_, b9_})},
            {REG_VERIFY_LENGTH_DIFFERS, false, abc, image({a_, b9_})},
            {0, true, abc, image({a_, b9_, c_, x_})},  // kept: a longer new file passes
            {REG_VERIFY_NO_DIFFERENCE, false, ab, abc},
            {REG_READ_FAILED, false, ab + broken_, image({a_, b9_})},
            {REG_VERIFY_READ_FAILED, false, ab, image({a_, b9_}) + broken_}});
    tryAll(REG_OP_ADD, 0, ITEM_NAME, c_, c_,
           {{0, true, ab, abc},
            {REG_VERIFY_DIFFERS_EARLY, true, ab, image({a_, x_, c_})},
            {REG_VERIFY_DIFFERS_EARLY, false, ab, image({a_, x_})},
            {REG_VERIFY_DIFFERS_EARLY, false, ab, image({a_, x_}) + broken_},
            {REG_VERIFY_DIFFERS_EARLY, false, ab + broken_, image({a_, x_})},
            {REG_VERIFY_READ_FAILED, false, ab, ab + broken_},
            {REG_VERIFY_READ_FAILED, false, ab, abc + broken_}});
    tryAll(REG_OP_DELETE, 0, ITEM_NAME, b_, b_,
           {{0, true, abc, image({a_, c_})},
            {REG_VERIFY_SEVERAL_CHANGED, true, image({a_, b_, b9_}), image({a_})},
            {REG_READ_FAILED, false, ab + broken_, image({a_, c_})},
            {REG_READ_FAILED, false, ab + broken_, image({a_})}});
}

TEST_F(BinVerification, AnImageWithBytesBehindItIsNotTheImage) {
    const std::string before = image({a_, b_});
    const std::string after = binFrame(binImage(a_) + "x") + image({b9_});
    BinItems items(file(), PACKED | DEFERRED, BinItems::Slots::All);
    EXPECT_EQ(verify(items, before, after, REG_OP_CHANGE, ITEM_NAME, b9_, b_), REG_UNPACK_FAILED);
    EXPECT_TRUE(contents() == before);
}

}  // namespace

// Several at work on one registry: nothing is lost.
#include <thread>

#include "support/BinRegistry.h"

namespace {

class BinCrowd : public BinRegistry {
protected:
    // Adds its own items, changes and deletes some; answers how many operations failed.
    static int work(const std::string& file, unsigned long features, int worker, int count) {
        int failures = 0;
        BinItems items(file, features, BinItems::Slots::All);
        for (int i = 0; i < count; ++i) {
            BinItem item = binItem(std::to_string(worker) + "." + std::to_string(i), 0);
            failures += items.Add(ITEM_NAME, &item) == 0 ? 0 : 1;
            BinItem changed = item;
            changed.value = i + 1;
            BinItem found = {};
            failures += items.Get(ITEM_NAME, &item, &found) == 0 ? 0 : 1;
            failures += items.Change(ITEM_NAME, &item, &changed) == 0 ? 0 : 1;
            if (i % 3 == 0) {
                failures += items.Delete(ITEM_NAME, &item) == 0 ? 0 : 1;
            }
        }
        return failures;
    }

    void expectAll(unsigned long features, int workers, int count) {
        std::vector<std::string> expected;
        for (int worker = 0; worker < workers; ++worker) {
            for (int i = 0; i < count; ++i) {
                if (i % 3 != 0) {
                    expected.push_back(std::to_string(worker) + "." + std::to_string(i) + "=" + std::to_string(i + 1));
                }
            }
        }
        std::vector<std::string> found;
        BinItems items(file(), features);
        BinItem item = {};
        ASSERT_EQ(items.OpenScan(), 0U);
        while (items.GetNext(0, &item, &item) == 0) {
            found.push_back(std::string(item.name) + "=" + std::to_string(item.value));
        }
        EXPECT_EQ(items.CloseScan(), 0U);
        std::sort(found.begin(), found.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(found, expected);
        EXPECT_EQ(names(), ".items.reg.lock items.reg");
    }
};

TEST_F(BinCrowd, TwoThreadsWithAnObjectEachLoseNothing) {
    for (const unsigned long features : {PACKED | DEFERRED, PACKED | DUPLICATES}) {
        SCOPED_TRACE(features);
        remove("items.reg");
        int failures[2] = {};
        std::thread other([&] { failures[1] = work(file(), features, 1, 20); });
        failures[0] = work(file(), features, 0, 20);
        other.join();
        EXPECT_EQ(failures[0] + failures[1], 0);
        expectAll(features, 2, 20);
    }
}

}  // namespace

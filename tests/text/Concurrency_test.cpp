// Several threads at one file.
#include <chrono>
#include <thread>

#include "support/VarValFile.h"

namespace {

using ConcurrencyTest = RegistryTest;

TEST_F(ConcurrencyTest, ThreadsWithAnObjectEachLoseNothingAndReadersSeeWholeLines) {
    constexpr std::size_t WRITERS = 4;
    constexpr std::size_t EACH = 10;
    for (const unsigned long features : UPDATE_WAYS) {
        remove("reg");
        std::vector<std::thread> threads;
        for (std::size_t writer = 0; writer < WRITERS; ++writer) {
            threads.emplace_back([this, features, writer] {
                VarValFile file{reg(), features};
                for (std::size_t i = 0; i < EACH; ++i) {
                    const std::string name = "w" + std::to_string(writer) + "_" + std::to_string(i);
                    EXPECT_EQ(file.add(name.c_str(), "whole value"), 0u);
                }
            });
        }
        threads.emplace_back([this] {
            std::size_t before = 0;
            while (before < WRITERS * EACH) {
                VarValFile file{reg()};
                (void)file.OpenScan();  // which fails until the file is made
                std::size_t seen = 0;
                GenRegVarValRecord record;
                while (file.GetNext(0, nullptr, &record) == 0) {
                    EXPECT_STREQ(record.value, "whole value");
                    ++seen;
                }
                EXPECT_GE(seen, before);
                before = seen;
            }
        });
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(lines("reg").size(), WRITERS * EACH);
        EXPECT_EQ(names(), "reg");
    }
}

TEST_F(ConcurrencyTest, AnAppendInPlaceWaitsForAScanOfAnotherThread) {
    write("reg", "a = 1\n");
    VarValFile scan{reg()};
    ASSERT_EQ(scan.OpenScan(), 0u);
    unsigned int rc = 1;
    std::thread writer([&] {
        VarValFile file{reg(), REG_FEATURE_ALLOW_DUPLICATES};
        rc = file.add("b", "2");
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(content(), "a = 1\n");
    EXPECT_EQ(scan.scanned(), "a ");
    ASSERT_EQ(scan.CloseScan(), 0u);
    writer.join();
    EXPECT_EQ(rc, 0u);
    EXPECT_EQ(content(), "a = 1\nb = 2\n");
}

}  // namespace

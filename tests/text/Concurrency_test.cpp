// Several writers and readers at one file.
#include <chrono>
#include <thread>

#include "support/VarValFile.h"

namespace {

using ConcurrencyTest = RegistryTest;

// Adds variables of its own; the first code that is not 0.
unsigned int addAll(const std::string& path, unsigned long features, int writer, int count) {
    VarValFile file{path, features};
    for (int i = 0; i < count; ++i) {
        const std::string name = "w" + std::to_string(writer) + "_" + std::to_string(i);
        const std::string value = std::string(50, 'v') + "end";
        if (const unsigned int rc = file.add(name.c_str(), value.c_str())) {
            return rc;
        }
    }
    return 0;
}

// Scans until it has seen the last line; every version must be whole and hold what the one before held.
int readUntil(const std::string& path, int last) {
    int before = 0;
    while (before < last) {
        VarValFile file{path};
        if (file.OpenScan() != 0) {
            continue;  // not made yet
        }
        int seen = 0;
        GenRegVarValRecord record;
        while (file.GetNext(0, nullptr, &record) == 0) {
            if (record.value == nullptr || !std::string(record.value).ends_with("vend")) {
                return 1;
            }
            ++seen;
        }
        if (seen < before) {
            return 2;
        }
        before = seen;
    }
    return 0;
}

TEST_F(ConcurrencyTest, ThreadsWithAnObjectEachLoseNothing) {
    constexpr int WRITERS = 4;
    constexpr int EACH = 10;
    for (const unsigned long features : UPDATE_WAYS) {
        remove("reg");
        std::vector<std::thread> threads;
        std::vector<unsigned int> codes(WRITERS, 1);
        int read = 1;
        for (int i = 0; i < WRITERS; ++i) {
            threads.emplace_back([&, i] { codes[static_cast<std::size_t>(i)] = addAll(reg(), features, i, EACH); });
        }
        threads.emplace_back([&] { read = readUntil(reg(), WRITERS * EACH); });
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(codes, std::vector<unsigned int>(WRITERS, 0));
        EXPECT_EQ(read, 0);
        EXPECT_EQ(lines("reg").size(), static_cast<std::size_t>(WRITERS) * EACH);
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

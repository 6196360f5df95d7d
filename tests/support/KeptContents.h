// What tests of objects that keep the contents share.
#pragma once

#include <ThisSystem.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "support/Ways.h"

constexpr unsigned long PLENTY = 1UL << 20;

// Lets the file grow old enough, and asks until the contents are kept, as far as they can be.
template <typename Ask>
void askUntilKept(Ask once) {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    for (int i = 0; i < 3; ++i) {
        once();
    }
}

// Stores that no look at the file tells of: what is answered afterwards says where it came from. The first one makes
// the page the writer's; the system looks at it again when it writes the page out.
class Mapping {
public:
    explicit Mapping(const std::string& path) : descriptor_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
        void* const memory = ::mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
        if (memory != MAP_FAILED) {
            bytes_ = static_cast<volatile char*>(memory);
            store(0, bytes_[0]);
        }
    }
    ~Mapping() {
        if (bytes_ != nullptr) {
            (void)::munmap(const_cast<char*>(bytes_), SIZE);
        }
        (void)::close(descriptor_);
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    // False where the file's times tell of it.
    bool store(std::size_t offset, char byte) {
        struct stat before = {};
        struct stat after = {};
        if (bytes_ == nullptr || ::fstat(descriptor_, &before) != 0) {
            ADD_FAILURE() << "the file is not mapped";
            return false;
        }
        bytes_[offset] = byte;
        return ::fstat(descriptor_, &after) == 0 && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
               before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
    }

private:
    static constexpr std::size_t SIZE = 64;

    int descriptor_;
    volatile char* bytes_ = nullptr;
};

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
    explicit Mapping(const std::string& path) : path_(path), descriptor_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
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
        if (bytes_ == nullptr) {
            ADD_FAILURE() << "the file is not mapped";
            return false;
        }
        const auto before = std::filesystem::last_write_time(path_);
        bytes_[offset] = byte;
        return std::filesystem::last_write_time(path_) == before;
    }

private:
    static constexpr std::size_t SIZE = 64;

    std::filesystem::path path_;
    int descriptor_;
    volatile char* bytes_ = nullptr;
};

// Memory that forked processes share, and a tally in it that survives the death of any of them.
#pragma once

#include <sys/mman.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "prove/support/Cases.h"

namespace prove {

// A T in memory that this process and all that it forks share.
template <typename T>
class Shared {
public:
    Shared() {
        void* const memory = ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            std::abort();
        }
        object_ = new (memory) T();
    }
    ~Shared() { (void)::munmap(object_, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T& operator*() const noexcept { return *object_; }
    T* operator->() const noexcept { return object_; }

private:
    T* object_;
};

// Cases as several processes and threads count them.
class Tally {
public:
    bool check(bool good, const std::string& what) noexcept;
    void count(unsigned long cases) noexcept { cases_ += cases; }
    // Hands everything counted so far to the rig.
    void passTo(Cases& cases);

private:
    static constexpr unsigned long MOST_TOLD = 16;
    static constexpr unsigned long LONGEST = 480;

    std::atomic<unsigned long> cases_ = 0;
    std::atomic<unsigned long> failed_ = 0;
    std::atomic<unsigned long> told_ = 0;
    char texts_[MOST_TOLD][LONGEST] = {};
};

// Runs body(0) to body(count - 1), each a child's, many to a child: a body that crashes or hangs is a failure of its
// own, named by `nameOf`, and the rest goes on behind it.
void runIsolated(Cases& cases, unsigned long count, const std::function<void(unsigned long, Tally&)>& body,
                 const std::function<std::string(unsigned long)>& nameOf);

}  // namespace prove

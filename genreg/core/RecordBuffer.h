// A block of the platform's memory that an operation works in, given back by release() or, on an early return, by the
// destructor.
#pragma once

#include <osse/Memory.h>

namespace genreg {

class RecordBuffer {
public:
    // tag: the name of the room that asks, for the platform's books.
    explicit RecordBuffer(const char* tag) noexcept : tag_(tag) {}
    ~RecordBuffer() noexcept { (void)release(); }
    RecordBuffer(const RecordBuffer&) = delete;
    RecordBuffer& operator=(const RecordBuffer&) = delete;

    // Zero-filled; false when there is no memory.
    [[nodiscard]] bool allocate(unsigned long size, unsigned long line = __builtin_LINE()) noexcept {
        (void)release(line);
        block_ = _ossMemAlloc(size, tag_, line);
        size_ = block_ != nullptr ? size : 0;
        return block_ != nullptr;
    }

    // At least this size; what the block held is lost when it has to grow. False when there is no memory.
    [[nodiscard]] bool ensure(unsigned long size, unsigned long line = __builtin_LINE()) noexcept {
        return (block_ != nullptr && size_ >= size) || allocate(size, line);
    }

    // Changes blocks with somebody else.
    void swap(void** block) noexcept {
        void* const mine = block_;
        block_ = *block;
        *block = mine;
        size_ = 0;
    }

    // Gives the block back and yields the platform's code; 0 when there is none.
    [[nodiscard]] unsigned int release(unsigned long line = __builtin_LINE()) noexcept {
        void* const block = block_;
        block_ = nullptr;
        size_ = 0;
        return block == nullptr ? 0 : _ossMemFree(block, tag_, line);
    }

    [[nodiscard]] void* get() const noexcept { return block_; }
    // The bytes that are there for certain.
    [[nodiscard]] unsigned long size() const noexcept { return size_; }
    // For a call that may put another block in place; answers what the call answers. That block holds at least
    // leastSize bytes, and no more is relied upon.
    template <typename Call>
    [[nodiscard]] unsigned int handTo(Call call, unsigned long leastSize) noexcept {
        const void* const before = block_;
        const unsigned int rc = call(&block_);
        if (block_ != before) {
            size_ = leastSize;
        }
        return rc;
    }

private:
    const char* tag_;
    void* block_ = nullptr;
    unsigned long size_ = 0;  // asked for last
};

}  // namespace genreg

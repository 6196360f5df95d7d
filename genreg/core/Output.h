// Write-behind over a descriptor: what is small is gathered, what is large goes out as it is. It writes at the
// descriptor's own place, and owns the room for what it gathers, not the descriptor.
//
// An output that was opened before a fork writes nothing in the child (EBADF).
#pragma once

#include <cstddef>

namespace genreg {

class Output {
public:
    Output() noexcept = default;
    ~Output() noexcept { close(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // room: how much is gathered, in bytes. Without memory for it everything goes out at once.
    void open(int descriptor, std::size_t room) noexcept;
    // Gathers all of it, and writes nothing out.
    void openInMemory() noexcept;
    // What is gathered.
    [[nodiscard]] const char* data() const noexcept { return room_; }
    [[nodiscard]] std::size_t size() const noexcept { return gathered_; }
    // False with errno, and at every call from then on.
    [[nodiscard]] bool write(const void* bytes, std::size_t size) noexcept;
    [[nodiscard]] bool flush() noexcept;
    // What is still gathered is dropped.
    void close() noexcept;
    // Ends it as well; the room and its size, of malloc's and the caller's from now on. Null: it had none.
    [[nodiscard]] char* closeAndKeepRoom(std::size_t* size) noexcept;

private:
    [[nodiscard]] bool send(const void* bytes, std::size_t size) noexcept;
    [[nodiscard]] bool grow(std::size_t size) noexcept;

    char* room_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t gathered_ = 0;
    int descriptor_ = -1;
    unsigned int generation_ = 0;
    int error_ = 0;
    bool inMemory_ = false;
};

}  // namespace genreg

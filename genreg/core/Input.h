// Read-ahead over a descriptor: lines and frames are handed out in place, and the file is read in pieces of 64 KiB.
//
// The descriptor's own position is never moved, so a stdio stream on it stays as it was. The file must not grow while
// it is read: a lock on it sees to that.
#pragma once

#include <cstddef>

namespace genreg {

class Input {
public:
    // size: of the file, in bytes; nothing behind it is read.
    Input(int descriptor, unsigned long offset, unsigned long size) noexcept
        : descriptor_(descriptor), offset_(offset), size_(size) {}
    // Over bytes in memory, which stay the caller's; for going through them once.
    Input(const char* bytes, unsigned long size) noexcept
        : descriptor_(-1),
          offset_(0),
          size_(size),
          buffer_(const_cast<char*>(bytes)),
          capacity_(size),
          end_(size),
          owned_(false) {}
    ~Input() noexcept;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    // Starts over on another file, or on bytes in memory; what was read is forgotten.
    void restart(int descriptor, unsigned long offset, unsigned long size) noexcept;
    void restart(const char* bytes, unsigned long size) noexcept;

    // Reads into this room from now on, which came from malloc, and is the input's.
    void adopt(char* room, std::size_t size) noexcept;

    // Where the next byte stands in the file.
    [[nodiscard]] unsigned long offset() const noexcept { return offset_; }
    [[nodiscard]] unsigned long size() const noexcept { return size_; }
    void seek(unsigned long offset) noexcept;

    // Makes `wanted` bytes available at data(), fewer only at the end of the file or after an error; answers how many
    // are. What data() gave before is void.
    [[nodiscard]] std::size_t fill(std::size_t wanted) noexcept { return ready() >= wanted ? wanted : read(wanted); }
    // How many bytes are there without reading.
    [[nodiscard]] std::size_t ready() const noexcept { return end_ - begin_; }
    [[nodiscard]] const char* data() const noexcept { return buffer_ + begin_; }
    void consume(std::size_t count) noexcept;

    // The next physical line with its newline, or, joined, every line up to one that does not end in a backslash. False
    // at the end and after an error. The line is valid until the next call.
    [[nodiscard]] bool nextLine(bool joined, const char** line, std::size_t* length) noexcept;

    // 0, or the platform's code of what stopped the reading.
    [[nodiscard]] unsigned int error() const noexcept { return error_; }

private:
    [[nodiscard]] std::size_t read(std::size_t wanted) noexcept;
    [[nodiscard]] bool readMore() noexcept;
    [[nodiscard]] bool makeRoom() noexcept;

    int descriptor_;
    unsigned long offset_;
    unsigned long size_;
    char* buffer_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    unsigned int error_ = 0;
    bool owned_ = true;  // the buffer
};

}  // namespace genreg

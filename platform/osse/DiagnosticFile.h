// The files of whole lines that the diagnostic log and the trace append to.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>

namespace osse {

// One line, built in place and cut at its capacity. What cannot be printed is written as a dot, so that a line stays
// one line.
class Line {
public:
    // Begins with the time, the process and the thread.
    explicit Line(unsigned long threadId) noexcept;

    void add(const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));
    void addText(const char* text, std::size_t length) noexcept;
    void addHex(const unsigned char* bytes, std::size_t length) noexcept;
    void addFunction(unsigned int functionId) noexcept;

    // The line with its newline; nothing is added after it.
    const char* finish(std::size_t* length) noexcept;

private:
    static constexpr std::size_t CAPACITY = 2048;

    [[nodiscard]] std::size_t room() const noexcept { return CAPACITY - 1 - length_; }  // less the newline

    std::size_t length_ = 0;
    char text_[CAPACITY];
};

// A file that lines are appended to, each in one write, from any thread and without a lock: a forked child or a signal
// handler finds nothing half done. Opened at the first line, never through a link and only if regular, and kept open
// for good. Programs that close every descriptor they know nothing of exist; so each line first asks whether the
// descriptor still is the file, and opens it again when it is not.
//
// Initialised as a constant. Failures are swallowed; the caller keeps errno.
class DiagnosticFile {
public:
    constexpr DiagnosticFile() noexcept = default;

    // The path stands in the environment variable; unset, the file is detached. Asked again it goes where the variable
    // now says.
    void attach(const char* variable) noexcept;
    [[nodiscard]] bool isAttached() const noexcept { return path_.load(std::memory_order_acquire) != nullptr; }
    void append(Line& line) noexcept;

private:
    struct Opened {
        int descriptor;
        dev_t device;
        ino_t inode;
        const char* path;
        const Opened* previous;  // kept: another thread may be looking at it
    };

    [[nodiscard]] static bool isStill(const Opened& opened) noexcept;
    [[nodiscard]] int descriptor() noexcept;
    [[nodiscard]] int reopen(const char* path, const Opened* previous) noexcept;

    std::atomic<const char*> path_ = nullptr;  // one that is replaced is kept: another thread may be reading it
    std::atomic<const Opened*> opened_ = nullptr;
};

}  // namespace osse

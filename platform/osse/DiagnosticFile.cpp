#include "DiagnosticFile.h"

#include <osse/Log.h>
#include <osse/Time.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "../System.h"

namespace osse {
namespace {

constexpr unsigned long LINE_FILE_PERMISSIONS = 0644;

char printable(char byte) noexcept {
    return byte >= ' ' && byte <= '~' ? byte : '.';
}

}  // namespace

// The calendar is reckoned here: the system's conversion takes a lock, which a forked child may find held for ever.
Line::Line(unsigned long threadId) noexcept {
    OSSTime now{};
    (void)ossTimeGetUTC(&now);
    const std::chrono::sys_seconds time{std::chrono::seconds(now.seconds)};
    const auto midnight = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(midnight);
    const std::chrono::hh_mm_ss clock(time - midnight);
    add("%04d-%02u-%02uT%02ld:%02ld:%02ld.%06ldZ %ld %lu", static_cast<int>(date.year()),
        static_cast<unsigned int>(date.month()), static_cast<unsigned int>(date.day()),
        static_cast<long>(clock.hours().count()), static_cast<long>(clock.minutes().count()),
        static_cast<long>(clock.seconds().count()), now.nanoseconds / 1000, static_cast<long>(::getpid()), threadId);
}

void Line::add(const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    const int needed = std::vsnprintf(text_ + length_, room() + 1, format, arguments);
    va_end(arguments);
    if (needed > 0) {
        length_ += std::min(static_cast<std::size_t>(needed), room());
    }
}

void Line::addText(const char* text, std::size_t length) noexcept {
    const std::size_t taken = std::min(length, room());
    std::transform(text, text + taken, text_ + length_, printable);
    length_ += taken;
}

void Line::addHex(const unsigned char* bytes, std::size_t length) noexcept {
    for (std::size_t i = 0; i < length && room() >= 2; ++i) {
        add("%02x", bytes[i]);
    }
}

void Line::addFunction(unsigned int functionId) noexcept {
    const char* name = ecfGetFunctionName(functionId);
    addText(name, std::strlen(name));
    add("(0x%08X)", functionId);
}

const char* Line::finish(std::size_t* length) noexcept {
    text_[length_++] = '\n';
    *length = length_;
    return text_;
}

void DiagnosticFile::attach(const char* variable) noexcept {
    const char* const wanted = platform::trustedEnvironment(variable);
    const char* known = path_.load(std::memory_order_acquire);
    const bool same = wanted == nullptr || known == nullptr ? wanted == known : std::strcmp(wanted, known) == 0;
    if (same) {
        return;
    }
    char* const path = wanted != nullptr ? ::strdup(wanted) : nullptr;
    if (!path_.compare_exchange_strong(known, path, std::memory_order_acq_rel)) {
        std::free(path);  // another thread was first
    }
}

void DiagnosticFile::append(Line& line) noexcept {
    const int target = descriptor();
    if (target == -1) {
        return;
    }
    std::size_t length = 0;
    const char* text = line.finish(&length);
    (void)platform::retried([&] { return ::write(target, text, length); });
}

bool DiagnosticFile::isStill(const Opened& opened) noexcept {
    struct stat now;
    return ::fstat(opened.descriptor, &now) == 0 && now.st_dev == opened.device && now.st_ino == opened.inode;
}

int DiagnosticFile::descriptor() noexcept {
    const char* const path = path_.load(std::memory_order_acquire);
    if (path == nullptr) {
        return -1;
    }
    const Opened* known = opened_.load(std::memory_order_acquire);
    return known != nullptr && known->path == path && isStill(*known) ? known->descriptor : reopen(path, known);
}

int DiagnosticFile::reopen(const char* path, const Opened* previous) noexcept {
    // Not blocking: a pipe without a reader must not hold up the program that fails.
    int target = platform::openOrCreate(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK, LINE_FILE_PERMISSIONS);
    if (target == -1) {
        return -1;
    }
    struct stat status;
    if (::fstat(target, &status) != 0 || !S_ISREG(status.st_mode)) {
        platform::closeQuietly(target);
        return -1;
    }
    // Where the variable names another file now the descriptor goes there, so that none is left for the one before.
    const bool taken =
        previous != nullptr && isStill(*previous) && platform::replaceDescriptor(target, previous->descriptor) == 0;
    if (taken) {
        platform::closeQuietly(target);
        target = previous->descriptor;
    }
    const auto* const opened = new (std::nothrow) Opened{target, status.st_dev, status.st_ino, path, previous};
    if (opened != nullptr && opened_.compare_exchange_strong(previous, opened, std::memory_order_acq_rel)) {
        return target;
    }
    if (!taken) {
        platform::closeQuietly(target);
    }
    const bool beaten = opened != nullptr;  // another thread was first, and `previous` now is what it opened
    delete opened;
    return beaten ? previous->descriptor : -1;
}

}  // namespace osse

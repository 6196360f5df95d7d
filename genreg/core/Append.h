// Appending in place: one write a record, so that a death leaves none or all of it. What fails halfway is cut back when
// the transaction closes.
#pragma once

#include <cstddef>
#include <cstdio>

namespace genreg {

// Appends to a stream that is open for appending. False when not all of it was taken.
[[nodiscard]] bool appendWhole(std::FILE* stream, const void* bytes, std::size_t size) noexcept;

// Appends a line: on a line of its own when the file's last line lacks its newline, or (continued) goes on behind it.
[[nodiscard]] bool appendLine(std::FILE* stream, const char* line, std::size_t length, bool continued) noexcept;

}  // namespace genreg

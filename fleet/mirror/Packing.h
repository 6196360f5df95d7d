// How values lie in the store: as they are, or as a gzip member; and their digests.
#pragma once

#include <string>
#include <string_view>

namespace fleet {

// A gzip member. The same text makes the same bytes: it holds no time and no system.
[[nodiscard]] std::string packed(std::string_view text);
// What is stored, unpacked where it is a gzip member. Throws a tool::Failure (damaged-value): too large, cut, damaged,
// or with something behind it.
[[nodiscard]] std::string unpacked(std::string_view stored);

// A Failure (exit 7, kind "damaged-value") that says so. What is quoted within must be printable.
[[noreturn]] void refuseValue(const std::string& why);

}  // namespace fleet

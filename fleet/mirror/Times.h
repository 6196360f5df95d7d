// Times as values and people have them: ISO 8601 in UTC, "2026-01-31T23:59:59Z".
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fleet {

// Seconds since 1970. None for what is no such time.
[[nodiscard]] std::optional<long long> secondsOf(std::string_view time);
[[nodiscard]] std::string timeOf(long long seconds);
[[nodiscard]] long long secondsNow();

}  // namespace fleet

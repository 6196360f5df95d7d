#include "mirror/Times.h"

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <charconv>
#include <chrono>
#include <ctime>

namespace fleet {
namespace {

constexpr std::string_view FORM = "0000-00-00T00:00:00Z";

bool hasForm(std::string_view time) {
    if (time.size() != FORM.size()) {
        return false;
    }
    for (std::size_t i = 0; i < FORM.size(); ++i) {
        if (FORM[i] == '0' ? time[i] < '0' || time[i] > '9' : time[i] != FORM[i]) {
            return false;
        }
    }
    return true;
}

int number(std::string_view time, std::size_t at, std::size_t size) {
    int result = 0;
    (void)std::from_chars(time.data() + at, time.data() + at + size, result);
    return result;
}

}  // namespace

std::optional<long long> secondsOf(std::string_view time) {
    if (!hasForm(time)) {
        return std::nullopt;
    }
    const std::chrono::year_month_day day{std::chrono::year(number(time, 0, 4)),
                                          std::chrono::month(static_cast<unsigned int>(number(time, 5, 2))),
                                          std::chrono::day(static_cast<unsigned int>(number(time, 8, 2)))};
    const int hour = number(time, 11, 2);
    const int minute = number(time, 14, 2);
    const int second = number(time, 17, 2);
    if (!day.ok() || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    const auto days = std::chrono::sys_days(day).time_since_epoch().count();
    return ((days * 24LL + hour) * 60 + minute) * 60 + second;
}

std::string timeOf(long long seconds) {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

long long secondsNow() {
    return std::time(nullptr);
}

}  // namespace fleet

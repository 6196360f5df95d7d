// What the service manager that started this process, if one did, is told of it.
#pragma once

#include <string>

namespace tool {

// The variable by which it says where it listens. Commands of the tool are not for it.
constexpr char SERVICE_MANAGER_VARIABLE[] = "NOTIFY_SOCKET";

[[nodiscard]] bool hasServiceManager() noexcept;
// Tells it lines of NAME=value: READY=1, STATUS=text. Nobody is told where there is none, and none is waited for long.
void tellServiceManager(const std::string& state) noexcept;

// Of the clock that it goes by.
[[nodiscard]] unsigned long long monotonicMicroseconds() noexcept;

}  // namespace tool

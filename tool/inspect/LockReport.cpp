#include "inspect/LockReport.h"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <genreg/LockStatus.h>

#include <ctime>

#include "base/Text.h"

namespace tool {

Json lockObject(const RegistryFile& file) {
    GenRegLockNote note{};
    const unsigned int code = genregLockStatus(file.lockFilePath().c_str(), &note);
    if (code != 0 && code != REG_LOCK_HELD) {
        throw libraryFailure(code, file.lockFilePath(), "tell who holds the lock");
    }
    Json object{{"held", code == REG_LOCK_HELD}, {"pid", nullptr}, {"since", nullptr}, {"seconds", nullptr}};
    object["program"] = nullptr;
    if (code == REG_LOCK_HELD && note.pid != 0) {
        object["pid"] = note.pid;
        if (note.since != 0) {
            object["since"] = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(note.since)));
            object["seconds"] = static_cast<long long>(std::time(nullptr)) - note.since;
        }
        object.erase("program");
        putText(object, "program", note.program);
    }
    return object;
}

std::string lockText(const Json& lock) {
    if (!lock["held"].get<bool>()) {
        return "free";
    }
    if (lock["pid"].is_null()) {
        return "held by another process that left no note";
    }
    const std::string holder =
        fmt::format("held by pid {} ({})", lock["pid"].dump(), printable(lock.value("program", std::string("?"))));
    return lock["since"].is_null()
               ? holder
               : fmt::format("{} for {}, since {}", holder, duration(lock["seconds"].get<long long>()),
                             lock["since"].get<std::string>());
}

}  // namespace tool

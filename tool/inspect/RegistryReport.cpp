#include "inspect/RegistryReport.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>

#include "base/Text.h"
#include "records/RecordFields.h"
#include "system/System.h"

namespace tool {
namespace {

constexpr char MONITOR_LOCK_PATH[] = "/var/rvn/.fmcd.lock";
constexpr char CHANGE_LOG_PATH[] = "/tmp/globalreg.debug";

}  // namespace

Json recordsObject(const SalvagedRegistry& registry) {
    const auto records = registry.records();
    const auto& parts = registry.parts;
    Json object{{"frames", parts.size()}};
    for (const unsigned int type : {GLOBALREG_SERVICE, GLOBALREG_INSTANCE, GLOBALREG_VARIABLE}) {
        object[std::string(kindOf(type).name)] = std::count_if(
            records.begin(), records.end(), [&](const FoundRecord& found) { return found.recordType == type; });
    }
    const auto isOther = [&](const RegistryPart& part) {
        return part.damage.empty() ? registry.content == RegistryContent::OTHER : part.isOfUnknownType();
    };
    const auto other = std::count_if(parts.begin(), parts.end(), isOther);
    object["other"] = other;
    object["damaged"] = static_cast<long>(parts.size() - records.size()) - other;
    return object;
}

Json variablesObject(const SalvagedRegistry& registry) {
    const auto damaged = static_cast<std::size_t>(std::count_if(
        registry.parts.begin(), registry.parts.end(), [](const RegistryPart& part) { return !part.damage.empty(); }));
    return {{"frames", registry.parts.size()}, {"binvar", registry.parts.size() - damaged}, {"damaged", damaged}};
}

std::string recordsText(const Json& records) {
    if (records.contains("binvar")) {
        return fmt::format("{} in all: {}, {} damaged", records["frames"].dump(),
                           counted(records["binvar"].get<std::size_t>(), "binary variable"), records["damaged"].dump());
    }
    return fmt::format("{} in all: {} service, {} instance, {} variable, {} of another type, {} damaged",
                       records["frames"].dump(), records["service"].dump(), records["instance"].dump(),
                       records["variable"].dump(), records["other"].dump(), records["damaged"].dump());
}

std::string sizeText(const Json& object) {
    return object["size"].is_null() ? "? bytes" : counted(object["size"].get<std::size_t>(), "byte");
}

Json monitorObject() {
    Json object{{"path", MONITOR_LOCK_PATH}, {"installed", false}, {"held", false}, {"pid", nullptr}};
    object["program"] = nullptr;
    std::error_code error;
    object["installed"] = std::filesystem::exists(MONITOR_LOCK_PATH, error);
    const ClassicLock lock = classicLockOf(MONITOR_LOCK_PATH);
    object["held"] = lock.held ? Json(*lock.held) : Json(nullptr);
    if (lock.pid != 0) {
        object["pid"] = lock.pid;
        object.erase("program");
        const std::string program = programOf(lock.pid);
        putText(object, "program", program.empty() ? "?" : program);
    }
    return object;
}

std::string monitorText(const Json& monitor) {
    const auto path = monitor["path"].get<std::string>();
    if (!monitor["installed"].get<bool>()) {
        return fmt::format("none: there is no {}", path);
    }
    if (monitor["held"].is_null()) {
        return fmt::format("unknown: {} cannot be read", path);
    }
    if (!monitor["held"].get<bool>()) {
        return fmt::format("none: nobody holds {}", path);
    }
    return monitor["pid"].is_null() ? fmt::format("a process that cannot be named holds {}", path)
                                    : fmt::format("pid {} ({}) holds {}", monitor["pid"].dump(),
                                                  printable(monitor.value("program", std::string("?"))), path);
}

Json changeLogObject() {
    std::error_code error;
    const bool regular =
        std::filesystem::symlink_status(CHANGE_LOG_PATH, error).type() == std::filesystem::file_type::regular;
    const auto size = std::filesystem::file_size(CHANGE_LOG_PATH, error);
    return {{"path", CHANGE_LOG_PATH}, {"on", regular}, {"size", regular && !error ? Json(size) : Json(nullptr)}};
}

std::string changeLogText(const Json& log) {
    const auto path = log["path"].get<std::string>();
    return log["on"].get<bool>() ? fmt::format("on: {}, {}", path, sizeText(log))
                                 : fmt::format("off: there is no regular file {}", path);
}

}  // namespace tool

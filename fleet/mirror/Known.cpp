#include "mirror/Known.h"

#include <fmt/core.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "base/DiskFiles.h"
#include "base/Failure.h"
#include "mirror/Keys.h"
#include "mirror/Times.h"

namespace fleet {
namespace {

using tool::Json;

constexpr char DOING[] = "remember the hosts that were seen";

std::string textOf(const Json& line, const char* name) {
    return line.contains(name) && line[name].is_string() ? line[name].get<std::string>() : "";
}

void makeFolderFor(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(tool::folderOf(path), error);
    if (error) {
        throw tool::systemFailure(error.value(), path, DOING);
    }
}

}  // namespace

void Known::read(const std::string& path) {
    if (!tool::judgeFile(path, DOING, false)) {
        return;
    }
    const std::string bytes = tool::readFile(path, DOING);
    for (const tool::FileLine& line : tool::fileLines(bytes, false)) {
        Json object;
        try {
            object = Json::parse(line.bytes);
        } catch (const std::invalid_argument&) {
            continue;
        }
        const std::string id = textOf(object, "id");
        if (isHostId(id)) {
            hosts_[id] = {textOf(object, "hostName"), secondsOf(textOf(object, "alive"))};
        }
    }
}

void Known::write(const std::string& path) const {
    std::string bytes;
    for (const auto& [id, host] : hosts_) {
        const Json line{{"schema", 1},
                        {"id", id},
                        {"hostName", host.hostName},
                        {"alive", host.alive ? Json(timeOf(*host.alive)) : Json(nullptr)}};
        bytes += tool::jsonText(line) + "\n";
    }
    makeFolderFor(path);
    const std::string made = fmt::format("{}.new.{}", path, tool::processId());
    (void)std::remove(made.c_str());
    tool::writePrivateFile(made, bytes, DOING);
    std::error_code error;
    std::filesystem::rename(made, path, error);
    if (error) {
        (void)std::remove(made.c_str());
        throw tool::systemFailure(error.value(), path, DOING);
    }
}

void Known::remember(const HostLook& look, long long now) {
    KnownHost& host = hosts_[look.id];
    if (look.value) {
        host.hostName = look.value->hostName;
    }
    if (look.state == HostState::ALIVE || look.state == HostState::CLASH) {
        host.alive = now;
    }
}

const KnownHost* Known::find(const std::string& id) const {
    const auto at = hosts_.find(id);
    return at == hosts_.end() ? nullptr : &at->second;
}

}  // namespace fleet

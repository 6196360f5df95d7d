#include "mirror/Keys.h"

#include <algorithm>

namespace fleet {
namespace {

constexpr std::size_t DIGITS = 32;
constexpr std::string_view HOSTS = "host/";
constexpr std::string_view REGISTRIES = "/reg";
constexpr std::string_view ALIVE = "/alive";

std::string hostKey(std::string_view prefix, std::string_view id, std::string_view what) {
    return hostsPrefix(prefix) + std::string(id) + std::string(what);
}

}  // namespace

bool isHostId(std::string_view text) {
    return text.size() == DIGITS &&
           std::ranges::all_of(text, [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string hostsPrefix(std::string_view prefix) {
    return std::string(prefix) + std::string(HOSTS);
}

std::string registryKey(std::string_view prefix, std::string_view id) {
    return hostKey(prefix, id, REGISTRIES);
}

std::string aliveKey(std::string_view prefix, std::string_view id) {
    return hostKey(prefix, id, ALIVE);
}

std::optional<HostKey> hostKeyOf(std::string_view prefix, std::string_view key) {
    const std::string hosts = hostsPrefix(prefix);
    if (!key.starts_with(hosts)) {
        return std::nullopt;
    }
    const std::string_view rest = key.substr(hosts.size());
    const std::string_view id = rest.substr(0, std::min(rest.find('/'), rest.size()));
    const std::string_view what = rest.substr(id.size());
    if (!isHostId(id) || (what != REGISTRIES && what != ALIVE)) {
        return std::nullopt;
    }
    return HostKey{std::string(id), what == ALIVE};
}

}  // namespace fleet

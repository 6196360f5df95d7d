#include "mirror/Picture.h"

#include <algorithm>
#include <functional>

#include "base/Failure.h"
#include "mirror/Keys.h"

namespace fleet {
namespace {

std::string_view nonceOf(std::string_view writer) {
    return writer.substr(0, writer.find('.'));
}

// Runs it; a refusal is kept in words.
void reading(HostLook& look, const char* what, const std::function<void()>& read) {
    try {
        read();
    } catch (const tool::Failure& failure) {
        if (failure.exitStatus != tool::EXIT_DAMAGED) {
            throw;
        }
        look.damage += (look.damage.empty() ? "" : "; ") + std::string(what) + failure.message;
    }
}

// The same state folder on a machine that was just started is no other writer, and one that was taken over from goes
// away by itself.
bool areAtOdds(const HostValue& value, const AliveValue& alive) {
    const std::string_view nonce = nonceOf(alive.writer);
    return nonce != nonceOf(value.writer) && std::ranges::find(value.tookOver, nonce) == value.tookOver.end();
}

}  // namespace

std::string_view nameOf(HostState state) {
    switch (state) {
        case HostState::ALIVE:
            return "alive";
        case HostState::SILENT:
            return "silent";
        case HostState::CLASH:
            return "clash";
        default:
            return "missing";
    }
}

std::string Picture::put(std::string_view key, std::string_view value) {
    const auto host = hostKeyOf(prefix_, key);
    if (!host) {
        return "";
    }
    Stored& stored = hosts_[host->id];
    // Of one that is too large no more is kept than tells so.
    (host->alive ? stored.alive : stored.value) = std::string(value.substr(0, MOST_STORED + 1));
    return host->id;
}

std::string Picture::erase(std::string_view key) {
    const auto host = hostKeyOf(prefix_, key);
    const auto at = host ? hosts_.find(host->id) : hosts_.end();
    if (at == hosts_.end()) {
        return "";
    }
    (host->alive ? at->second.alive : at->second.value).reset();
    if (!at->second.alive && !at->second.value) {
        hosts_.erase(at);
    }
    return host->id;
}

std::vector<std::string> Picture::ids() const {
    std::vector<std::string> ids;
    for (const auto& [id, ignored] : hosts_) {
        ids.push_back(id);
    }
    return ids;
}

bool Picture::hasSilent() const {
    return std::ranges::any_of(hosts_, [](const auto& host) { return !host.second.alive; });
}

HostLook Picture::look(const std::string& id) const {
    HostLook look;
    look.id = id;
    const auto at = hosts_.find(id);
    if (at == hosts_.end()) {
        return look;
    }
    const Stored& stored = at->second;
    look.hasValue = stored.value.has_value();
    look.state = stored.alive ? HostState::ALIVE : HostState::SILENT;
    if (stored.value) {
        reading(look, "", [&] { look.value = decode(*stored.value, id); });
    }
    if (stored.alive) {
        reading(look, "in its sign of life: ", [&] {
            const AliveValue alive = decodeAlive(*stored.alive);
            look.writers = alive.clash;
            if (look.writers.empty() && look.value && areAtOdds(*look.value, alive)) {
                look.writers = {look.value->writer, alive.writer};
            }
        });
    }
    look.state = look.writers.empty() ? look.state : HostState::CLASH;
    return look;
}

}  // namespace fleet

// Where a host's values lie in the store.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fleet {

inline constexpr std::string_view DEFAULT_PREFIX = "/genreg/v1/";

// A host's name in the store: 128 random bits, as 32 hexadecimal digits in lower case.
[[nodiscard]] bool isHostId(std::string_view text);

// PREFIXhost/, which all below begin with.
[[nodiscard]] std::string hostsPrefix(std::string_view prefix);
// PREFIXhost/ID/reg: what its registries hold. PREFIXhost/ID/alive: there while its publisher runs.
[[nodiscard]] std::string registryKey(std::string_view prefix, std::string_view id);
[[nodiscard]] std::string aliveKey(std::string_view prefix, std::string_view id);

struct HostKey {
    std::string id;
    bool alive = false;  // else the registries' key
};
// None for a key that is no host's: somebody else's, or of a later release.
[[nodiscard]] std::optional<HostKey> hostKeyOf(std::string_view prefix, std::string_view key);

}  // namespace fleet

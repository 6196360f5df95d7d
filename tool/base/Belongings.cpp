#include "base/Belongings.h"

#include <fmt/core.h>

#include "base/Text.h"

namespace tool {

std::string lostBelongings(const Belongings& before, const Belongings& after) {
    std::string list;
    const auto lost = [&list](const std::string& what) { list += (list.empty() ? "" : ", ") + what; };
    if (before.owner != after.owner) {
        lost(fmt::format("its owner {} (now {})", userName(before.owner), userName(after.owner)));
    }
    if (before.group != after.group) {
        lost(fmt::format("its group {} (now {})", groupName(before.group), groupName(after.group)));
    }
    if (before.permissions != after.permissions) {
        lost(fmt::format("its permissions {:04o} (now {:04o})", before.permissions, after.permissions));
    }
    for (const auto& [name, value] : before.attributes) {
        const auto found = after.attributes.find(name);
        if (found == after.attributes.end() || found->second != value) {
            lost(printable(name));
        }
    }
    return list;
}

}  // namespace tool

// What a new file that was put in the place of another lacks of what belonged to it.
#pragma once

#include <string>

#include "system/System.h"

namespace tool {

// As a list for people; empty when it lacks nothing.
[[nodiscard]] std::string lostBelongings(const Belongings& before, const Belongings& after);

}  // namespace tool

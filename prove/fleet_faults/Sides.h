// Parts side by side: each is this program again, with the part's name, since most of its time is waiting.
#pragma once

#include <string>
#include <vector>

#include "prove/support/Cases.h"

namespace prove {

class Recoveries;

// So many at a time; what they count is added, what they say is said.
void runSideBySide(Cases& cases, Recoveries& recoveries, const std::vector<std::string>& options, std::size_t most);

}  // namespace prove

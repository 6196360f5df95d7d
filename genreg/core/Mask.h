#pragma once

namespace genreg {

// The mask under which MatchRecord tells whether two records are equal.
constexpr unsigned long EVERY_FIELD = ~0UL;

}  // namespace genreg

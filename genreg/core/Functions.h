// The ids of the library's functions, as traces and logs carry them.
#pragma once

namespace genreg {

constexpr unsigned int FUNCTION_ID_BASE = 0x082A0000;

enum class Function : unsigned int {
#define GENREG_FUNCTION(number, enumerator, name) enumerator = FUNCTION_ID_BASE + (number),
#include "genreg/core/FunctionTable.inc"
#undef GENREG_FUNCTION
};

}  // namespace genreg

// How GlobalReg's images are looked through many at a time.
#pragma once

#include "genreg/bin/FrameWays.h"

namespace genreg {

extern const FrameWays IMAGE_WAYS;

// As FrameWays has it. A key without a type, or without a text that is compared, is looked for one record after
// another.
[[nodiscard]] std::size_t passImages(unsigned long mask, const char* frames, std::size_t length, bool bigEndian,
                                     const void* key) noexcept;

}  // namespace genreg

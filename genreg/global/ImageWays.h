// How GlobalReg's images are looked through many at a time.
#pragma once

#include "genreg/bin/FrameWays.h"

namespace genreg {

extern const FrameWays IMAGE_WAYS;
// For a reader of fields, who does not look at what is behind the end of a text.
extern const FrameWays LIST_WAYS;

}  // namespace genreg

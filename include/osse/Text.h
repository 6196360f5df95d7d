// Text helpers.
#pragma once

#include <osse/Export.h>

extern "C" {

// As snprintf, but never leaves the buffer unterminated and answers the length that stands in it.
OSSE_EXPORT unsigned long ossSnprintf(char* buffer, unsigned long size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// 1/0, true/false, yes/no, on/off, t/f, y/n in any case; anything else answers false and leaves *value alone.
OSSE_EXPORT bool ossStrToBoolean(const char* text, bool* value);
}

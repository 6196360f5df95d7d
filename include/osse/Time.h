// Time and the thread's number.
#pragma once

#include <osse/Export.h>

struct OSSTime {
    long seconds;      // since 1970-01-01 00:00 UTC
    long nanoseconds;  // 0 to 999,999,999
};

extern "C" {

OSSE_EXPORT unsigned int ossTimeGetUTC(OSSTime* now);

// The system's number of the calling thread (macOS: its mach port, by pthread_mach_thread_np).
OSSE_EXPORT unsigned long ossThreadID();
}

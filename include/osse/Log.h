// The diagnostic log. RVN_DIAG_LOG names a file that gets one line per failure, written in one call:
//   2026-01-31T12:00:00.123456Z pid thread name(0x082A0010) sev=3 code=0x900001bf rc=0x90000102 probe=60 text
// (rc from ossLogRC only; the time is UTC). What cannot be printed is written as a dot; a line has 2048 bytes at most.
// Unset: nothing is written. The variable is asked at each failure, and ignored in a set-user-ID program; the file is
// opened at the first failure and kept, never through a link, and only if it is a regular file.
// Logging keeps errno, never fails, takes no lock, and serves any thread.
#pragma once

#include <osse/Export.h>

constexpr unsigned int OSS_SEVERITY_ERROR = 3;
constexpr unsigned int OSS_SEVERITY_INFO = 5;  // for failures that a caller expects, a missing file say

extern "C" {

// text may be null.
OSSE_EXPORT void ossLog(unsigned int functionId, unsigned int code, unsigned int probe, unsigned int severity,
                        const char* text);

// The same with the code of the platform that lies behind it.
OSSE_EXPORT void ossLogRC(unsigned int functionId, unsigned int code, unsigned int platformCode, unsigned int probe,
                          unsigned int severity, const char* text);

// The name of a function id; "UNKNOWN" for one that nobody registered. Never null; the text lives for ever.
OSSE_EXPORT const char* ecfGetFunctionName(unsigned int functionId);

struct OSSFunctionName {
    unsigned int id;
    const char* name;
};

// An addition: makes the names known. The table is kept, not copied. At most 16 tables; a further one is ignored.
OSSE_EXPORT void ecfRegisterFunctionNames(const OSSFunctionName* table, unsigned long count) __attribute__((weak));
}

// The trace probes. RVN_TRACE names a file that entry, exit and variable lines are appended to; unset, tracing is
// detached and the two questions cost a load and a branch. The variable is ignored in a set-user-ID program, and the
// file is never opened through a link. Tracing keeps errno and never changes a result.
#pragma once

#include <osse/Export.h>

extern "C" {

constexpr int GTRACE_ATTACHED = 1;
constexpr int GTRACE_ENABLED = 2;

// GTRACE_* bits; set once when the library is loaded. Read it through the two functions below.
OSSE_EXPORT extern int gtraceState;

// One line each: time pid thread ">" name(id)  |  "<" name(id) code  |  "=" or "!" name(id) probe text-or-hex
OSSE_EXPORT void _gtraceEntry(unsigned int functionId, unsigned long threadId);
OSSE_EXPORT void _gtraceExit(unsigned int functionId, unsigned long threadId, unsigned long result);
OSSE_EXPORT void _gtraceVar(unsigned int functionId, unsigned long threadId, unsigned int probe, unsigned long size,
                            const void* value);
OSSE_EXPORT void _gtraceErrorVar(unsigned int functionId, unsigned long threadId, unsigned int probe,
                                 unsigned long size, const void* value);
}

inline bool gtraceIsAttached() {
    return (gtraceState & GTRACE_ATTACHED) != 0;
}
inline bool gtraceIsEnabled() {
    return (gtraceState & GTRACE_ENABLED) != 0;
}

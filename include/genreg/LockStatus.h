// Who holds the lock of a registry.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>

// The note that Lock leaves in the lock file, for people. It stays there after the lock is gone: whether the lock is
// held, the lock alone decides. One line: "pid=4242 since=1767225600 program=installer\n".
struct GenRegLockNote {
    long pid;          // 0: no note
    long since;        // seconds since 1970 UTC
    char program[64];  // cut to 63 bytes
};

// 0: nobody holds it (or there is no lock file). REG_LOCK_HELD: somebody does. REG_NULL_POINTER: no path. Else the
// platform's code. The note (may be null) is filled with what stands in the lock file.
extern "C" GENREG_EXPORT unsigned int genregLockStatus(const char* lockPath, GenRegLockNote* note);

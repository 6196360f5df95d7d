// Who holds the lock of a registry.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>

// The note that Lock leaves in the lock file, for people. It stays there after the lock is gone: whether the lock is
// held, the lock alone decides. One line of 128 bytes, padded with blanks; start is when the process began, in a unit
// of the system's own (absent in notes of earlier releases):
//   "pid=4242 since=1767225600 program=installer ... start=123456\n"
struct GenRegLockNote {
    long pid;          // 0: no note
    long since;        // seconds since 1970 UTC; 0: not known
    char program[64];  // cut to 63 bytes; may be empty
};

// 0: nobody holds it (or there is no lock file). REG_LOCK_HELD: somebody does. Else the platform's code; a link in the
// place of the file is not followed (the code of ELOOP), and the note is then left alone. REG_NULL_POINTER: no path.
//
// The note (may be null) is filled with what stands in the file when nobody holds the lock. When somebody does it tells
// of the holder: the note, if the process that left it still runs and holds the lock as far as this process may see;
// else the process that is seen to hold it, with its number and program and without since; else pid is 0, for a shared
// lock leaves no note, and another user's locks are seen by root alone. The path may be that of a registry file as
// well, which some programs lock. Any thread may call; it closes a descriptor of the file, which costs this process a
// classic record lock of its own on it.
extern "C" GENREG_EXPORT unsigned int genregLockStatus(const char* lockPath, GenRegLockNote* note);

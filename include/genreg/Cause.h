// Why the last operation failed.
//
// An engine answers with a code of its own where a step below it failed ("the registry could not be opened"). The first
// failure inside is kept, per thread, until the thread's next outermost call of the library.
#pragma once

#include <genreg/Export.h>

struct GenRegCause {
    unsigned int function;      // id of the function that failed first; ecfGetFunctionName tells its name
    unsigned int code;          // the code that it returned or logged; 0: nothing failed
    unsigned int probe;         // which of its failure points
    unsigned int platformCode;  // the platform's code behind it (0x90000100 plus errno, mostly), or 0
};

// The first failure within the calling thread's last outermost operation.
extern "C" GENREG_EXPORT void genregLastCause(GenRegCause* cause);

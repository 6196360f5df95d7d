// What the bytes of a binary registry say of themselves, judged where they lie in memory as the engine judges a file
// that it opens. No file is touched and no memory taken; any thread, any alignment.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>

extern "C" {

// Whether a registry of these bytes begins with a checksum header: what an object with REG_FEATURE_CHECKSUM_HEADER
// finds that does not know the file yet. Of `features` REG_FEATURE_BIG_ENDIAN counts, since bytes that all are frames
// from the first one on begin with no header, whatever it looks like. *records (unless null): where the records begin,
// 0 without a header, else 32. 0; REG_CHECKSUM_DIFFERS: there is a header, and it does not fit the bytes behind it.
GENREG_EXPORT unsigned int genregCheckHeader(const void* bytes, unsigned long length, unsigned long features,
                                             unsigned long* records);
}

// The return codes. Every operation answers 0 for success or one of these, as an unsigned 32-bit number.
#pragma once

#include <genreg/Export.h>

enum GenRegCode : unsigned int {
#define GENREG_CODE(value, name, sentence) name = (value),
#include <genreg/CodeTable.inc>
#undef GENREG_CODE
};

extern "C" {

// The enumerator's name ("REG_NOT_FOUND"), "REG_SUCCESS" for 0, "UNKNOWN" for a number that is no code of this library.
// Never null; the text lives for ever. Any thread.
GENREG_EXPORT const char* genregCodeName(unsigned int code);

// A sentence for people. Never null; the text lives for ever. Any thread. Codes that stand for an error of the system
// (0x90000100 plus its number) get a sentence that says so.
GENREG_EXPORT const char* genregCodeText(unsigned int code);

// The codes of the library one by one, in ascending order: the code at the index, 0 behind the last.
GENREG_EXPORT unsigned int genregCodeAt(unsigned long index);
}

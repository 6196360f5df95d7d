// Reading, writing and splitting the lines of text registries.
#pragma once

#include <genreg/Export.h>

#include <cstdio>

extern "C" {

// Not 0: the variable/value schema writes new lines as variable=value, without blanks. Every constructor of that schema
// resets it to 0. Access it atomically when several threads construct objects.
GENREG_EXPORT extern int bCompactFormattedLine;

// Reads a logical line: rawBuffer gets the physical lines as they stand, line the logical one; both hold maxLength
// bytes. A backslash directly before the newline goes on with the next line when joinContinuations is true. Answers
// rawBuffer, or null when nothing was read. *rc (may be null): 0, REG_INVALID_ARGUMENT, REG_END_OF_INPUT.
GENREG_EXPORT char* GenRegReadLine(char* rawBuffer, char* line, unsigned long maxLength, std::FILE* stream,
                                   unsigned int* rc, bool joinContinuations);

// Writes a line folded into continuation lines of the width (3 or more). No newline is added at the end. 0;
// REG_INVALID_ARGUMENT; REG_NO_WORK_BUFFER, and nothing is written; REG_FREE_WORK_BUFFER_FAILED. Whether the stream
// took it, its own error flag tells.
GENREG_EXPORT unsigned int GenRegWriteLine(char* line, unsigned long width, std::FILE* stream);

// In place: tabs, newlines and carriage returns become blanks, runs of blanks one blank except inside double quotes,
// blanks at both ends go. 0, REG_EMPTY_ARGUMENT (null).
GENREG_EXPORT unsigned int StripWhiteSpace(char* text);

// In place: every byte that is not printable ASCII, tab excepted, becomes ".". Null is ignored.
GENREG_EXPORT void CleanString(char* text);

// The next field up to a blank or tab, cut out of the text in place; *cursor moves behind it, or becomes null at the
// end. 0, or REG_END_OF_INPUT with *field null when no field is left. REG_INVALID_ARGUMENT: a null argument.
GENREG_EXPORT unsigned int ExtractNextField(char** field, char** cursor);
}

// The engine for registries that hold one record per logical line of text.
//
// Lines that an operation does not touch are carried byte for byte: comments, blank lines, continuation backslashes,
// bytes that are no text, lines longer than the line buffer (which are never parsed). Only a last line without a
// newline gains one, in Add and Change.
//
// What a schema's functions owe this engine, beyond what GenRegBase.h asks:
// - A record is copied as bytes, and ParseLine called once more on the copy with the same line: texts may point into
//   the record that they stand in, and nothing of a record needs to be freed.
// - ParseLine clears every field before it refuses anything: a refused line is offered to MatchRecord as it was left. A
//   comment or a blank line is 0, and a record without fields. Whatever a line holds, it is carried along.
// - What FormatLine writes ParseLine reads back as an equal record, or FormatLine refuses it: an update whose line says
//   something else is REG_VERIFY_FAILED.
//
// Codes, besides those that stand with each operation:
// every one          REG_RECORD_REFUSED, REG_NO_VALIDATE_RECORD, REG_NO_GET_MAX_RECORD_SIZE, REG_RECORD_TOO_SMALL,
//                    REG_RECORD_SIZE_REFUSED, REG_NO_RECORD_BUFFER, REG_NO_PARSE_LINE, REG_NO_MATCH_RECORD,
//                    REG_READ_FAILED; all but GetNext REG_OPEN_FAILED, REG_CLOSE_FAILED; all but Get
//                    REG_FREE_RECORD_FAILED
// Add, Change        REG_FORMAT_FAILED, REG_NO_FORMAT_LINE
// these and Delete   REG_LOCK_FAILED, REG_UNLOCK_FAILED, REG_COPY_WRITE_FAILED, REG_VERIFY_FAILED, REG_NO_NOTIFY
// genregLastCause tells what stands behind a code. A call that fails leaves the old file, but for the cases in
// docs/promises.md; REG_UNLOCK_FAILED, REG_FREE_RECORD_FAILED and REG_NO_NOTIFY come after the commit.
//
// Compare and set. Change and Delete touch what matches the key once they hold the lock. So a key that names the old
// value too (key: what Get found; mask: every field that matters) makes a change only where nobody else was faster;
// REG_NOT_FOUND says that somebody was.
#pragma once

#include <genreg/GenRegFile.h>

// Fills the record from one logical line (terminated, its newline kept); 0 when the line holds a record of the schema.
using GenRegParseLine = unsigned int (*)(void* record, const char* line);
// Writes the record's line into a buffer of REG_LINE_SIZE bytes, which on entry holds the line as it stands in the file
// (empty for a new one). The engine adds a newline when it is missing. Any answer but 0 is REG_FORMAT_FAILED to the
// caller, and its cause.
using GenRegFormatLine = unsigned int (*)(void* record, char* line);
// An addition, null unless a schema fills it: false when the schema's ParseLine takes this physical line (its newline
// included, no terminator) and its MatchRecord does not match it with the key, which is not null, under the mask. It
// only saves parsing.
using GenRegLineMayMatch = bool (*)(unsigned long mask, const char* line, unsigned long length, const void* key);

namespace genreg {
struct LineWays;
class TextLines;
class TextSchema;
}  // namespace genreg

class GENREG_EXPORT GenRegText : public GenRegFile {
public:
    GenRegText() noexcept;
    ~GenRegText() noexcept;

    // The code of the first slot that is missing, in the order validate, size, parse, match, format; 0 when none is.
    unsigned int CheckFuncPtrs() noexcept;
    unsigned int OpenReg(unsigned long mode) noexcept;
    unsigned int CloseReg(unsigned long mode) noexcept;

    // The first line that matches the key, into record (GetMaxRecordSize bytes). REG_NOT_FOUND zeroes the record.
    unsigned int Get(unsigned long mask, void* key, void* record) noexcept;
    // The next matching line of the open scan; with mask 0 the next line whatever it holds, and the key may be null.
    // REG_SCAN_NOT_OPEN; REG_NO_MORE_RECORDS at the end and ever after.
    unsigned int GetNext(unsigned long mask, void* key, void* record) noexcept;

    // Appends a line, and makes file and folder where there are none. REG_CALLBACK_MISSING (CheckFuncPtrs tells which),
    // REG_FILE_SIZE_FAILED, REG_SEEK_END_FAILED, REG_RECORD_WRITE_FAILED. REG_DUPLICATE when one matches already and
    // duplicates are not allowed; REG_BUFFER_TOO_SMALL when the last line lacks its newline and is longer than 2,048
    // bytes.
    unsigned int Add(unsigned long mask, void* record) noexcept;
    // Replaces the line that matches (every one where duplicates are allowed). REG_NOT_FOUND; REG_SEVERAL_MATCH;
    // REG_UNCHANGED when the line says so already.
    unsigned int Change(unsigned long mask, void* key, void* record) noexcept;
    // Removes the line that matches (every one where duplicates are allowed). REG_NOT_FOUND; REG_SEVERAL_MATCH.
    unsigned int Delete(unsigned long mask, void* key) noexcept;
    // Whether the temporary copy differs from the registry by just this change; commits it if so. Called by the updates
    // under REG_FEATURE_DEFERRED_COMMIT, which answer REG_VERIFY_FAILED for any failure of it.
    unsigned int Verify(unsigned long operation, unsigned long mask, void* record, void* key) noexcept;

    // An addition, for the schemas of the library. From now on (true) what this object changes keeps its line:
    // - Change puts what differs between the record and the line into the line; every other byte of it stays: blanks,
    //   quotes, separators, continuations, the comment, what stands behind a NUL. A line that would not be read back as
    //   the record is refused with REG_FORMAT_FAILED, the cause being REG_RECORD_REFUSED or REG_LINE_TOO_LONG.
    // - A comment is read as it stands, not with dots for what is no printable ASCII, and the bytes that a client gives
    //   are the ones that are written. One blank behind the "#" is layout, which neither adds up nor needs to be given.
    //   (The inittab schema reads and writes comments so in any case, and counts every blank.)
    // - With every bit of the mask set, MatchRecord compares comments and aliases too: a change of nothing else is one,
    //   not REG_UNCHANGED, and the verification tells a damaged comment.
    // - Add writes a new line as ever, but for that blank.
    // A record with the flag of a comment cleared takes the comment of the line away: change one that Get filled.
    // false undoes it. A slot that a derived schema has filled with a function of its own stays as it is. 0, or
    // REG_NO_FORMAT_LINE: no schema has filled the slots.
    unsigned int KeepLines(bool keep) noexcept;

    // The port numbers of the open registry stream (OpenReg or OpenScan), in the machine's byte order, one entry at
    // most per line; one that equals the one before is left out. No count, no bound: there must be room for every line.
    // REG_INVALID_ARGUMENT: nothing is open, or null. REG_NO_RECORD_BUFFER, REG_READ_FAILED.
    unsigned int GetPortnumbers(int* ports) noexcept;

protected:
    GenRegParseLine parseLine = nullptr;
    GenRegFormatLine formatLine = nullptr;
    GenRegLineMayMatch lineMayMatch = nullptr;  // by useShortcuts alone

    // Fills it, null for none. It speaks for the functions that stand in the slots parseLine and matchRecord now, and
    // is not asked while one of them is another, nor while the library is traced.
    void useShortcuts(GenRegLineMayMatch mayMatch) noexcept;

private:
    friend class genreg::TextLines;
    friend class genreg::TextSchema;

    struct LineSlots {
        GenRegParseLine parse;
        GenRegMatchRecord match;
        GenRegFormatLine format;
    };
    LineSlots ownSlots_ = {};   // as the schema filled them
    LineSlots keptSlots_ = {};  // while lines are kept
    bool keepsLines_ = false;
    GenRegParseLine judgedParse_ = nullptr;
    GenRegMatchRecord judgedMatch_ = nullptr;
    const genreg::LineWays* ways_ =
        nullptr;          // of the library's schemas; as bound as lineMayMatch, and off with another
    void* room_[6] = {};  // a private field more is a place less here
};

// Inittab files: one entry per line, id:runlevels:action:command, optionally a comment after "#". A line that begins
// with ":" is a comment. A backslash before the newline continues a line.
//
// A changed line is written anew: the blanks before its comment become one, its continuations go, and a change that
// only takes the comment away is REG_UNCHANGED. KeepLines(true) keeps all of it but for what is changed.
#pragma once

#include <genreg/GenRegText.h>

constexpr unsigned long INITTAB_HAS_COMMENT = 0x1;
constexpr unsigned long INITTAB_HAS_ENTRY = 0x2;
constexpr unsigned long INITTAB_MATCH_ID = 0x1;
constexpr unsigned long INITTAB_MATCH_RUN_LEVEL = 0x2;
constexpr unsigned long INITTAB_MATCH_ACTION = 0x4;
constexpr unsigned long INITTAB_MATCH_COMMAND = 0x8;

struct GenRegInitTabRecord {
    char line[2048];  // what the texts point into when the record was read
    char* comment;
    unsigned long flags;
    char* runLevel;
    char* id;
    char* action;
    char* command;
};

class GENREG_EXPORT GenRegInitTab : public GenRegText {
public:
    // Without a file until setPaths.
    GenRegInitTab() noexcept;
    GenRegInitTab(const char* path, unsigned int* rc) noexcept;
    ~GenRegInitTab() noexcept;

    // 0, REG_EMPTY_ARGUMENT, REG_PATH_TOO_LONG, REG_BASE_NAME_FAILED, REG_DIRECTORY_NAME_FAILED.
    unsigned int setPaths(const char* path) noexcept;

    static unsigned int ParseLine(void* record, const char* line) noexcept;
    static unsigned int FormatLine(void* record, char* line) noexcept;
    static unsigned int MatchRecord(unsigned long matchType, void* fileRecord, void* keyRecord) noexcept;
    static unsigned int ValidateRecord(unsigned long matchType, void* record) noexcept;
    static unsigned int PrintRecord(void* record) noexcept;
    static unsigned int GetRecordSize(void* record, unsigned long* size) noexcept;
    static unsigned int GetMaxRecordSize(unsigned long* size) noexcept;

    // Those of KeepLines. The record over the line that the buffer holds; with every bit of the mask set a comment that
    // only the line has is a difference.
    static unsigned int RewriteLine(void* record, char* line) noexcept;
    static unsigned int MatchWhole(unsigned long matchType, void* fileRecord, void* keyRecord) noexcept;
};

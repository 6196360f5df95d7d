// Services files: one line per service with name, port and protocol, aliases and comment.
//
//   name blanks port "/" protocol [blanks alias ...] [blanks "#" comment]
//
// A changed line is written anew as a whole, with tabs of the schema's own. Reading and writing a comment puts one more
// blank in front of it each time, until the line is too long, and makes a dot of each byte that is no printable ASCII;
// a change of aliases or comment alone is REG_UNCHANGED. KeepLines(true) keeps the whole line but for what is changed,
// and takes aliases and comments for parts of the record.
//
// The port of a record is in network byte order, in keys too: htons(50000) for 50000/tcp.
#pragma once

#include <genreg/GenRegText.h>

constexpr unsigned long SERVICES_HAS_COMMENT = 0x1;  // or is a blank line
constexpr unsigned long SERVICES_HAS_NAME = 0x2;
constexpr unsigned long SERVICES_MATCH_NAME = 0x1;
constexpr unsigned long SERVICES_MATCH_PORT = 0x2;
constexpr unsigned long SERVICES_MATCH_PROTOCOL = 0x4;

struct GenRegServicesRecord {
    unsigned long flags;
    char* comment;
    char* name;
    char** aliases;     // null-terminated, or null
    unsigned int port;  // network byte order, 0 when absent
    char* protocol;
    char line[2048];        // what the texts point into when the record was read
    char* aliasTable[128];  // and the aliases: at most 127 and the null
};

class GENREG_EXPORT GenRegServices : public GenRegText {
public:
    // *rc: 0, REG_EMPTY_ARGUMENT, REG_PATH_TOO_LONG, REG_BASE_NAME_FAILED, REG_DIRECTORY_NAME_FAILED.
    GenRegServices(const char* path, unsigned int* rc) noexcept;
    ~GenRegServices() noexcept;

    static unsigned int ParseLine(void* record, const char* line) noexcept;
    static unsigned int FormatLine(void* record, char* line) noexcept;
    static unsigned int MatchRecord(unsigned long mask, void* record1, void* record2) noexcept;
    static unsigned int ValidateRecord(unsigned long mask, void* record) noexcept;
    static unsigned int PrintRecord(void* record) noexcept;
    static unsigned int GetRecordSize(void* record, unsigned long* size) noexcept;
    static unsigned int GetMaxRecordSize(unsigned long* size) noexcept;

    // Those of KeepLines. The comment as it stands; the record over the line that the buffer holds; with every bit of
    // the mask set aliases and comments too.
    static unsigned int ParseKeptLine(void* record, const char* line) noexcept;
    static unsigned int RewriteLine(void* record, char* line) noexcept;
    static unsigned int MatchWhole(unsigned long mask, void* record, void* key) noexcept;
};

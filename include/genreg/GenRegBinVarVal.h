// Files of fixed-size binary records: a short name, a 32-bit value, a short comment.
//
// Payload of a frame, 36 bytes: variable at 0 (16 bytes, terminated), value at 16 (signed, the machine's byte order),
// comment at 20 (16 bytes, terminated). Names and comments of more than 15 characters are the caller's to avoid.
#pragma once

#include <genreg/GenRegBin.h>

constexpr unsigned long BINVARVAL_MATCH_VARIABLE = 0x1;
constexpr unsigned long BINVARVAL_MATCH_VALUE = 0x2;

struct GenRegBinVarValRecord {
    char variable[16];
    int value;
    char comment[16];
};

class GENREG_EXPORT GenRegBinVarVal : public GenRegBin {
public:
    // *rc: 0, REG_EMPTY_ARGUMENT, REG_PATH_TOO_LONG, REG_BASE_NAME_FAILED, REG_DIRECTORY_NAME_FAILED.
    GenRegBinVarVal(const char* path, unsigned int* rc) noexcept;
    ~GenRegBinVarVal() noexcept;

    static unsigned int MatchRecord(unsigned long matchType, void* fileRecord, void* keyRecord) noexcept;
    static unsigned int ValidateRecord(unsigned long matchType, void* record) noexcept;
    static unsigned int PrintRecord(void* record) noexcept;
    static unsigned int GetRecordSize(void* record, unsigned long* size) noexcept;
    static unsigned int GetMaxRecordSize(unsigned long* size) noexcept;
};

// Files of lines "variable = value", with optional comments after "#".
//
//   blanks variable blanks "=" blanks value blanks "#" comment
//
// A value may stand in double quotes, which are kept as part of it. "#" starts the comment anywhere, inside quotes too.
// Rewriting a line keeps its blanks up to the value; behind it one blank stands before the comment. Reading and writing
// a comment puts one more blank in front of it each time (ParseLine keeps the one behind the "#", FormatLine writes
// another), until the line is too long, and makes a dot of each byte that is no printable ASCII. KeepLines(true) keeps
// the whole line, its comment byte for byte, when a record that Get filled is changed and written.
#pragma once

#include <genreg/GenRegText.h>

// Bits of GenRegVarValRecord::contains, and of the mask of the operations.
constexpr unsigned long VARVAL_HAS_COMMENT = 0x1;
constexpr unsigned long VARVAL_HAS_PAIR = 0x2;
constexpr unsigned long VARVAL_MATCH_VARIABLE = 0x1;
constexpr unsigned long VARVAL_MATCH_VALUE = 0x2;

struct GenRegVarValRecord {
    unsigned long contains;  // 0: a blank line
    char* comment;           // the text after "#", or null
    char* variable;
    char* value;
    char lineText[2048];  // what the three point into when the record was read
};

namespace genreg {
class VarValValues;
}  // namespace genreg

class GENREG_EXPORT GenRegVarVal : public GenRegText {
public:
    // *rc: 0, REG_EMPTY_ARGUMENT, REG_PATH_TOO_LONG, REG_BASE_NAME_FAILED, REG_DIRECTORY_NAME_FAILED.
    GenRegVarVal(const char* path, unsigned int* rc) noexcept;
    ~GenRegVarVal() noexcept;

    // Look a variable up and convert its value. False, and the output untouched, when there is none or the conversion
    // does not take the whole text, or it lies outside the type. The text of GetStringValue lives in the object until
    // its next GetStringValue; one of 2,048 characters or more, which only a derived schema can make, is false.
    bool GetStringValue(const char* variable, const char** value) noexcept;
    bool GetBooleanValue(const char* variable, bool* value) noexcept;
    bool GetDoubleValue(const char* variable, double* value) noexcept;
    bool GetSint64Value(const char* variable, long* value) noexcept;
    bool GetSintValue(const char* variable, long* value) noexcept;
    bool GetUint64Value(const char* variable, unsigned long* value) noexcept;
    bool GetUintValue(const char* variable, unsigned long* value) noexcept;

    // The record callbacks.
    static unsigned int ParseLine(void* record, const char* line) noexcept;
    static unsigned int FormatLine(void* record, char* line) noexcept;
    static unsigned int MatchRecord(unsigned long mask, void* record, void* key) noexcept;
    static unsigned int ValidateRecord(unsigned long mask, void* record) noexcept;
    static unsigned int PrintRecord(void* record) noexcept;
    static unsigned int GetRecordSize(void* record, unsigned long* size) noexcept;
    static unsigned int GetMaxRecordSize(unsigned long* size) noexcept;

    // Those of KeepLines. The comment as it stands; the record over the line that the buffer holds; with every bit of
    // the mask set comments too.
    static unsigned int ParseKeptLine(void* record, const char* line) noexcept;
    static unsigned int RewriteLine(void* record, char* line) noexcept;
    static unsigned int MatchWhole(unsigned long mask, void* record, void* key) noexcept;

private:
    friend class genreg::VarValValues;  // the getters

    char stringValue_[2048] = {};
};

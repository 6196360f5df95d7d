// A variable/value file for editing: the library's engine, which keeps the lines, with slots that know what an edit
// asks for: the value that is expected under the lock, a comment that stays as each line has it.
#pragma once

#include <genreg/GenRegVarVal.h>

#include <optional>
#include <string>
#include <vector>

namespace tool {

// What is asked for, and how the engine's call to write it went.
struct VarValEdit {
    std::string variable;
    std::string value;
    std::optional<std::string> comment;   // none: as it stands
    std::optional<std::string> expected;  // refuse when the line found under the lock has another value
    std::string layout;                   // the line that a new one is written over
    // Results:
    bool changedMeanwhile = false;
    bool doesNotFit = false;
    bool written = false;
};

// The record of the slots. The library's comes first, so that its own functions take it.
struct VarValEntryRecord {
    GenRegVarValRecord base;
    VarValEdit* edit;          // null for a line of the file
    const VarValEdit* notYet;  // of a key: only lines that are not yet what this edit asks for
    unsigned int parseCode;
    char raw[REG_LINE_SIZE];
};

// A line of the file as found.
struct VarValEntry {
    std::size_t line = 0;  // counted from 1
    bool ended = true;     // false: no newline was seen; the last line, or one with a NUL byte
    std::string variable;
    std::string value;
    std::optional<std::string> comment;  // as people mean it
    std::string raw;                     // the line
};

// All pairs of a file in order, and how many other lines it has.
struct VarValContents {
    std::vector<VarValEntry> pairs;
    std::size_t lines = 0;
    std::size_t comments = 0;
    std::size_t blanks = 0;
    std::size_t others = 0;  // lines of another form, which are carried along
};

class VarValFile : public GenRegVarVal {
public:
    // Throws a Failure when the path is refused. Several matches are refused by the engine unless they are allowed.
    VarValFile(const std::string& path, bool severalAllowed);

    // Reads the file in one scan. Throws a Failure.
    [[nodiscard]] VarValContents read(const std::string& doing);

    // The engine's operations. Each answers the engine's code.
    unsigned int add(VarValEdit& edit);
    // mask: VARVAL_MATCH_VARIABLE, or with VARVAL_MATCH_VALUE the value `key` too. Where several matches are allowed,
    // those that are as asked already do not count as matches, so that one of them does not keep the others from being
    // changed.
    unsigned int change(unsigned long mask, const std::string& key, VarValEdit& edit);
    unsigned int remove(unsigned long mask, const std::string& variable, const std::string& key);

private:
    VarValFile(const std::string& path, bool severalAllowed, unsigned int code);

    std::string path_;
};

}  // namespace tool

// A program with a member of its own in the place of the library's, and with the variable that is the programs' to set.
// Fails unless the library sees both.
#include <genreg/genreg.h>

#include <cstdio>
#include <cstring>

namespace {
unsigned long asked = 0;
}

unsigned int GenRegVarVal::ValidateRecord(unsigned long, void*) noexcept {
    ++asked;
    return 0;
}

int main(int count, char** arguments) {
    if (count != 2) {
        return 2;
    }
    unsigned int code = 0;
    GenRegVarVal registry(arguments[1], &code);
    char variable[] = "COLOUR";
    GenRegVarValRecord key = {};
    GenRegVarValRecord found;
    key.contains = VARVAL_HAS_PAIR;
    key.variable = variable;
    if (code != 0 || registry.Get(VARVAL_MATCH_VARIABLE, &key, &found) != 0 || asked == 0) {
        std::fprintf(stderr, "the library has its own member: %lu calls of the program's\n", asked);
        return 1;
    }
    char line[REG_LINE_SIZE] = "";
    char compact[REG_LINE_SIZE] = "";
    bCompactFormattedLine = 0;
    code = GenRegVarVal::FormatLine(&found, line);
    bCompactFormattedLine = 1;
    code |= GenRegVarVal::FormatLine(&found, compact);
    if (code != 0 || std::strcmp(line, compact) == 0) {
        std::fprintf(stderr, "the library has its own variable: %s, %s\n", line, compact);
        return 1;
    }
    std::printf("%s is %s\n", found.variable, found.value);
    return 0;
}

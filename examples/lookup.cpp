// Prints the value of a variable of a registry file: ./lookup FILE NAME
#include <genreg/genreg.h>

#include <cstdio>

int main(int count, char** words) {
    if (count != 3) {
        return 2;
    }
    unsigned int code = 0;
    GenRegVarVal registry(words[1], &code);
    const char* value = nullptr;
    if (code != 0 || !registry.GetStringValue(words[2], &value)) {
        GenRegCause cause;
        genregLastCause(&cause);
        std::fprintf(stderr, "%s\n", genregCodeText(cause.code));
        return 1;
    }
    std::puts(value);
    return 0;
}

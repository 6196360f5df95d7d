// A client's program: prints the value of COLOUR of the variable/value registry named as its argument.
#include <genreg/genreg.h>
#include <install/Install.h>
#include <osse/Memory.h>

#include <cstdio>

int main(int count, char** arguments) {
    if (count != 2) {
        return 2;
    }
    char installPath[1024];
    if (sqloInstallPath(sizeof installPath, installPath) != 0) {
        return 3;
    }
    unsigned int code = 0;
    GenRegVarVal registry(arguments[1], &code);
    const char* value = nullptr;
    if (code != 0 || !registry.GetStringValue("COLOUR", &value)) {
        GenRegCause cause;
        genregLastCause(&cause);
        std::fprintf(stderr, "%s: %s\n", genregCodeName(cause.code), genregCodeText(cause.code));
        return 1;
    }
    std::printf("COLOUR is %s\n", value);
    return 0;
}

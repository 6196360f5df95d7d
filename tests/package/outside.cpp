// A client's program: prints the value of COLOUR of the variable/value registry named as its argument.
#include <genreg/genreg.h>
#include <install/Install.h>
#include <osse/Memory.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef OWN_NAMES
// The program's own functions of these names: the library goes on with its own.
extern "C" {
unsigned int StripWhiteSpace(char*) {
    return 1;
}
void CleanString(char*) {
    std::abort();
}
unsigned int ExtractNextField(char**, char**) {
    return 1;
}
}
#endif

// Headers, library and package are of one version.
static_assert(GENREG_VERSION >= GENREG_VERSION_NUMBER(1, 0, 0) && GENREG_VERSION < GENREG_VERSION_NUMBER(2, 0, 0),
              "the version does not compare");

int main(int count, char** arguments) {
    if (count != 2) {
        return 2;
    }
    if (std::strcmp(genregVersion(), GENREG_VERSION_TEXT) != 0 || std::strcmp(genregVersion(), EXPECTED_VERSION) != 0) {
        return 5;
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
    GenRegServicesRecord key = {};
    GenRegServicesRecord found;
    key.flags = SERVICES_HAS_NAME;
    key.name = const_cast<char*>("COLOUR");
    GenRegServices services(arguments[1], &code);
    if (code != 0 || services.Get(SERVICES_MATCH_NAME, &key, &found) != 0) {
        return 4;
    }
    std::printf("COLOUR is %s\n", value);
    return 0;
}

#include <genreg/Version.h>

const char* genregVersion() {
    return GENREG_VERSION_TEXT;
}

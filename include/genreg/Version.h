// The library's version: the one that a program is compiled against, and the one that it was given when it started.
#pragma once

#include <genreg/Export.h>

// The one place where the number stands: the build reads it here.
#define GENREG_VERSION_MAJOR 1
#define GENREG_VERSION_MINOR 0
#define GENREG_VERSION_PATCH 0

// A number that compares: of two versions the later one has the greater. Each part but the first is below 1000.
#define GENREG_VERSION_NUMBER(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))
#define GENREG_VERSION GENREG_VERSION_NUMBER(GENREG_VERSION_MAJOR, GENREG_VERSION_MINOR, GENREG_VERSION_PATCH)

// "1.0.0"
#define GENREG_VERSION_TEXT                     \
    GENREG_VERSION_QUOTED(GENREG_VERSION_MAJOR) \
    "." GENREG_VERSION_QUOTED(GENREG_VERSION_MINOR) "." GENREG_VERSION_QUOTED(GENREG_VERSION_PATCH)
#define GENREG_VERSION_QUOTED(number) GENREG_VERSION_AS_GIVEN(number)
#define GENREG_VERSION_AS_GIVEN(number) #number

extern "C" {

// GENREG_VERSION_TEXT of the library that the program runs with. Never null; the text lives for ever. Any thread.
GENREG_EXPORT const char* genregVersion();
}

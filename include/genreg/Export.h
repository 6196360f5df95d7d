// Marks what libRVNgenreg exports; everything else of it is hidden.
#pragma once

#define GENREG_EXPORT __attribute__((visibility("default")))

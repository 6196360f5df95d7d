// Marks what libRVNgenreg exports; everything else of it is hidden.
#pragma once

#define GENREG_EXPORT __attribute__((visibility("default")))
// A private member function of an exported class.
#define GENREG_HIDDEN __attribute__((visibility("hidden")))

// Marks what libRVNinstall exports; everything else of it is hidden.
#pragma once

#define RVNINSTALL_EXPORT __attribute__((visibility("default")))

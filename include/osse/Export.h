// Marks what libRVNosse exports; everything else of it is hidden.
#pragma once

#define OSSE_EXPORT __attribute__((visibility("default")))

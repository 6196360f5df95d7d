// The platform's codes and their mapping from errno.
#pragma once

#include <osse/Export.h>

constexpr unsigned int OSS_BUFFER_TOO_SMALL = 0x90000008;
constexpr unsigned int OSS_NULL_POINTER = 0x9000000c;
constexpr unsigned int OSS_NO_MEMORY = 0x9000000d;
constexpr unsigned int OSS_WOULD_BLOCK = 0x90000014;

// Every other error of the system: this base plus errno (errno stays below 0xa0).
constexpr unsigned int OSS_SYSTEM_ERROR_BASE = 0x90000100;

extern "C" {

// 0 for 0; OSS_WOULD_BLOCK for EAGAIN and EWOULDBLOCK; OSS_NO_MEMORY for ENOMEM; else the base plus the errno.
OSSE_EXPORT unsigned int ossErrorMapSystem(int systemError);
}

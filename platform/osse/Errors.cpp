#include <osse/Errors.h>

#include <cerrno>

unsigned int ossErrorMapSystem(int systemError) {
    // Compared, not switched over: the first two are one number on most systems.
    if (systemError == EAGAIN || systemError == EWOULDBLOCK) {
        return OSS_WOULD_BLOCK;
    }
    if (systemError == ENOMEM) {
        return OSS_NO_MEMORY;
    }
    return systemError == 0 ? 0 : OSS_SYSTEM_ERROR_BASE + static_cast<unsigned int>(systemError);
}

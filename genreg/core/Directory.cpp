#include "genreg/core/Directory.h"

#include <genreg/GenRegFile.h>
#include <osse/Files.h>

#include "platform/posix/Posix.h"

namespace genreg {

unsigned int ensureDirectoryOf(FunctionTrace& trace, unsigned int probe, const char* path) noexcept {
    constexpr unsigned long DIRECTORY_PERMISSIONS = 0755;
    char directory[REG_PATH_SIZE];
    if (const unsigned int rc = ossDirectoryName(path, directory, sizeof directory)) {
        return trace.fail(probe, rc, rc);
    }
    if (ossIsDirectory(directory)) {
        return 0;
    }
    const OSSDirectoryCreateRequest request = {OSS_REQUEST_VERSION, directory, DIRECTORY_PERMISSIONS, 2};
    if (const unsigned int rc = ossDirectoryCreate(&request)) {
        return trace.fail(probe + 10, REG_CREATE_DIRECTORY_FAILED, rc);
    }
    return 0;
}

unsigned int syncDirectoryOf(const char* path) noexcept {
    char directory[REG_PATH_SIZE];
    if (const unsigned int rc = ossDirectoryName(path, directory, sizeof directory)) {
        return rc;
    }
    return posix::syncDirectory(directory);
}

}  // namespace genreg

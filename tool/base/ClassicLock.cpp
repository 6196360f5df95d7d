#include "base/ClassicLock.h"

#include <fcntl.h>

#include <cstdio>
#include <filesystem>
#include <memory>

namespace tool {

ClassicLock classicLockOf(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(path.c_str(), "re"), std::fclose);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (stream == nullptr || fcntl(fileno(stream.get()), F_GETLK, &lock) != 0) {
        std::error_code error;
        return {std::filesystem::exists(path, error) ? std::nullopt : std::optional(false), 0};
    }
    // A lock that belongs to an open file names no process.
    return {lock.l_type != F_UNLCK, lock.l_type != F_UNLCK && lock.l_pid > 0 ? lock.l_pid : 0};
}

}  // namespace tool

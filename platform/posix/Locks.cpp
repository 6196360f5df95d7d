#include "../System.h"
#include "Failure.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr unsigned long MONITOR_LOCK_PERMISSIONS = 0644;

constexpr mode_t READ = 0444;
constexpr mode_t WRITE = 0222;
constexpr mode_t ALL = 0777;

// Who may write the registry may open the lock file for writing, which takes reading too; a class that may not read the
// registry may not hold up those who do.
mode_t lockFileMode(mode_t registry, mode_t wanted) noexcept {
    const mode_t writers = registry & WRITE;
    const mode_t blind = ~registry & READ;
    const mode_t mode = wanted | writers | ((writers << 1) & registry);
    return (registry & S_IROTH) != 0 ? mode : mode & ~(blind | ((blind >> 1) & ~writers));
}

// Bits that the umask kept from those who may write the registry are given back; a group that is not the registry's has
// what everybody has.
void likenLockFile(int registry, int lock, mode_t mode) noexcept {
    struct stat model;
    struct stat made;
    if (::fstat(registry, &model) != 0 || ::fstat(lock, &made) != 0) {
        return;
    }
    mode_t bits = made.st_mode & ALL;
    if (model.st_uid != made.st_uid || model.st_gid != made.st_gid) {
        (void)setOwner(lock, model.st_uid, model.st_gid);
    }
    const mode_t writers = model.st_mode & WRITE;
    bits |= mode & (writers | (writers << 1));
    const bool sameGroup = ::fstat(lock, &made) == 0 && made.st_gid == model.st_gid;
    if (!sameGroup || !carryAcl(registry, lock)) {
        const unsigned int all = bits;  // mode_t is a short number on some systems
        bits = static_cast<mode_t>((all & ~static_cast<unsigned int>(S_IRWXG)) | (all & S_IRWXO & all >> 3) << 3);
    }
    (void)setPermissions(lock, bits);
}

}  // namespace

unsigned int createLockFile(const char* path, const char* registry, unsigned long permissions) noexcept {
    if (exists(path)) {
        return 0;
    }
    const int model = platform::openHigh(registry, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    mode_t mode = static_cast<mode_t>(permissions);
    struct stat status;
    if (model == -1) {
        mode &= errno == ENOENT ? ALL : S_IRWXU;
    } else if (::fstat(model, &status) == 0) {
        mode = lockFileMode(status.st_mode, mode);
    }
    const int made = platform::openHigh(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    const unsigned int code = resultOf(made);
    if (made != -1) {
        if (model != -1) {
            likenLockFile(model, made, mode);
        }
        platform::closeQuietly(made);
    }
    if (model != -1) {
        platform::closeQuietly(model);
    }
    return code;
}

unsigned int lockShared(int descriptor) noexcept {
    return resultOf(platform::lockWholeFile(descriptor, platform::FileLock::Shared, false));
}

unsigned int isLockedElsewhere(int descriptor, bool* locked) noexcept {
    return resultOf(platform::isLockedElsewhere(descriptor, locked));
}

unsigned int lockTail(int descriptor, bool exclusive, unsigned long first, bool wait) noexcept {
    const auto kind = exclusive ? platform::FileLock::Exclusive : platform::FileLock::Shared;
    return resultOf(platform::lockTail(descriptor, kind, first, wait));
}

unsigned int unlockTail(int descriptor, unsigned long first) noexcept {
    return resultOf(platform::lockTail(descriptor, platform::FileLock::None, first, false));
}

// In this order: a lock that another gave back between the two questions is no answer to the second.
bool holdsByte(int holder, int own, unsigned long byte) noexcept {
    bool others = true;
    bool held = false;
    return platform::isByteRefused(holder, platform::FileLock::Exclusive, byte, &others) == 0 && !others &&
           platform::isByteRefused(own, platform::FileLock::Shared, byte, &held) == 0 && held;
}

// Closing the descriptor costs this process any classic lock that it has on the file; the locks of file handles stay.
unsigned int isLocked(const char* path, bool* locked) noexcept {
    const int descriptor = platform::openHigh(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor == -1) {
        if (errno != ENOENT) {
            return ossErrorMapSystem(errno);
        }
        *locked = false;
        return 0;
    }
    const unsigned int code = resultOf(platform::isLockedElsewhere(descriptor, locked));
    platform::closeQuietly(descriptor);
    return code;
}

// Closing any descriptor of the file would cost this process, should it be the monitor, its own classic lock on it. So
// the numbers of the standard streams are taken before the file is opened, and what was opened is never closed.
unsigned int openMonitorLock(const char* path, int* descriptor) noexcept {
    int taken[platform::FIRST_FREE_DESCRIPTOR];
    int count = 0;
    int filler = platform::retried([] { return ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    while (filler != -1 && filler < platform::FIRST_FREE_DESCRIPTOR) {
        taken[count++] = filler;
        filler = ::dup(filler);
    }
    if (filler != -1) {
        platform::closeQuietly(filler);
    }
    *descriptor = platform::openOrCreate(path, O_RDWR | O_NOFOLLOW | O_NONBLOCK, MONITOR_LOCK_PERMISSIONS);
    const unsigned int code = resultOf(*descriptor);
    while (count > 0) {
        platform::closeQuietly(taken[--count]);
    }
    return code;
}

unsigned int recordLockHolder(int descriptor, long* holder) noexcept {
    struct flock request = {};
    request.l_type = F_WRLCK;
    request.l_whence = SEEK_SET;
    request.l_pid = -1;
    if (platform::retried([&] { return ::fcntl(descriptor, F_GETLK, &request); }) == -1) {
        return ossErrorMapSystem(errno);
    }
    *holder = request.l_type == F_UNLCK ? 0 : request.l_pid;
    return 0;
}

}  // namespace posix

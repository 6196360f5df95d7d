// Durability, and what a file is besides its contents.
#include "../System.h"
#include "Failure.h"
#include "Own.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr mode_t PERMISSION_BITS = 07777;

}  // namespace

bool carryAcl(int from, int to) noexcept {
    return carryExtended(from, to, false);
}

unsigned int syncFile(int descriptor) noexcept {
    return resultOf(platform::syncToMedium(descriptor));
}

unsigned int syncDirectory(const char* directory) noexcept {
    const int descriptor = platform::openHigh(directory, O_RDONLY | O_DIRECTORY);
    if (descriptor == -1) {
        return ossErrorMapSystem(errno);
    }
    const int result = platform::syncToMedium(descriptor);
    platform::closeQuietly(descriptor);
    return result == 0 || errno == EINVAL ? 0 : ossErrorMapSystem(errno);
}

// The permission bits come last: a change of owner clears the set-user-ID bits, and bits given before the ACL would for
// a moment be the owning group's, where they are the ACL's mask. Given after it they leave it as it is, since the mask
// is what the old file shows as its group bits.
unsigned int carryAttributes(int from, int to) noexcept {
    struct stat old;
    struct stat fresh;
    if (::fstat(from, &old) != 0 || ::fstat(to, &fresh) != 0) {
        return ossErrorMapSystem(errno);
    }
    mode_t mode = old.st_mode & PERMISSION_BITS;
    const bool owned = old.st_uid == fresh.st_uid && old.st_gid == fresh.st_gid;
    if (!owned && setOwner(to, old.st_uid, old.st_gid) != 0) {
        mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
    }
    if (!carryExtended(from, to, true)) {
        mode &= ~static_cast<mode_t>(S_IRWXG);
    }
    return setPermissions(to, mode);
}

unsigned int setPermissions(int descriptor, unsigned long permissions) noexcept {
    const mode_t mode = static_cast<mode_t>(permissions) & PERMISSION_BITS;
    return resultOf(platform::retried([&] { return ::fchmod(descriptor, mode); }));
}

unsigned int setOwner(int descriptor, unsigned int owner, unsigned int group) noexcept {
    constexpr uid_t AS_IT_IS = static_cast<uid_t>(-1);
    const unsigned int code = resultOf(::fchown(descriptor, owner, group));
    if (code != 0) {
        (void)!::fchown(descriptor, AS_IT_IS, group);  // a group of one's own may be given without the owner
    }
    return code;
}

}  // namespace posix

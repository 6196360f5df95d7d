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
unsigned int carryAttributes(int from, const FileStatus& old, int to, const FileStatus& fresh) noexcept {
    mode_t mode = static_cast<mode_t>(old.permissions);
    const bool owned = old.owner == fresh.owner && old.group == fresh.group;
    if (!owned && setOwner(to, old.owner, old.group) != 0) {
        mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
    }
    if (!carryExtended(from, to, true)) {
        mode &= ~static_cast<mode_t>(S_IRWXG);
    }
    return setPermissions(to, mode);
}

unsigned int carryAttributes(int from, int to) noexcept {
    FileStatus old = {};
    FileStatus fresh = {};
    unsigned int rc = statusOf(from, &old);
    rc = rc == 0 ? statusOf(to, &fresh) : rc;
    return rc == 0 ? carryAttributes(from, old, to, fresh) : rc;
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

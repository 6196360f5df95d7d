// Durability, and what a file is besides its contents.
#if defined(__APPLE__)
#include <copyfile.h>
#else
#include <sys/xattr.h>
#endif

#include <cstring>
#include <memory>
#include <new>

#include "../System.h"
#include "Failure.h"
#include "Posix.h"

namespace posix {
namespace {

constexpr mode_t PERMISSION_BITS = 07777;

// On macOS a plain sync leaves the bytes in the drive's own memory; not every file system knows the full one.
int syncToMedium(int descriptor) noexcept {
#if defined(__APPLE__)
    if (platform::retried([&] { return ::fcntl(descriptor, F_FULLFSYNC); }) != -1) {
        return 0;
    }
#endif
    return platform::retried([&] { return ::fsync(descriptor); });
}

#if !defined(__APPLE__)

constexpr char ACL[] = "system.posix_acl_access";
constexpr char SECURITY_LABEL[] = "security.selinux";

constexpr std::size_t MOST_NAMES = 65536;  // the system's own bounds of a list of names and of a value
constexpr std::size_t MOST_VALUE = 65536;

bool isOfUsers(const char* name) noexcept {
    constexpr char USERS[] = "user.";
    return std::strncmp(name, USERS, sizeof USERS - 1) == 0;
}

bool carryAttribute(int from, int to, const char* name) noexcept {
    const std::unique_ptr<char[]> value(new (std::nothrow) char[MOST_VALUE]);
    if (value == nullptr) {
        return false;
    }
    const ssize_t length = ::fgetxattr(from, name, value.get(), MOST_VALUE);
    return length >= 0 && ::fsetxattr(to, name, value.get(), static_cast<std::size_t>(length), 0) == 0;
}

// The directory may have given the new file an ACL which the old one never had.
bool dropAcl(int to) noexcept {
    return ::fremovexattr(to, ACL) == 0 || errno == ENODATA || errno == ENOTSUP;
}

// The ACL, last, since it may forbid the others: whether the file `to` now has that of the file `from`, or none if that
// has none. The security label, and what users tied to the file where that is wanted: as far as it goes.
bool carryExtended(int from, int to, bool usersToo) noexcept {
    const ssize_t needed = ::flistxattr(from, nullptr, 0);
    if (needed == 0 || (needed == -1 && errno == ENOTSUP)) {
        return dropAcl(to);
    }
    const std::unique_ptr<char[]> names(new (std::nothrow) char[MOST_NAMES]);
    const ssize_t length = names == nullptr ? -1 : ::flistxattr(from, names.get(), MOST_NAMES);
    if (length == -1) {
        return false;
    }
    bool hasAcl = false;
    for (const char* name = names.get(); name < names.get() + length; name += std::strlen(name) + 1) {
        hasAcl = hasAcl || std::strcmp(name, ACL) == 0;
        if (std::strcmp(name, SECURITY_LABEL) == 0 || (usersToo && isOfUsers(name))) {
            (void)carryAttribute(from, to, name);
        }
    }
    return hasAcl ? carryAttribute(from, to, ACL) : dropAcl(to);
}

#else

bool carryExtended(int from, int to, bool usersToo) noexcept {
    return ::fcopyfile(from, to, nullptr, usersToo ? COPYFILE_ACL | COPYFILE_XATTR : COPYFILE_ACL) == 0;
}

#endif

}  // namespace

bool carryAcl(int from, int to) noexcept {
    return carryExtended(from, to, false);
}

unsigned int syncFile(int descriptor) noexcept {
    return resultOf(syncToMedium(descriptor));
}

unsigned int syncDirectory(const char* directory) noexcept {
    const int descriptor = platform::openHigh(directory, O_RDONLY | O_DIRECTORY);
    if (descriptor == -1) {
        return ossErrorMapSystem(errno);
    }
    const int result = syncToMedium(descriptor);
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

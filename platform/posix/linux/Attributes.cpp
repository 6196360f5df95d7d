// Extended attributes, of which an ACL is one.
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "../Own.h"

namespace posix {
namespace {

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

// The directory may have given the new file an ACL which the old one never had. Most give none, and to ask costs less
// than to remove.
bool dropAcl(int to) noexcept {
    return ::flistxattr(to, nullptr, 0) == 0 || ::fremovexattr(to, ACL) == 0 || errno == ENODATA || errno == ENOTSUP;
}

}  // namespace

// The ACL last, since it may forbid the others.
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

}  // namespace posix

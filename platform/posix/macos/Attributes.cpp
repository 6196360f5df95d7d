// ACL, extended attributes and flags.
#include <copyfile.h>
#include <fcntl.h>
#include <sys/acl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <type_traits>

#include "../Own.h"

namespace posix {
namespace {

// What a user gives a file by chflags and what forbids nothing. A file with one of the others that are his, which
// forbid changing it, is not replaced; and that its bytes are compressed is true of the old file alone.
constexpr __uint32_t CARRIED_FLAGS = UF_NODUMP | UF_HIDDEN;

struct AclFreer {
    void operator()(acl_t acl) const noexcept { (void)::acl_free(acl); }
};
using Acl = std::unique_ptr<std::remove_pointer_t<acl_t>, AclFreer>;

// Null where there is none; *known tells whether that is so.
Acl aclOf(int descriptor, bool* known) noexcept {
    errno = 0;
    Acl acl(::acl_get_fd_np(descriptor, ACL_TYPE_EXTENDED));
    *known = acl != nullptr || errno == ENOENT || errno == ENOTSUP || errno == EOPNOTSUPP;
    return acl;
}

bool dropAcl(int descriptor) noexcept {
    const filesec_t security = ::filesec_init();
    if (security == nullptr) {
        return false;
    }
    const bool dropped = ::filesec_set_property(security, FILESEC_ACL, _FILESEC_REMOVE_ACL) == 0 &&
                         ::fchmodx_np(descriptor, security) == 0;
    ::filesec_free(security);
    return dropped;
}

// As it is, entry by entry. The copying call would leave the entries that the new file inherited from its directory,
// and leave out those that the old one did.
bool carryEntries(int from, int to) noexcept {
    bool known = false;
    bool freshKnown = false;
    const Acl old = aclOf(from, &known);
    const Acl fresh = aclOf(to, &freshKnown);
    if (!known) {
        return false;
    }
    if (old != nullptr) {
        return ::acl_set_fd_np(to, old.get(), ACL_TYPE_EXTENDED) == 0;
    }
    return (freshKnown && fresh == nullptr) || dropAcl(to);
}

void carryFlags(int from, int to) noexcept {
    struct stat old;
    struct stat fresh;
    if (::fstat(from, &old) == 0 && ::fstat(to, &fresh) == 0 && (old.st_flags & CARRIED_FLAGS & ~fresh.st_flags) != 0) {
        (void)::fchflags(to, fresh.st_flags | (old.st_flags & CARRIED_FLAGS));
    }
}

}  // namespace

// The ACL last, since it may forbid the others.
bool carryExtended(int from, int to, bool usersToo) noexcept {
    if (usersToo) {
        (void)::fcopyfile(from, to, nullptr, COPYFILE_XATTR);
        carryFlags(from, to);
    }
    return carryEntries(from, to);
}

}  // namespace posix

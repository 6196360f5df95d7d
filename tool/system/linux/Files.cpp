#include "system/Files.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace tool {
namespace {

// What users call it; empty where the library does not carry it.
std::string nameFor(const std::string& attribute) {
    if (attribute == "system.posix_acl_access") {
        return "its ACL";
    }
    if (attribute == "security.selinux") {
        return "its security label";
    }
    return attribute.rfind("user.", 0) == 0 ? "the attribute " + attribute : std::string();
}

// File systems by their numbers; those that linux/magic.h does not know stand here by theirs.
constexpr unsigned long OF_NETWORK[] = {NFS_SUPER_MAGIC,         SMB_SUPER_MAGIC, CIFS_SUPER_MAGIC, SMB2_SUPER_MAGIC,
                                        AFS_SUPER_MAGIC,         V9FS_MAGIC,      CEPH_SUPER_MAGIC, CODA_SUPER_MAGIC,
                                        0x0bd00bd0 /* Lustre */, 0x47504653 /* GPFS */};
constexpr unsigned long WITHOUT_LINKS[] = {MSDOS_SUPER_MAGIC, EXFAT_SUPER_MAGIC};

bool isOneOf(const auto& all, unsigned long number) {
    return std::find(std::begin(all), std::end(all), number) != std::end(all);
}

}  // namespace

std::map<std::string, std::string> attributesOf(const std::string& path) {
    constexpr std::size_t MOST = 65536;  // the system's bound of a list of names and of a value
    std::map<std::string, std::string> attributes;
    std::vector<char> names(MOST);
    std::vector<char> value(MOST);
    const ssize_t length = listxattr(path.c_str(), names.data(), names.size());
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(names.data() + at)) + 1) {
        const char* const attribute = names.data() + at;
        const ssize_t size = getxattr(path.c_str(), attribute, value.data(), value.size());
        if (const std::string name = nameFor(attribute); !name.empty() && size >= 0) {
            attributes[name].assign(value.data(), static_cast<std::size_t>(size));
        }
    }
    return attributes;
}

void lookCloser(const std::string& path, FilePlace& place) {
    struct statfs system = {};
    if (statfs(path.c_str(), &system) == 0) {
        const auto kind = static_cast<unsigned int>(system.f_type);
        place.ofNetwork = isOneOf(OF_NETWORK, kind);
        place.withoutLinks = isOneOf(WITHOUT_LINKS, kind);
    }
    // A file may be mounted from elsewhere on the same file system.
    struct statx info = {};
    const bool told = statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &info) == 0 &&
                      (info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0;
    place.isMount = place.isMount || (told && (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0);
}

std::optional<ForbiddingAttribute> forbiddingAttribute(const std::string& path) {
    struct statx info = {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &info) != 0) {
        return std::nullopt;
    }
    if ((info.stx_attributes & STATX_ATTR_IMMUTABLE) != 0) {
        return ForbiddingAttribute{"lsattr", "chattr -i"};
    }
    if ((info.stx_attributes & STATX_ATTR_APPEND) != 0) {
        return ForbiddingAttribute{"lsattr", "chattr -a"};
    }
    return std::nullopt;
}

}  // namespace tool

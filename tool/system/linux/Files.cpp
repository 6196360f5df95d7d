#include "system/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>

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

#include "base/Belongings.h"

#include <fmt/core.h>
#include <grp.h>
#include <pwd.h>
#include <sys/xattr.h>

#include <cstring>
#include <vector>

#include "base/Text.h"

namespace tool {
namespace {

#if !defined(__APPLE__)

// What the library carries, and what it is called; attributes of users go by their own names.
std::string nameFor(const std::string& attribute) {
    if (attribute == "system.posix_acl_access") {
        return "its ACL";
    }
    if (attribute == "security.selinux") {
        return "its security label";
    }
    return attribute.rfind("user.", 0) == 0 ? "the attribute " + printable(attribute) : std::string();
}

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

#else

std::map<std::string, std::string> attributesOf(const std::string& /*path*/) {
    return {};
}

#endif

std::string groupName(gid_t group) {
    const ::group* const entry = getgrgid(group);
    return entry != nullptr ? entry->gr_name : fmt::format("{}", group);
}

}  // namespace

std::string userName(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : fmt::format("{}", user);
}

Belongings belongingsOf(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) {
        return {};
    }
    return {info.st_uid, info.st_gid, info.st_mode & 07777, attributesOf(path)};
}

std::string lostBelongings(const Belongings& before, const Belongings& after) {
    std::string list;
    const auto lost = [&list](const std::string& what) { list += (list.empty() ? "" : ", ") + what; };
    if (before.owner != after.owner) {
        lost(fmt::format("its owner {} (now {})", userName(before.owner), userName(after.owner)));
    }
    if (before.group != after.group) {
        lost(fmt::format("its group {} (now {})", groupName(before.group), groupName(after.group)));
    }
    if (before.permissions != after.permissions) {
        lost(fmt::format("its permissions {:04o} (now {:04o})", before.permissions, after.permissions));
    }
    for (const auto& [name, value] : before.attributes) {
        const auto found = after.attributes.find(name);
        if (found == after.attributes.end() || found->second != value) {
            lost(name);
        }
    }
    return list;
}

}  // namespace tool

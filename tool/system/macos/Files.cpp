#include "system/Files.h"

#include <sys/acl.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>

namespace tool {
namespace {

std::optional<std::string> aclOf(const std::string& path) {
    const acl_t acl = acl_get_file(path.c_str(), ACL_TYPE_EXTENDED);
    if (acl == nullptr) {
        return std::nullopt;
    }
    ssize_t length = 0;
    char* const text = acl_to_text(acl, &length);
    std::string entries = text != nullptr ? std::string(text, static_cast<std::size_t>(length)) : std::string();
    (void)acl_free(text);
    (void)acl_free(acl);
    return entries;
}

// The maker's own are the system's to give and to take.
bool isOfUsers(const char* attribute) {
    constexpr char MAKERS[] = "com.apple.";
    return std::strncmp(attribute, MAKERS, sizeof MAKERS - 1) != 0;
}

}  // namespace

std::map<std::string, std::string> attributesOf(const std::string& path) {
    constexpr std::size_t MOST = 65536;  // longer ones are not compared
    std::map<std::string, std::string> attributes;
    if (const auto acl = aclOf(path)) {
        attributes["its ACL"] = *acl;
    }
    std::vector<char> names(MOST);
    std::vector<char> value(MOST);
    const ssize_t length = listxattr(path.c_str(), names.data(), names.size(), 0);
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(names.data() + at)) + 1) {
        const char* const attribute = names.data() + at;
        const ssize_t size = getxattr(path.c_str(), attribute, value.data(), value.size(), 0, 0);
        if (isOfUsers(attribute) && size >= 0) {
            attributes["the attribute " + std::string(attribute)].assign(value.data(), static_cast<std::size_t>(size));
        }
    }
    return attributes;
}

void lookCloser(const std::string& path, FilePlace& place) {
    struct statfs system = {};
    if (statfs(path.c_str(), &system) == 0) {
        const std::string kind = system.f_fstypename;
        place.ofNetwork = (system.f_flags & MNT_LOCAL) == 0;
        place.withoutLinks = kind == "msdos" || kind == "exfat";
    }
}

std::optional<ForbiddingAttribute> forbiddingAttribute(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) {
        return std::nullopt;
    }
    if ((info.st_flags & (UF_IMMUTABLE | SF_IMMUTABLE)) != 0) {
        return ForbiddingAttribute{"ls -lO", (info.st_flags & UF_IMMUTABLE) != 0 ? "chflags nouchg" : "chflags noschg"};
    }
    if ((info.st_flags & (UF_APPEND | SF_APPEND)) != 0) {
        return ForbiddingAttribute{"ls -lO",
                                   (info.st_flags & UF_APPEND) != 0 ? "chflags nouappnd" : "chflags nosappnd"};
    }
    return std::nullopt;
}

}  // namespace tool

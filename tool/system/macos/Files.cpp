#include "system/Files.h"

#include <sys/stat.h>

namespace tool {

std::map<std::string, std::string> attributesOf(const std::string& /*path*/) {
    return {};
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

#include <osse/Errors.h>
#include <osse/Files.h>
#include <osse/OSSHFile.h>
#include <pwd.h>

#include <climits>
#include <cstdio>
#include <string_view>

#include "../System.h"

namespace {

constexpr unsigned long PERMISSION_BITS = 07777;
constexpr unsigned long OWNER_MAY_ENTER = 0300;
constexpr unsigned int DEPTH_WITH_PARENTS = 2;
constexpr std::size_t LARGEST_USER_ENTRY = 1 << 20;
constexpr int MOST_LINKS = 40;
constexpr std::size_t NO_LINK = static_cast<std::size_t>(-1);
constexpr std::size_t NO_SUCH_FILE = static_cast<std::size_t>(-2);

unsigned int resultOf(int callResult) noexcept {
    return callResult == 0 ? 0 : ossErrorMapSystem(errno);
}

// Head and tail into buffer; what does not fit leaves it empty.
unsigned int joinOut(std::string_view head, std::string_view tail, char* buffer, unsigned long size) noexcept {
    if (head.size() + tail.size() >= size) {
        if (size != 0) {
            buffer[0] = '\0';
        }
        return OSS_BUFFER_TOO_SMALL;
    }
    head.copy(buffer, head.size());
    tail.copy(buffer + head.size(), tail.size());
    buffer[head.size() + tail.size()] = '\0';
    return 0;
}

unsigned int copyOut(std::string_view text, char* buffer, unsigned long size) noexcept {
    return joinOut(text, {}, buffer, size);
}

std::string_view directoryOf(std::string_view path) noexcept {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return ".";
    }
    return path.substr(0, slash == 0 ? 1 : slash);
}

// A system that cannot sync a directory, or will not let us, has no durability to lose; a medium that fails has.
unsigned int syncNamesOf(std::string_view directory) noexcept {
    char path[PATH_MAX];
    if (const unsigned int code = copyOut(directory, path, sizeof path); code != 0) {
        return code;
    }
    const int descriptor = platform::openHigh(path, O_RDONLY | O_DIRECTORY);
    if (descriptor == -1) {
        return errno == EACCES || errno == EPERM ? 0 : ossErrorMapSystem(errno);
    }
    const int result = platform::syncToMedium(descriptor);
    platform::closeQuietly(descriptor);
    return result == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : ossErrorMapSystem(errno);
}

unsigned int makeDirectory(const char* path, unsigned long permissions) noexcept {
    if (::mkdir(path, static_cast<mode_t>(permissions)) == 0) {
        std::string_view whole(path);
        while (whole.size() > 1 && whole.back() == '/') {
            whole.remove_suffix(1);
        }
        return syncNamesOf(directoryOf(whole));
    }
    int failure = errno;
    if (failure == EEXIST) {
        struct stat status;
        const bool known = ::stat(path, &status) == 0;
        if (known && S_ISDIR(status.st_mode)) {
            return 0;
        }
        failure = known || errno == ENOENT ? EEXIST : errno;  // ENOENT: a link that leads nowhere
    }
    return ossErrorMapSystem(failure);
}

unsigned int makeParents(std::string_view path, unsigned long permissions) noexcept {
    char prefix[PATH_MAX];
    if (copyOut(path, prefix, sizeof prefix) != 0) {
        return ossErrorMapSystem(ENAMETOOLONG);
    }
    for (std::size_t i = 1; i < path.size(); ++i) {
        if (path[i] != '/' || path[i - 1] == '/') {
            continue;
        }
        prefix[i] = '\0';
        if (const unsigned int code = makeDirectory(prefix, permissions | OWNER_MAY_ENTER); code != 0) {
            return code;
        }
        prefix[i] = '/';
    }
    return 0;
}

// The end of the first part of the path that is a link; of that one, or of the file where there is none, the status.
std::size_t firstLink(char* path, struct stat* status) noexcept {
    for (std::size_t end = 1;; ++end) {
        const char at = path[end];
        if (at != '/' && at != '\0') {
            continue;
        }
        path[end] = '\0';
        const bool found = ::lstat(path, status) == 0;
        path[end] = at;
        if (!found || S_ISLNK(status->st_mode)) {
            return found ? end : NO_SUCH_FILE;
        }
        if (at == '\0') {
            return NO_LINK;
        }
    }
}

// Puts what the link leads to in its place; false when that cannot be read or does not fit.
bool replaceLink(char (&path)[PATH_MAX], std::size_t end) noexcept {
    char rest[PATH_MAX];
    char target[PATH_MAX];
    (void)copyOut(path + end, rest, sizeof rest);
    path[end] = '\0';
    const ssize_t length = ::readlink(path, target, sizeof target);
    if (length <= 0) {
        return false;
    }
    const std::string_view leads(target, static_cast<std::size_t>(length));
    const std::size_t slash = std::string_view(path).rfind('/');
    const std::size_t kept = leads.front() == '/' || slash == std::string_view::npos ? 0 : slash + 1;
    return joinOut(leads, rest, path + kept, sizeof path - kept) == 0;
}

// *home points into entryText. Result: an errno; ENOENT for an unknown user, ERANGE when entryText is too small.
int findHome(const char* user, char* entryText, std::size_t entrySize, const char** home) noexcept {
    struct passwd entry;
    struct passwd* found = nullptr;
    int failure = 0;
    do {
        failure = ::getpwnam_r(user, &entry, entryText, entrySize, &found);
    } while (failure == EINTR);
    if (found != nullptr) {
        *home = entry.pw_dir;
        return 0;
    }
    return failure == 0 || failure == ESRCH ? ENOENT : failure;
}

}  // namespace

unsigned int ossBaseName(const char* path, char* buffer, unsigned long size) {
    if (path == nullptr || buffer == nullptr) {
        return OSS_NULL_POINTER;
    }
    const std::string_view whole(path);
    const std::size_t slash = whole.rfind('/');
    return copyOut(slash == std::string_view::npos ? whole : whole.substr(slash + 1), buffer, size);
}

unsigned int ossDirectoryName(const char* path, char* buffer, unsigned long size) {
    if (path == nullptr || buffer == nullptr) {
        return OSS_NULL_POINTER;
    }
    return copyOut(directoryOf(path), buffer, size);
}

bool ossIsFile(const char* path) {
    struct stat status;
    return path != nullptr && ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

bool ossIsDirectory(const char* path) {
    struct stat status;
    return path != nullptr && ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

unsigned int ossDirectoryCreate(const OSSDirectoryCreateRequest* request) {
    if (request == nullptr || request->path == nullptr) {
        return OSS_NULL_POINTER;
    }
    if (request->version != OSS_REQUEST_VERSION) {
        return ossErrorMapSystem(EINVAL);
    }
    const unsigned int code = makeDirectory(request->path, request->permissions);
    if (code != ossErrorMapSystem(ENOENT) || request->depth != DEPTH_WITH_PARENTS) {
        return code;
    }
    if (const unsigned int parents = makeParents(request->path, request->permissions); parents != 0) {
        return parents;
    }
    return makeDirectory(request->path, request->permissions);
}

unsigned int ossFileDelete(const char* path) {
    return path == nullptr ? OSS_NULL_POINTER : resultOf(::unlink(path));
}

unsigned int ossFileRename(const char* from, const char* to) {
    return from == nullptr || to == nullptr ? OSS_NULL_POINTER : resultOf(std::rename(from, to));
}

unsigned int ossFileGetInfoV9(const char* path, OSSFileInfo* info) {
    if (path == nullptr || info == nullptr) {
        return OSS_NULL_POINTER;
    }
    struct stat status;
    if (::stat(path, &status) != 0) {
        return ossErrorMapSystem(errno);
    }
    *info = OSSFileInfo{static_cast<unsigned long>(status.st_size), status.st_mode & PERMISSION_BITS, status.st_uid,
                        status.st_gid};
    return 0;
}

unsigned int ossFileSetPermissions(const char* path, unsigned long permissions) {
    return path == nullptr ? OSS_NULL_POINTER
                           : resultOf(::chmod(path, static_cast<mode_t>(permissions & PERMISSION_BITS)));
}

int ossPathIsSetuidRoot(const char* path) {
    char whole[PATH_MAX];
    if (path == nullptr || *path == '\0' || copyOut(path, whole, sizeof whole) != 0) {
        return 0;
    }
    for (int links = 0; links <= MOST_LINKS; ++links) {
        struct stat status;
        const std::size_t end = firstLink(whole, &status);
        if (end == NO_SUCH_FILE) {
            return 0;
        }
        if (end == NO_LINK) {
            return S_ISREG(status.st_mode) && status.st_uid == 0 && (status.st_mode & S_ISUID) != 0;
        }
        if (status.st_uid != 0 || !replaceLink(whole, end)) {
            return 0;
        }
    }
    return 0;
}

unsigned int ossBuildHomeDirectoryRelativePath(const char* user, const char* relative, char* buffer,
                                               unsigned long size) {
    if (user == nullptr || relative == nullptr || buffer == nullptr) {
        return OSS_NULL_POINTER;
    }
    for (std::size_t entrySize = 1024; entrySize <= LARGEST_USER_ENTRY; entrySize *= 4) {
        char* entryText = static_cast<char*>(std::malloc(entrySize));
        if (entryText == nullptr) {
            return OSS_NO_MEMORY;
        }
        const char* home = nullptr;
        const int failure = findHome(user, entryText, entrySize, &home);
        const unsigned int code = failure == 0 ? joinOut(home, relative, buffer, size) : ossErrorMapSystem(failure);
        std::free(entryText);
        if (failure != ERANGE) {
            return code;
        }
    }
    return ossErrorMapSystem(ERANGE);
}

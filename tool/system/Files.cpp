// Files, by what all systems know of them.
#include "system/Files.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace tool {

namespace {

std::string folderPart(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

FileNumber numberIn(const struct stat& info) {
    return {static_cast<unsigned long>(info.st_dev), static_cast<unsigned long>(info.st_ino)};
}

}  // namespace

std::string userName(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string groupName(gid_t group) {
    const ::group* const entry = getgrgid(group);
    return entry != nullptr ? entry->gr_name : std::to_string(group);
}

Belongings belongingsOf(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) {
        return {};
    }
    return {info.st_uid, info.st_gid, static_cast<mode_t>(info.st_mode & 07777), attributesOf(path)};
}

int makePrivateFile(const std::string& path, const std::string& folder) noexcept {
    constexpr mode_t PERMISSIONS = 0600;
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, PERMISSIONS);
    if (descriptor < 0) {
        return errno;
    }
    struct stat above = {};
    const bool foreign = stat(folder.c_str(), &above) == 0 && above.st_uid != geteuid();
    const int error = foreign && geteuid() == 0 && fchown(descriptor, above.st_uid, above.st_gid) != 0 ? errno : 0;
    (void)::close(descriptor);
    return error;
}

std::optional<uid_t> ownerOf(const std::string& path) {
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 ? std::optional(info.st_uid) : std::nullopt;
}

bool mayMove(const std::string& path) {
    return geteuid() == 0 || ownerOf(path) == geteuid();
}

std::optional<FilePlace> placeOf(const std::string& path) {
    const std::string folder = folderPart(path);
    struct statvfs system = {};
    struct stat file = {};
    struct stat above = {};
    if (statvfs(path.c_str(), &system) != 0 || stat(path.c_str(), &file) != 0 || stat(folder.c_str(), &above) != 0) {
        return std::nullopt;
    }
    FilePlace place;
    place.readOnly = (system.f_flag & ST_RDONLY) != 0;
    place.isMount = file.st_dev != above.st_dev;
    const auto blocks = geteuid() == 0 ? system.f_bfree : system.f_bavail;
    place.room = static_cast<unsigned long long>(blocks) * system.f_frsize;
    place.takesFiles = system.f_files == 0 || system.f_ffree != 0;  // some count no files
    lookCloser(path, place);
    return place;
}

int writeRefused(const std::string& path, bool folder) noexcept {
    return faccessat(AT_FDCWD, path.c_str(), folder ? W_OK | X_OK : W_OK, AT_EACCESS) == 0 ? 0 : errno;
}

bool folderLetsMove(const std::string& path) {
    const std::string folder = folderPart(path);
    return (belongingsOf(folder).permissions & S_ISVTX) == 0 || mayMove(path) || mayMove(folder);
}

std::optional<FileNumber> fileNumberOf(const std::string& path) {
    struct stat info = {};
    return lstat(path.c_str(), &info) == 0 ? std::optional(numberIn(info)) : std::nullopt;
}

std::optional<FileNumber> fileNumberOf(int descriptor) {
    struct stat info = {};
    return fstat(descriptor, &info) == 0 ? std::optional(numberIn(info)) : std::nullopt;
}

int descriptorToInherit(int descriptor) noexcept {
    constexpr int FIRST_BEHIND_THOSE_OF_SCRIPTS = 20;
    return fcntl(descriptor, F_DUPFD_CLOEXEC, FIRST_BEHIND_THOSE_OF_SCRIPTS);
}

int setPermissions(std::FILE* stream, mode_t permissions) noexcept {
    return fchmod(fileno(stream), permissions) == 0 ? 0 : errno;
}

int makePrivateFolder(std::string& path) {
    return mkdtemp(path.data()) != nullptr ? 0 : errno;
}

std::FILE* unnamedFile(const std::string& text) noexcept {
    std::FILE* const stream = std::tmpfile();
    if (stream == nullptr) {
        return nullptr;
    }
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size() || std::fflush(stream) != 0) {
        const int error = errno;
        (void)std::fclose(stream);
        errno = error;
        return nullptr;
    }
    (void)fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
    std::rewind(stream);
    return stream;
}

}  // namespace tool

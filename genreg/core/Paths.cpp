// The registry path and its companions.
#include <osse/Errors.h>
#include <osse/Files.h>
#include <osse/Text.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "genreg/core/FileInternals.h"
#include "genreg/core/FunctionTrace.h"
#include "platform/posix/Posix.h"

using genreg::FileInternals;
using genreg::Function;
using genreg::FunctionTrace;

namespace {

constexpr int MAX_LINKS = 40;

unsigned int copyPath(const char* path, char* buffer, unsigned long size) noexcept {
    const std::size_t length = std::strlen(path);
    if (size > length) {
        std::memcpy(buffer, path, length + 1);
        return 0;
    }
    if (size > 0) {
        *buffer = '\0';
    }
    return REG_BUFFER_TOO_SMALL;
}

// The pieces one after another, as far as there is room.
void joinPath(char (&path)[REG_PATH_SIZE], std::initializer_list<std::string_view> pieces) noexcept {
    std::size_t length = 0;
    for (const std::string_view piece : pieces) {
        length += piece.copy(path + length, sizeof path - 1 - length);
    }
    path[length] = '\0';
}

unsigned int getPath(Function function, const char* path, char* buffer, unsigned long size) noexcept {
    FunctionTrace trace{function};
    const unsigned int rc = copyPath(path, buffer, size);
    return rc == 0 ? 0 : trace.fail(10, rc);
}

// With these, nothing that opens lies at the path; opening it will say so.
bool leadsNowhere(int error) noexcept {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

// Where the link at `path` leads, seen from the caller: a relative target is joined to the link's directory. False when
// the path is no link or the target does not fit; or when nobody can tell, and then *unread is the platform's code.
bool followLink(const char* path, char* target, unsigned int* unread) noexcept {
    char link[REG_PATH_SIZE];
    const long length = posix::readLink(path, link, sizeof link);
    if (length < 0) {
        *unread = errno == EINVAL || leadsNowhere(errno) ? 0 : ossErrorMapSystem(errno);
        return false;
    }
    if (link[0] == '/') {
        return copyPath(link, target, REG_PATH_SIZE) == 0;
    }
    char directory[REG_PATH_SIZE];
    if (ossDirectoryName(path, directory, sizeof directory) != 0 ||
        std::strlen(directory) + 1 + static_cast<std::size_t>(length) >= REG_PATH_SIZE) {
        return false;
    }
    (void)ossSnprintf(target, REG_PATH_SIZE, "%s/%s", directory, link);
    return true;
}

}  // namespace

unsigned int GenRegFile::getRegistryPath(char* buffer, unsigned long size) noexcept {
    return getPath(Function::GetRegistryPath, regPath, buffer, size);
}

unsigned int GenRegFile::getRegistryBackupPath(char* buffer, unsigned long size) noexcept {
    return getPath(Function::GetRegistryBackupPath, bkpPath, buffer, size);
}

unsigned int GenRegFile::getRegistryLockPath(char* buffer, unsigned long size) noexcept {
    return getPath(Function::GetRegistryLockPath, lockPath, buffer, size);
}

unsigned int GenRegFile::getRegistryCorruptTmpPath(char* buffer, unsigned long size) noexcept {
    return getPath(Function::GetRegistryCorruptTmpPath, corPath, buffer, size);
}

unsigned int GenRegFile::getRegistryTmpPath(char* buffer, unsigned long size) noexcept {
    return getPath(Function::GetRegistryTmpPath, tmpPath, buffer, size);
}

unsigned int GenRegFile::GetAndSetRealRegistryPaths() noexcept {
    (void)FileInternals::of(*this).moveToRealFile();
    return 0;
}

unsigned int FileInternals::moveToRealFile() noexcept {
    const FunctionTrace trace{Function::GetAndSetRealRegistryPaths};
    char real[REG_PATH_SIZE];
    unsigned int unread = 0;
    if (!followLink(file_.regPath, real, &unread)) {
        return unread;
    }
    char next[REG_PATH_SIZE];
    for (int links = 1; followLink(real, next, &unread); ++links) {
        if (links == MAX_LINKS) {
            return 0;  // a circle, most likely; opening it will say so
        }
        std::memcpy(real, next, sizeof real);
    }
    if (unread != 0) {
        return unread;
    }
    char directory[REG_PATH_SIZE];
    char base[REG_PATH_SIZE];
    // A cut companion path would lock or replace a file that is nobody's companion.
    constexpr std::size_t COMPANION_LENGTH = 2 + sizeof ".lock";
    if (ossDirectoryName(real, directory, sizeof directory) != 0 || ossBaseName(real, base, sizeof base) != 0 ||
        std::strlen(directory) + std::strlen(base) + COMPANION_LENGTH > REG_PATH_SIZE) {
        return 0;
    }
    joinPath(file_.regPath, {directory, "/", base});
    joinPath(file_.tmpPath, {directory, "/", base, ".tmp"});
    joinPath(file_.lockPath, {directory, "/.", base, ".lock"});
    joinPath(file_.bkpPath, {directory, "/.", base, ".bkp"});
    joinPath(file_.corPath, {directory, "/", base, ".cor"});
    return 0;
}

unsigned int GenRegFile::setRegistryPaths(const char* path) noexcept {
    FunctionTrace trace{Function::SetRegistryPaths};
    if (path == nullptr || *path == '\0') {
        return trace.fail(10, REG_EMPTY_ARGUMENT);
    }
    if (std::strlen(path) > REG_MAX_PATH_LENGTH) {
        return trace.fail(20, REG_PATH_TOO_LONG);
    }
    char base[REG_PATH_SIZE];
    if (const unsigned int rc = ossBaseName(path, base, sizeof base)) {
        return trace.fail(30, REG_BASE_NAME_FAILED, rc);
    }
    char directory[REG_PATH_SIZE];
    if (const unsigned int rc = ossDirectoryName(path, directory, sizeof directory)) {
        return trace.fail(40, REG_DIRECTORY_NAME_FAILED, rc);
    }
    // Beside the file: "." is also the directory of a path that names none.
    const char* const beside = std::strcmp(directory, ".") == 0 ? "" : directory;
    joinPath(regPath, {path});
    joinPath(tmpPath, {path, ".tmp"});
    joinPath(corPath, {path, ".cor"});
    joinPath(lockPath, {beside, *beside != '\0' ? "/." : ".", base, ".lock"});
    joinPath(bkpPath, {beside, *beside != '\0' ? "/." : ".", base, ".bkp"});
    state |= REG_STATE_CONFIGURED;
    return 0;
}

#include "base/DiskFiles.h"

#include <fmt/core.h>
#include <genreg/Codes.h>
#include <osse/Files.h>
#include <osse/OSSHFile.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/Failure.h"
#include "base/Text.h"

namespace tool {
namespace {

struct Closer {
    void operator()(std::FILE* stream) const noexcept { (void)std::fclose(stream); }
};

Failure missing(const std::string& path, const std::string& doing) {
    Failure failure = systemFailure(ENOENT, path, doing);
    failure.code = REG_MISSING;
    failure.message = fmt::format("{}: cannot {}: there is no such file", printable(path), doing);
    return failure;
}

Failure notRegular(const std::string& path, const std::string& doing, bool directory) {
    Failure failure = systemFailure(directory ? EISDIR : EINVAL, path, doing);
    failure.kind = "unreadable";
    failure.exitStatus = EXIT_UNREADABLE;
    if (!directory) {
        failure.message = fmt::format("{}: cannot {}: it is no regular file", printable(path), doing);
        failure.hint = "name a regular file";
    }
    return failure;
}

}  // namespace

bool judgeFile(const std::string& path, const std::string& doing, bool mustExist) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        if (mustExist) {
            throw missing(path, doing);
        }
        return false;
    }
    if (status.type() == std::filesystem::file_type::none) {
        throw systemFailure(error.value(), path, doing);
    }
    if (status.type() != std::filesystem::file_type::regular) {
        throw notRegular(path, doing, status.type() == std::filesystem::file_type::directory);
    }
    return true;
}

bool isSameFile(const std::string& a, const std::string& b) {
    std::error_code error;
    return std::filesystem::equivalent(a, b, error) && !error;
}

std::string folderOf(const std::string& path) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    return parent.empty() ? "." : parent.string();
}

bool isFolder(const std::string& folder) {
    std::error_code error;
    return std::filesystem::is_directory(folder, error);
}

Failure missingFolder(const std::string& folder, const std::string& path, const std::string& doing) {
    std::error_code error;
    const auto type = std::filesystem::status(folder, error).type();
    if (type != std::filesystem::file_type::not_found) {
        return systemFailure(error ? error.value() : ENOTDIR, path, doing);
    }
    Failure failure = systemFailure(ENOENT, path, doing);
    failure.message = fmt::format("{}: cannot {}: there is no folder {}", printable(path), doing, printable(folder));
    failure.hint = "check the path; --parents makes the folder";
    return failure;
}

void makeFolder(Output& output, const std::string& folder) {
    constexpr unsigned long PERMISSIONS = 0755;
    if (isFolder(folder)) {
        return;
    }
    const OSSDirectoryCreateRequest request = {OSS_REQUEST_VERSION, folder.c_str(), PERMISSIONS, 2};
    if (const unsigned int code = ossDirectoryCreate(&request)) {
        throw libraryFailure(code, folder, "make the folder");
    }
    tellOfFolder(output, folder);
}

void tellOfFolder(Output& output, const std::string& folder) {
    if (!folder.empty() && isFolder(folder)) {
        output.note("created", folder, "the folder is new");
    }
}

std::string readFile(const std::string& path, const std::string& doing) {
    judgeFile(path, doing, true);
    const std::unique_ptr<std::FILE, Closer> stream(std::fopen(path.c_str(), "re"));
    if (stream == nullptr) {
        throw systemFailure(errno, path, doing);
    }
    std::string bytes;
    char piece[65536];
    while (const std::size_t got = std::fread(piece, 1, sizeof piece, stream.get())) {
        bytes.append(piece, got);
    }
    if (std::ferror(stream.get()) != 0) {
        throw systemFailure(errno, path, doing);
    }
    return bytes;
}

void writePrivateFile(const std::string& path, std::string_view bytes, const std::string& doing) {
    constexpr mode_t PERMISSIONS = 0600;
    std::unique_ptr<std::FILE, Closer> stream(std::fopen(path.c_str(), "wxe"));
    if (stream == nullptr) {
        throw systemFailure(errno, path, doing);
    }
    const bool isPrivate = setPermissions(stream.get(), PERMISSIONS) == 0;
    const bool isTaken = isPrivate && std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) == bytes.size();
    if (std::fclose(stream.release()) != 0 || !isTaken) {
        const int error = errno;
        (void)std::remove(path.c_str());
        throw systemFailure(error, path, doing);
    }
}

std::vector<FileLine> fileLines(std::string_view bytes, bool continued) {
    std::vector<FileLine> lines;
    for (std::size_t number = 1; !bytes.empty();) {
        std::size_t end = 0;
        const std::size_t first = number;
        do {
            const std::size_t newline = bytes.find('\n', end);
            end = newline == std::string_view::npos ? bytes.size() : newline + 1;
            ++number;
        } while (continued && end < bytes.size() && end > 1 && bytes[end - 2] == '\\');
        lines.push_back({first, bytes.substr(0, end)});
        bytes.remove_prefix(end);
    }
    return lines;
}

ScratchFolder::ScratchFolder() {
    std::error_code error;
    const auto parent = std::filesystem::temp_directory_path(error);
    std::string name = (error ? std::filesystem::path("/tmp") : parent) / "genreg.XXXXXX";
    if (const int systemError = makePrivateFolder(name)) {
        throw systemFailure(systemError, name, "make a private folder for the rehearsal");
    }
    path_ = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace tool

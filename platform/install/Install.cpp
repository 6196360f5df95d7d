#include <install/Install.h>
#include <osse/Errors.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "../System.h"

namespace {

constexpr std::string_view LEVEL_FILE = "/adm/level";
constexpr std::size_t LARGEST_LEVEL_FILE = 4096;
constexpr std::size_t LONGEST_PATH = 1024;

constexpr SqleLevelInfo COMPILED_IN = {RVN_LEVEL_VERSION, RVN_LEVEL_BUILD, RVN_LEVEL_FIXPACK};

std::string_view installPath() noexcept {
    const char* path = platform::trustedEnvironment("RVN_INSTALL_PATH_OVERRIDE");
    return path != nullptr ? path : RVN_INSTALL_PATH;
}

template <std::size_t SIZE>
void takeText(std::string_view value, char (&ret_text)[SIZE]) noexcept {
    const bool understood = !value.empty() && value.size() < SIZE &&
                            std::all_of(value.begin(), value.end(), [](char c) { return c > ' ' && c <= '~'; });
    if (understood) {
        std::memcpy(ret_text, value.data(), value.size());
        std::memset(ret_text + value.size(), 0, SIZE - value.size());
    }
}

void takeNumber(std::string_view value, unsigned long* ret_number) noexcept {
    unsigned long number = 0;
    const auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (failure == std::errc() && end == value.data() + value.size()) {
        *ret_number = number;
    }
}

void takeLine(std::string_view line, SqleLevelInfo* level) noexcept {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return;
    }
    const std::string_view name = line.substr(0, equals);
    const std::string_view value = line.substr(equals + 1);
    if (name == "version") {
        takeText(value, level->versionString);
    } else if (name == "build") {
        takeText(value, level->buildLevel);
    } else if (name == "fixpack") {
        takeNumber(value, &level->fixpackNumber);
    }
}

// The length read; 0 for a file that is missing or cannot be read.
std::size_t readLevelFile(char* text, std::size_t size) noexcept {
    char path[LONGEST_PATH];
    const std::string_view directory = installPath();
    if (directory.size() + LEVEL_FILE.size() >= sizeof path) {
        return 0;
    }
    std::memcpy(path, directory.data(), directory.size());
    std::memcpy(path + directory.size(), LEVEL_FILE.data(), LEVEL_FILE.size() + 1);
    const int descriptor = platform::openHigh(path, O_RDONLY | O_NONBLOCK);
    if (descriptor == -1) {
        return 0;
    }
    const ssize_t got = platform::retried([&] { return ::read(descriptor, text, size); });
    platform::closeQuietly(descriptor);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

}  // namespace

unsigned int sqloInstallPath(unsigned long size, char* buffer) {
    if (buffer == nullptr) {
        return OSS_NULL_POINTER;
    }
    const std::string_view path = installPath();
    if (path.size() >= size) {
        if (size != 0) {
            buffer[0] = '\0';
        }
        return OSS_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, path.data(), path.size());
    buffer[path.size()] = '\0';
    return 0;
}

unsigned int sqleGetLevelInfo(unsigned int version, SqleLevelInfo* level) {
    if (level == nullptr) {
        return OSS_NULL_POINTER;
    }
    if (version != SQLE_LEVEL_INFO_VERSION) {
        return OSS_SYSTEM_ERROR_BASE + EINVAL;
    }
    *level = COMPILED_IN;
    char text[LARGEST_LEVEL_FILE];
    std::string_view rest(text, readLevelFile(text, sizeof text));
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        takeLine(rest.substr(0, end), level);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return 0;
}

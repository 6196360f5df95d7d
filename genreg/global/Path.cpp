// Where the global registry lies.

#include <genreg/GlobalReg.h>
#include <install/Install.h>
#include <osse/Files.h>
#include <osse/Text.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "genreg/core/FunctionTrace.h"

using genreg::Function;
using genreg::FunctionTrace;
using genreg::OperationTrace;

namespace {

constexpr char DEFAULT_DIRECTORY[] = "/var/rvn";
constexpr char REGISTRY_NAME[] = "global.reg";
constexpr char TOOL_OF_INSTALLATION[] = "/adm/rvntool";
constexpr char TOOL_OF_INSTANCE[] = "/rvnhome/adm/rvntool";
constexpr char REGISTRY_OF_INSTANCE[] = "/rvnhome/global.reg";

void setDefaultPath(char* path) noexcept {
    ossSnprintf(path, REG_PATH_SIZE, "%s%c%s", DEFAULT_DIRECTORY, '/', REGISTRY_NAME);
}

// The administration tool of the instance, or of the installation; empty when there is neither.
unsigned int findTool(char* tool) noexcept {
    tool[0] = '\0';
    const char* instance = std::getenv("RVNINSTANCE");
    if (instance != nullptr && instance[0] != '\0') {
        return ossBuildHomeDirectoryRelativePath(instance, TOOL_OF_INSTANCE, tool, REG_PATH_SIZE);
    }
    char installation[REG_PATH_SIZE] = "";
    if (sqloInstallPath(sizeof installation, installation) == 0 && installation[0] != '\0') {
        ossSnprintf(tool, REG_PATH_SIZE, "%s%s", installation, TOOL_OF_INSTALLATION);
    }
    return 0;
}

// Only a tool that runs as root vouches for the directory that it lies in.
unsigned int resolve(char* path) noexcept {
    char tool[REG_PATH_SIZE];
    if (const unsigned int rc = findTool(tool)) {
        return rc;
    }
    const std::string_view found = tool;
    if (found.empty() || ossPathIsSetuidRoot(tool) == 0 || !found.ends_with(TOOL_OF_INSTANCE)) {
        setDefaultPath(path);
        return 0;
    }
    const auto home = static_cast<int>(found.size() - std::strlen(TOOL_OF_INSTANCE));
    ossSnprintf(path, REG_PATH_SIZE, "%.*s%s", home, tool, REGISTRY_OF_INSTANCE);
    return 0;
}

unsigned int handOut(FunctionTrace& trace, const char* path, char* buffer, unsigned short* length) noexcept {
    const std::size_t capacity = *length;
    const std::size_t needed = std::strlen(path) + 1;
    *length = static_cast<unsigned short>(std::min<std::size_t>(needed, std::numeric_limits<unsigned short>::max()));
    if (needed > capacity) {
        return trace.fail(40, REG_PATH_BUFFER_TOO_SMALL);
    }
    std::memcpy(buffer, path, needed);
    return trace.exit(0);
}

}  // namespace

unsigned int GetGlobalRegPathnameInternal(char* buffer, unsigned short* length, bool useDefaultPath) {
    FunctionTrace trace{Function::GetGlobalRegPathnameInternal};
    if (buffer == nullptr) {
        return trace.fail(10, REG_PATH_BUFFER_NULL);
    }
    if (length == nullptr) {
        return trace.fail(20, REG_NULL_POINTER);
    }
    // Set but empty is an answer too: the empty path.
    if (const char* given = std::getenv("RVN_GLOBAL_REG_PATHNAME"); given != nullptr) {
        return handOut(trace, given, buffer, length);
    }
    char path[REG_PATH_SIZE];
    if (useDefaultPath) {
        setDefaultPath(path);
    } else if (const unsigned int rc = resolve(path)) {
        return trace.fail(30, rc, rc);
    }
    return handOut(trace, path, buffer, length);
}

unsigned int GetGlobalRegPathname(char* buffer, unsigned short* length) {
    OperationTrace trace{Function::GetGlobalRegPathname};
    return trace.exit(GetGlobalRegPathnameInternal(buffer, length, false));
}

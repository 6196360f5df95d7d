#include "Platform.h"

#include <dlfcn.h>
#include <install/Install.h>
#include <osse/Files.h>
#include <osse/Memory.h>
#include <osse/Text.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

struct Plan {
    bool armed = false;
    prove::PlatformCall call = {};
    long n = -1;
    long seen = 0;
};
Plan plan;

bool refuses(prove::PlatformCall call) {
    return plan.armed && plan.call == call && plan.seen++ == plan.n;
}

// The one that this stands before.
template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace prove {

Refusal::Refusal(PlatformCall call, long n) noexcept {
    plan = {true, call, n, 0};
}

Refusal::~Refusal() noexcept {
    plan.armed = false;
}

long Refusal::calls() const noexcept {
    return plan.seen;
}

}  // namespace prove

using prove::PlatformCall;
using prove::REFUSED;

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return refuses(PlatformCall::New) ? nullptr : std::malloc(size);
}

extern "C" {

void* _ossMemAlloc(unsigned long size, const char* file, unsigned long line) {
    static auto* const alloc = real<void*(unsigned long, const char*, unsigned long)>("_ossMemAlloc");
    return refuses(PlatformCall::Alloc) ? nullptr : alloc(size, file, line);
}

unsigned int _ossMemFree(void* block, const char* file, unsigned long line) {
    static auto* const free = real<unsigned int(void*, const char*, unsigned long)>("_ossMemFree");
    const unsigned int rc = free(block, file, line);
    return refuses(PlatformCall::Free) ? REFUSED : rc;
}

unsigned int ossBaseName(const char* path, char* buffer, unsigned long size) {
    static auto* const baseName = real<unsigned int(const char*, char*, unsigned long)>("ossBaseName");
    return refuses(PlatformCall::BaseName) ? REFUSED : baseName(path, buffer, size);
}

unsigned int ossDirectoryName(const char* path, char* buffer, unsigned long size) {
    static auto* const directoryName = real<unsigned int(const char*, char*, unsigned long)>("ossDirectoryName");
    return refuses(PlatformCall::DirectoryName) ? REFUSED : directoryName(path, buffer, size);
}

unsigned int ossDirectoryCreate(const OSSDirectoryCreateRequest* request) {
    static auto* const create = real<unsigned int(const OSSDirectoryCreateRequest*)>("ossDirectoryCreate");
    return refuses(PlatformCall::DirectoryCreate) ? REFUSED : create(request);
}

unsigned int sqleGetLevelInfo(unsigned int version, SqleLevelInfo* level) {
    static auto* const info = real<unsigned int(unsigned int, SqleLevelInfo*)>("sqleGetLevelInfo");
    return refuses(PlatformCall::LevelInfo) ? REFUSED : info(version, level);
}

unsigned long ossSnprintf(char* buffer, unsigned long size, const char* format, ...) {
    if (refuses(PlatformCall::Snprintf) || size == 0) {
        return 0;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int needed = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return std::min(static_cast<unsigned long>(std::max(needed, 0)), size - 1);
}
}

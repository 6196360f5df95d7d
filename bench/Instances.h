// Registries of instances, for the programs that measure them.
#pragma once

#include <genreg/genreg.h>
#include <osse/Memory.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "Bare.h"
#include "Rivals.h"

namespace instances {

inline constexpr unsigned long VERSION = 0x0009000700000002;
inline constexpr unsigned long KEY = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;

inline OSSInstanceInfo_t instance(int number, char usage) {
    OSSInstanceInfo_t info = {};
    info.versionCode = VERSION;
    (void)std::snprintf(info.service, sizeof info.service, "RVN");
    (void)std::snprintf(info.instanceName, sizeof info.instanceName, "%s", rivals::nameOf(number).c_str());
    (void)std::snprintf(info.instancePath, sizeof info.instancePath, "/home/%s/rvnhome", info.instanceName);
    (void)std::snprintf(info.usage, sizeof info.usage, "use%c", usage);
    info.flags = INSTANCE_INFO_START_AT_BOOT;
    return info;
}

inline GlobalRegRecord toRecord(const OSSInstanceInfo_t& info) {
    GlobalRegRecord record = {};
    record.recordType = GLOBALREG_INSTANCE;
    record.fieldMask = KEY | INSTANCE_PATH | INSTANCE_USAGE | INSTANCE_START_AT_BOOT;
    GlobalRegInstance& body = record.body.instance;
    std::memcpy(body.service, info.service, sizeof body.service);
    body.versionCode = info.versionCode;
    std::memcpy(body.instanceName, info.instanceName, sizeof body.instanceName);
    std::memcpy(body.instancePath, info.instancePath, sizeof body.instancePath);
    std::memcpy(body.usage, info.usage, sizeof body.usage);
    body.startAtBoot = 1;
    return record;
}

// A registry of so many instances, written as one file: adding them one by one would take minutes.
inline void fillRegistry(const std::string& path, int records) {
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    bare::require(file != nullptr);
    void* buffer = _ossMemAlloc(sizeof(GlobalRegRecord), "bench", 0);
    for (int i = 0; i < records; ++i) {
        const GlobalRegRecord record = toRecord(instance(i, '0'));
        std::memcpy(buffer, &record, sizeof record);
        bare::require(GlobalReg::PackRecord(&buffer, nullptr) == 0);
        unsigned long size = 0;
        bare::require(GlobalReg::GetPackedRecordSize(buffer, &size) == 0);
        const auto length = static_cast<unsigned int>(size);
        bare::require(std::fwrite(&length, sizeof length, 1, file) == 1 && std::fwrite(buffer, size, 1, file) == 1);
    }
    (void)_ossMemFree(buffer, "bench", 0);
    bare::require(std::fclose(file) == 0);
}

// The registry with its announcements off: the bare program and SQLite announce nothing either.
class QuietGlobalReg : public GlobalReg {
public:
    QuietGlobalReg() noexcept { features &= ~(REG_FEATURE_CHANGE_LOG | REG_FEATURE_NOTIFY); }
};

}  // namespace instances

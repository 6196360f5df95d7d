#include <genreg/InstanceInfo.h>

#include <cstddef>

#include "genreg/global/InfoTransaction.h"

namespace genreg {
namespace {

using Info = OSSInstanceInfo_t;

constexpr InfoMember MEMBERS[] = {
    {INSTANCE_SERVICE, offsetof(Info, service), 0, 0},
    {INSTANCE_VERSION_CODE, offsetof(Info, versionCode), 0, 0},
    {INSTANCE_NAME, offsetof(Info, instanceName), 0, 0},
    {INSTANCE_PATH, offsetof(Info, instancePath), 0, 0},
    {INSTANCE_USAGE, offsetof(Info, usage), 0, 0},
    {INSTANCE_START_AT_BOOT, offsetof(Info, flags), INSTANCE_INFO_START_AT_BOOT, 0},
    {INSTANCE_MAINTENANCE, offsetof(Info, flags), INSTANCE_INFO_MAINTENANCE, 0},
    {INSTANCE_EXTRA_PATH, offsetof(Info, extraPath), 0, 0},
    {INSTANCE_EXTRA_NAME, offsetof(Info, extraName), 0, 0},
    {INSTANCE_COMMENT, offsetof(Info, comment), 0, 0},
};

constexpr InfoSchema INSTANCES = {
    .recordType = GLOBALREG_INSTANCE,
    .key = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME,
    .members = MEMBERS,
    .infoNull = REG_INSTANCE_INFO_NULL,
    .addFailed = REG_ADD_INSTANCE_FAILED,
    .changeFailed = REG_CHANGE_INSTANCE_FAILED,
    .getFailed = REG_GET_INSTANCE_FAILED,
    .removeFailed = REG_REMOVE_INSTANCE_FAILED,
    .nextFailed = REG_NEXT_INSTANCE_FAILED,
    .set = Function::OssSetInstanceInfo,
    .get = Function::OssGetInstanceInfo,
    .remove = Function::OssRemoveInstanceInfo,
    .next = Function::OssGetNextInstance,
    .close = Function::OssCloseInstanceList,
};

}  // namespace
}  // namespace genreg

using namespace genreg;

unsigned int ossSetInstanceInfo(OSSInstanceInfo_t* info) {
    return setInfo(INSTANCES, info);
}

unsigned int ossGetInstanceInfo(char* service, unsigned long versionCode, char* instanceName, OSSInstanceInfo_t* info) {
    return getInfo(INSTANCES, {service, versionCode, instanceName}, info);
}

unsigned int ossGetInstanceInfo(char* service, unsigned long versionCode, char* instanceName, char*,
                                OSSInstanceInfo_t* info) {
    return ossGetInstanceInfo(service, versionCode, instanceName, info);
}

unsigned int ossRemoveInstanceInfo(char* service, unsigned long versionCode, char* instanceName) {
    return removeInfo(INSTANCES, {service, versionCode, instanceName});
}

unsigned int ossOpenInstanceList(const char* service, void** handle, bool useDefaultPath) {
    return openInstanceList(service, handle, useDefaultPath);
}

unsigned int ossOpenInstanceList(char* service, void** handle) {
    return openInstanceList(service, handle, false);
}

unsigned int ossGetNextInstance(void* handle, OSSInstanceInfo_t* info) {
    return nextInfo(INSTANCES, handle, info);
}

unsigned int ossCloseInstanceList(void* handle) {
    return closeInfoList(INSTANCES, handle);
}

#include <genreg/InstanceInfo.h>

#include "genreg/global/InfoTransaction.h"

using genreg::fieldMember;
using genreg::Function;
using genreg::InfoMember;
using genreg::InfoSchema;
using genreg::INSTANCE_FIELDS;
using genreg::keyOf;
using genreg::openInstanceList;

namespace {

using Info = OSSInstanceInfo_t;

constexpr InfoMember MEMBERS[] = {
    {MEMBER(Info, service)},
    {MEMBER(Info, versionCode)},
    {MEMBER(Info, instanceName)},
    {MEMBER(Info, instancePath)},
    {MEMBER(Info, usage)},
    {MEMBER(Info, flags), INSTANCE_INFO_START_AT_BOOT},
    {MEMBER(Info, flags), INSTANCE_INFO_MAINTENANCE},
    {MEMBER(Info, extraPath)},
    {MEMBER(Info, extraName)},
    {MEMBER(Info, comment)},
};
static_assert(holdEach(MEMBERS, INSTANCE_FIELDS), "a field has no member of its name, type and size");

constexpr InfoSchema INSTANCES = {
    .recordType = GLOBALREG_INSTANCE,
    .key = keyOf(INSTANCE_FIELDS),
    .fields = INSTANCE_FIELDS,
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

#include <genreg/ServiceInfo.h>

#include "genreg/global/InfoTransaction.h"

using genreg::fieldMember;
using genreg::Function;
using genreg::InfoMember;
using genreg::InfoSchema;
using genreg::keyOf;
using genreg::openServiceList;
using genreg::SERVICE_FIELDS;

namespace {

using Info = OSSServiceInfo_t;

constexpr InfoMember MEMBERS[] = {
    {MEMBER(Info, service)},        {MEMBER(Info, versionCode)},         {MEMBER(Info, servicePath)},
    {MEMBER(Info, serviceAltPath)}, {MEMBER(Info, serviceText)},         {MEMBER(Info, fixpackNumber)},
    {MEMBER(Info, serviceNumber1)}, {MEMBER(Info, serviceFlag), 0, ' '}, {MEMBER(Info, serviceNumber2)},
    {MEMBER(Info, serviceNumber3)},
};
static_assert(holdEach(MEMBERS, SERVICE_FIELDS), "a field has no member of its name, type and size");

constexpr InfoSchema SERVICES = {
    .recordType = GLOBALREG_SERVICE,
    .key = keyOf(SERVICE_FIELDS),
    .fields = SERVICE_FIELDS,
    .members = MEMBERS,
    .infoNull = REG_SERVICE_INFO_NULL,
    .addFailed = REG_ADD_SERVICE_FAILED,
    .changeFailed = REG_CHANGE_SERVICE_FAILED,
    .getFailed = REG_GET_SERVICE_FAILED,
    .removeFailed = REG_REMOVE_SERVICE_FAILED,
    .nextFailed = REG_NEXT_SERVICE_FAILED,
    .set = Function::OssSetServiceInfo,
    .get = Function::OssGetServiceInfo,
    .remove = Function::OssRemoveServiceInfo,
    .next = Function::OssGetNextService,
    .close = Function::OssCloseServiceList,
};

}  // namespace

unsigned int ossSetServiceInfo(OSSServiceInfo_t* info) {
    return setInfo(SERVICES, info);
}

unsigned int ossGetServiceInfo(char* service, unsigned long versionCode, char* servicePath, OSSServiceInfo_t* info) {
    return getInfo(SERVICES, {service, versionCode, servicePath}, info);
}

unsigned int ossGetServiceInfo(char* service, unsigned long versionCode, char* servicePath, char*,
                               OSSServiceInfo_t* info) {
    return ossGetServiceInfo(service, versionCode, servicePath, info);
}

unsigned int ossRemoveServiceInfo(char* service, unsigned long versionCode) {
    return removeInfo(SERVICES, {service, versionCode, nullptr});
}

unsigned int ossOpenServiceList(void** handle) {
    return openServiceList(handle);
}

unsigned int ossGetNextService(void* handle, OSSServiceInfo_t* info) {
    return nextInfo(SERVICES, handle, info);
}

unsigned int ossCloseServiceList(void* handle) {
    return closeInfoList(SERVICES, handle);
}

#include <genreg/ServiceInfo.h>

#include <cstddef>

#include "genreg/global/InfoTransaction.h"

namespace genreg {
namespace {

using Info = OSSServiceInfo_t;

constexpr InfoMember MEMBERS[] = {
    {SERVICE_SERVICE, offsetof(Info, service), 0, 0},
    {SERVICE_VERSION_CODE, offsetof(Info, versionCode), 0, 0},
    {SERVICE_PATH, offsetof(Info, servicePath), 0, 0},
    {SERVICE_ALT_PATH, offsetof(Info, serviceAltPath), 0, 0},
    {SERVICE_TEXT, offsetof(Info, serviceText), 0, 0},
    {SERVICE_FIXPACK_NUMBER, offsetof(Info, fixpackNumber), 0, 0},
    {SERVICE_NUMBER1, offsetof(Info, serviceNumber1), 0, 0},
    {SERVICE_FLAG, offsetof(Info, serviceFlag), 0, ' '},
    {SERVICE_NUMBER2, offsetof(Info, serviceNumber2), 0, 0},
    {SERVICE_NUMBER3, offsetof(Info, serviceNumber3), 0, 0},
};

constexpr InfoSchema SERVICES = {
    .recordType = GLOBALREG_SERVICE,
    .key = SERVICE_SERVICE | SERVICE_VERSION_CODE,
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
}  // namespace genreg

using namespace genreg;

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

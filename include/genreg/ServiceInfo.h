// Installed copies (services): record, look up, remove and list them in the global registry. Each call is one
// transaction; any thread.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>

struct OSSServiceInfo_t {
    unsigned char reserved[8];  // neither read nor written
    unsigned long versionCode;
    char service[64];
    char servicePath[1024];
    char serviceAltPath[1024];
    char serviceText[256];
    int fixpackNumber;
    int serviceNumber1;
    char serviceFlag;
    int serviceNumber2;
    int serviceNumber3;
};

extern "C" {

// Adds the service, or replaces the one of the same name and version whole. A number of 0 is not stored.
// REG_SERVICE_INFO_NULL, REG_INFO_VERSION_MISSING, REG_INFO_SERVICE_MISSING, REG_UNCHANGED, REG_ADD_SERVICE_FAILED,
// REG_CHANGE_SERVICE_FAILED.
GENREG_EXPORT unsigned int ossSetServiceInfo(OSSServiceInfo_t* info);

// Looks one up; a null pointer or a version of 0 leaves that part open. An absent number reads 0, an absent flag ' '.
// REG_NOT_FOUND, REG_SERVICE_INFO_NULL, REG_GET_SERVICE_FAILED.
GENREG_EXPORT unsigned int ossGetServiceInfo(char* service, unsigned long versionCode, char* servicePath,
                                             OSSServiceInfo_t* info);

// REG_NOT_FOUND, REG_INFO_VERSION_MISSING, REG_INFO_SERVICE_MISSING, REG_REMOVE_SERVICE_FAILED.
GENREG_EXPORT unsigned int ossRemoveServiceInfo(char* service, unsigned long versionCode);

// Lists every service: open, next until REG_NO_MORE_RECORDS, close. REG_NO_LIST, REG_LIST_HANDLE_NULL,
// REG_OPEN_SERVICE_LIST_FAILED.
GENREG_EXPORT unsigned int ossOpenServiceList(void** handle);
// REG_LIST_HANDLE_NULL, REG_SERVICE_INFO_NULL, REG_NO_MORE_RECORDS, REG_NEXT_SERVICE_FAILED.
GENREG_EXPORT unsigned int ossGetNextService(void* handle, OSSServiceInfo_t* info);
// REG_LIST_HANDLE_NULL, REG_CLOSE_LIST_FAILED; the handle is released all the same.
GENREG_EXPORT unsigned int ossCloseServiceList(void* handle);
}

// The longer form: the reserved argument is ignored.
GENREG_EXPORT unsigned int ossGetServiceInfo(char* service, unsigned long versionCode, char* servicePath,
                                             char* reserved, OSSServiceInfo_t* info);

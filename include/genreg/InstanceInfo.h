// Instances: record, look up, remove and list them in the global registry. Each call is one transaction; any thread.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>

constexpr unsigned long INSTANCE_INFO_START_AT_BOOT = 0x1;
constexpr unsigned long INSTANCE_INFO_MAINTENANCE = 0x2;

struct OSSInstanceInfo_t {
    unsigned long flags;  // INSTANCE_INFO_*
    unsigned long versionCode;
    char instanceName[64];
    char service[64];
    char instancePath[1024];
    char usage[64];
    char extraPath[1024];
    char extraName[64];
    char comment[256];
};

extern "C" {

// Adds the instance, or replaces the one of the same service, version and name whole. REG_INSTANCE_INFO_NULL,
// REG_INFO_VERSION_MISSING, REG_INFO_SERVICE_MISSING, REG_INFO_INSTANCE_MISSING, REG_UNCHANGED,
// REG_ADD_INSTANCE_FAILED, REG_CHANGE_INSTANCE_FAILED.
GENREG_EXPORT unsigned int ossSetInstanceInfo(OSSInstanceInfo_t* info);

// Looks one up; a null pointer or a version of 0 leaves that part open. Flags are only ever set: zero them first.
// REG_NOT_FOUND, REG_INSTANCE_INFO_NULL, REG_GET_INSTANCE_FAILED.
GENREG_EXPORT unsigned int ossGetInstanceInfo(char* service, unsigned long versionCode, char* instanceName,
                                              OSSInstanceInfo_t* info);

// REG_NOT_FOUND, REG_INFO_VERSION_MISSING, REG_INFO_SERVICE_MISSING, REG_INFO_INSTANCE_MISSING,
// REG_REMOVE_INSTANCE_FAILED.
GENREG_EXPORT unsigned int ossRemoveInstanceInfo(char* service, unsigned long versionCode, char* instanceName);

// Lists the instances of a service: open, next until REG_NO_MORE_RECORDS, close. The service text must live until the
// list is closed. REG_NO_LIST, REG_LIST_SERVICE_NULL, REG_LIST_HANDLE_NULL, or the code of OpenScan.
GENREG_EXPORT unsigned int ossOpenInstanceList(char* service, void** handle);
// REG_LIST_HANDLE_NULL, REG_INSTANCE_INFO_NULL, REG_NO_MORE_RECORDS, REG_NEXT_INSTANCE_FAILED.
GENREG_EXPORT unsigned int ossGetNextInstance(void* handle, OSSInstanceInfo_t* info);
// REG_LIST_HANDLE_NULL, REG_CLOSE_LIST_FAILED; the handle is released all the same.
GENREG_EXPORT unsigned int ossCloseInstanceList(void* handle);
}

// The longer forms: the reserved argument is ignored; useDefaultPath as for GlobalReg.
GENREG_EXPORT unsigned int ossGetInstanceInfo(char* service, unsigned long versionCode, char* instanceName,
                                              char* reserved, OSSInstanceInfo_t* info);
GENREG_EXPORT unsigned int ossOpenInstanceList(const char* service, void** handle, bool useDefaultPath);

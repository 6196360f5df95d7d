// The records of the global registry in memory.
//
// Packed image in the file (little-endian, unaligned, no padding): recordType 4 bytes, fieldMask 8, missingFieldMask 8;
// for each bit of fieldMask from 0 to 62 that is set an item of a 16-bit length L and L bytes; checksum 4 bytes.
// Items: text with its NUL, version code 8 bytes, number 4, flag 1. Items of bits that this release does not know are
// carried from the previous image.
#pragma once

constexpr unsigned int GLOBALREG_INSTANCE = 1;
constexpr unsigned int GLOBALREG_SERVICE = 2;
constexpr unsigned int GLOBALREG_VARIABLE = 4;

// Bits of fieldMask and of the match mask, a type each.
constexpr unsigned long INSTANCE_SERVICE = 0x1;
constexpr unsigned long INSTANCE_VERSION_CODE = 0x2;
constexpr unsigned long INSTANCE_NAME = 0x4;
constexpr unsigned long INSTANCE_PATH = 0x8;
constexpr unsigned long INSTANCE_USAGE = 0x10;
constexpr unsigned long INSTANCE_START_AT_BOOT = 0x20;
constexpr unsigned long INSTANCE_MAINTENANCE = 0x40;
constexpr unsigned long INSTANCE_EXTRA_PATH = 0x80;
constexpr unsigned long INSTANCE_EXTRA_NAME = 0x100;
constexpr unsigned long INSTANCE_COMMENT = 0x200;
constexpr unsigned long INSTANCE_KNOWN_FIELDS = 0x3ff;

constexpr unsigned long SERVICE_SERVICE = 0x1;
constexpr unsigned long SERVICE_VERSION_CODE = 0x2;
constexpr unsigned long SERVICE_PATH = 0x4;
constexpr unsigned long SERVICE_ALT_PATH = 0x8;
constexpr unsigned long SERVICE_TEXT = 0x10;
constexpr unsigned long SERVICE_FIXPACK_NUMBER = 0x20;
constexpr unsigned long SERVICE_NUMBER1 = 0x40;
constexpr unsigned long SERVICE_FLAG = 0x80;
constexpr unsigned long SERVICE_NUMBER2 = 0x100;
constexpr unsigned long SERVICE_NUMBER3 = 0x200;
constexpr unsigned long SERVICE_KNOWN_FIELDS = 0x3ff;

constexpr unsigned long VARIABLE_SERVICE = 0x1;
constexpr unsigned long VARIABLE_NAME = 0x2;
constexpr unsigned long VARIABLE_VALUE = 0x4;
constexpr unsigned long VARIABLE_TEXT = 0x8;
constexpr unsigned long VARIABLE_COMMENT = 0x10;
constexpr unsigned long VARIABLE_KNOWN_FIELDS = 0x1f;

// The bodies: members in the order of their bits.
struct GlobalRegInstance {
    char service[64];
    unsigned long versionCode;
    char instanceName[64];
    char instancePath[1024];
    char usage[64];
    int startAtBoot;
    int maintenance;
    char extraPath[1024];
    char extraName[64];
    char comment[256];
};

struct GlobalRegService {
    char service[64];
    unsigned long versionCode;
    char servicePath[1024];
    char serviceAltPath[1024];
    char serviceText[256];
    int fixpackNumber;
    int serviceNumber1;
    char serviceFlag;
    int serviceNumber2;
    int serviceNumber3;
};

struct GlobalRegVariable {
    char service[64];
    char variable[256];
    char value[256];
    char variableText[1024];
    char comment[256];
};

struct GlobalRegRecord {
    unsigned int recordType;         // GLOBALREG_*
    unsigned long fieldMask;         // which fields are there
    unsigned long missingFieldMask;  // known fields that were absent from the image when it was read
    union {
        GlobalRegInstance instance;
        GlobalRegService service;
        GlobalRegVariable variable;
    } body;
    int checksum;  // carried along, never computed
};

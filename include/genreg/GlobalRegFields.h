// The fields of the global registry's records as a table: what it takes to show, edit, decode or check a record without
// naming its fields one by one. Constant data; any thread.
#pragma once

#include <genreg/Codes.h>
#include <genreg/Export.h>
#include <genreg/GlobalRegRecord.h>

// Kinds of field, and what an item of a packed image holds for each.
constexpr unsigned int GLOBALREG_FIELD_TEXT = 1;     // char[]; the characters and their NUL
constexpr unsigned int GLOBALREG_FIELD_VERSION = 2;  // unsigned long, a version code; 8 bytes
constexpr unsigned int GLOBALREG_FIELD_NUMBER = 3;   // int; 4 bytes
constexpr unsigned int GLOBALREG_FIELD_FLAG = 4;     // char, one character; 1 byte

struct GlobalRegField {
    unsigned long bit;         // in fieldMask and in the match mask
    const char* name;          // the member's name
    unsigned int kind;         // GLOBALREG_FIELD_*
    bool logged;               // whether the change log shows it
    bool key;                  // whether it is one of those that tell a record of the type from all others
    unsigned long offset;      // of the member in GlobalRegRecord, in bytes
    unsigned long capacity;    // bytes of the member; of a text with its NUL
    unsigned int refusedCode;  // for an empty text, or a number other than 0 and 1; 0: anything goes
    unsigned int missingCode;  // for a field that a mask asks for and the record lacks; 0: it may lack
    const char* label;         // what PrintRecord calls it; null: it is not printed
};

// An item of a packed image: the value of a field, or what a later release put there.
struct GlobalRegItem {
    unsigned long bit;            // of the field mask
    const GlobalRegField* field;  // null for an item of a later release
    const void* bytes;            // in the image
    unsigned long length;         // of the bytes
    unsigned long offset;         // in the image, of the item; its bytes stand behind 2 that hold their length
};

extern "C" {

// The fields of a record type (GLOBALREG_*) in ascending order of their bits, and how many they are. Null and 0 for
// any other type.
GENREG_EXPORT const GlobalRegField* globalRegFields(unsigned int recordType, unsigned long* count);

// Whether the packed image of `length` bytes is whole: of a known type, each item within the image and its member, each
// text with room for its NUL, nothing behind the checksum. An item may be shorter than its number, whose upper bytes
// then are 0. Nothing outside the image is read. 0; REG_UNKNOWN_RECORD_TYPE; REG_UNPACK_FAILED, and *damage (unless
// null) is the offset of the item, header or end that does not fit.
GENREG_EXPORT unsigned int globalRegCheckImage(const void* image, unsigned long length, unsigned long* damage);

// The next item of a packed image that may be damaged, for showing or salvaging it: the one of the lowest bit above
// item->bit, so that an item of zeros asks for the first. 0; REG_NO_MORE_RECORDS behind the last one of a whole image;
// REG_UNKNOWN_RECORD_TYPE, REG_UNPACK_FAILED: the image is damaged before there is another one, item->offset is where,
// as globalRegCheckImage tells it, and the rest of the item is zeros; REG_NULL_POINTER (item). Nothing outside the
// image is read; what is handed out points into it.
GENREG_EXPORT unsigned int globalRegNextItem(const void* image, unsigned long length, GlobalRegItem* item);

// The record of a packed image that may be damaged. It gets type, masks and checksum as they stand in the image, and
// the values of the items in front of the damage; all else is zero. (GlobalReg::UnpackRecord wants a whole image, and
// adds to missingFieldMask what is not there.) As globalRegCheckImage, and REG_NULL_POINTER (record).
GENREG_EXPORT unsigned int globalRegReadImage(const void* image, unsigned long length, GlobalRegRecord* record);
}

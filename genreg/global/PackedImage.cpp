#include "genreg/global/PackedImage.h"

#include <algorithm>
#include <bit>

namespace genreg {
namespace {

// A text needs its NUL: within the item, or in the room that the item leaves in the member.
bool fitsMember(const PackedItem& item, const GlobalRegField& field) noexcept {
    if (item.length == field.capacity && field.kind == GLOBALREG_FIELD_TEXT) {
        return std::memchr(item.bytes, 0, item.length) != nullptr;
    }
    return item.length <= field.capacity;
}

bool packsAsItStands(const PackedItem& item, const GlobalRegField& field) noexcept {
    if (field.kind == GLOBALREG_FIELD_TEXT) {
        return textOf(item, field).size() + 1 == item.length;
    }
    return item.length == field.capacity;
}

unsigned int checkItems(const unsigned char* image, unsigned long length, unsigned long* damage) noexcept {
    const ImageHeader header = headerOf(image);
    const RecordType* type = recordTypeOf(header.recordType);
    if (type == nullptr) {
        *damage = 0;
        return REG_UNKNOWN_RECORD_TYPE;
    }
    unsigned long at = IMAGE_HEADER_SIZE;
    const unsigned long end = length - IMAGE_CHECKSUM_SIZE;
    unsigned long bits = header.fieldMask & ~ITEMLESS_BIT;
    while (bits != 0) {
        *damage = at;
        const unsigned long bit = takeLowest(&bits);
        if (end - at < ITEM_LENGTH_SIZE) {
            return REG_UNPACK_FAILED;
        }
        const PackedItem item = {bit, loadLittle(image + at, ITEM_LENGTH_SIZE), image + at + ITEM_LENGTH_SIZE};
        if (item.length > end - at - ITEM_LENGTH_SIZE) {
            return REG_UNPACK_FAILED;
        }
        if ((bit & type->known) != 0 && !fitsMember(item, fieldOf(*type, bit))) {
            return REG_UNPACK_FAILED;
        }
        at += ITEM_LENGTH_SIZE + item.length;
    }
    // What stands behind the checksum would be lost when the record is written again, so it is no whole image.
    if (at != end) {
        *damage = at;
        return REG_UNPACK_FAILED;
    }
    return 0;
}

unsigned int checkWhole(const void* image, unsigned long length, unsigned long* damage) noexcept {
    *damage = 0;
    return image != nullptr && length >= IMAGE_LEAST_SIZE
               ? checkItems(static_cast<const unsigned char*>(image), length, damage)
               : static_cast<unsigned int>(REG_UNPACK_FAILED);
}

}  // namespace

std::string_view textOf(const PackedItem& item, const GlobalRegField& field) noexcept {
    return boundedText(reinterpret_cast<const char*>(item.bytes), std::min(item.length, field.capacity - 1));
}

unsigned long valueOf(const PackedItem& item, const GlobalRegField& field) noexcept {
    return loadLittle(item.bytes, std::min(item.length, field.capacity));
}

unsigned int checkImage(const void* image, unsigned long length) noexcept {
    unsigned long damage = 0;
    return checkWhole(image, length, &damage);
}

bool imagePacksAlike(const void* image, unsigned long) noexcept {
    const ImageHeader header = headerOf(image);
    const RecordType* type = recordTypeOf(header.recordType);
    if (type == nullptr || (type->known & ~header.fieldMask & ~header.missingFieldMask) != 0) {
        return false;  // unpacking would add to the missing-field mask
    }
    PackedItems items(image);
    for (PackedItem item; items.next(&item);) {
        if ((item.bit & type->known) != 0 && !packsAsItStands(item, fieldOf(*type, item.bit))) {
            return false;
        }
    }
    return true;
}

}  // namespace genreg

extern "C" unsigned int globalRegCheckImage(const void* image, unsigned long length, unsigned long* damage) {
    unsigned long at = 0;
    const unsigned int result = genreg::checkWhole(image, length, &at);
    if (result != 0 && damage != nullptr) {
        *damage = at;
    }
    return result;
}

#include "genreg/global/PackedImage.h"

#include <algorithm>
#include <bit>

namespace genreg {
namespace {

bool packsAsItStands(const PackedItem& item, const GlobalRegField& field) noexcept {
    if (field.kind == GLOBALREG_FIELD_TEXT) {
        return textOf(item, field).size() + 1 == item.length;
    }
    return item.length == field.capacity;
}

unsigned int checkWhole(const void* image, unsigned long length, unsigned long* damage) noexcept {
    return walkUnchecked(image, length, damage, [](const PackedItem&, const GlobalRegField*) {});
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
    const unsigned int rc = genreg::checkWhole(image, length, &at);
    if (rc != 0 && damage != nullptr) {
        *damage = at;
    }
    return rc;
}

extern "C" unsigned int globalRegNextItem(const void* image, unsigned long length, GlobalRegItem* item) {
    if (item == nullptr) {
        return REG_NULL_POINTER;
    }
    const unsigned long before = item->bit;
    *item = {};
    const auto take = [&](const genreg::PackedItem& found, const GlobalRegField* field) {
        if (found.bit > before && item->bit == 0) {
            const auto offset = static_cast<unsigned long>(found.bytes - static_cast<const unsigned char*>(image));
            *item = {found.bit, field, found.bytes, found.length, offset - genreg::ITEM_LENGTH_SIZE};
        }
    };
    unsigned long damage = 0;
    const unsigned int rc = genreg::walkUnchecked(image, length, &damage, take);
    if (item->bit != 0) {
        return 0;
    }
    item->offset = damage;
    return rc == 0 ? static_cast<unsigned int>(REG_NO_MORE_RECORDS) : rc;
}

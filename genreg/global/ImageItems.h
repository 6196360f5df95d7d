// The items of an image, found and checked in one pass: for images that hold nothing out of the common. What it leaves
// in doubt is for PackedImage.h.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

#include "genreg/bin/FrameWays.h"
#include "genreg/core/FrameBytes.h"
#include "genreg/global/FieldTable.h"
#include "genreg/global/Matching.h"

namespace genreg {

inline constexpr std::size_t MOST_FIELDS = 10;
static_assert(std::size(INSTANCE_FIELDS) <= MOST_FIELDS && std::size(SERVICE_FIELDS) <= MOST_FIELDS &&
              std::size(VARIABLE_FIELDS) <= MOST_FIELDS);

// The longest item of each field that is taken as it is: a text leaves its member room for a NUL. One that fills its
// member is for others to judge.
using ItemLimits = std::array<unsigned short, MOST_FIELDS>;

consteval ItemLimits limitsOf(std::span<const GlobalRegField> fields) {
    ItemLimits limits = {};
    for (std::size_t n = 0; n < fields.size(); ++n) {
        const bool text = fields[n].kind == GLOBALREG_FIELD_TEXT;
        if (text && fields[n].capacity % sizeof(unsigned long) != 0) {
            throw "copyText() fills whole words";
        }
        limits[n] = static_cast<unsigned short>(fields[n].capacity - (text ? 1 : 0));
    }
    return limits;
}
inline constexpr ItemLimits INSTANCE_LIMITS = limitsOf(INSTANCE_FIELDS);
inline constexpr ItemLimits SERVICE_LIMITS = limitsOf(SERVICE_FIELDS);
inline constexpr ItemLimits VARIABLE_LIMITS = limitsOf(VARIABLE_FIELDS);

[[nodiscard]] inline const ItemLimits& limitsOf(unsigned int type) noexcept {
    return type == GLOBALREG_INSTANCE ? INSTANCE_LIMITS : type == GLOBALREG_SERVICE ? SERVICE_LIMITS : VARIABLE_LIMITS;
}

// No image whose items are found is longer.
consteval std::size_t longestImage() {
    std::size_t longest = 0;
    for (const ItemLimits& limits : {INSTANCE_LIMITS, SERVICE_LIMITS, VARIABLE_LIMITS}) {
        std::size_t length = IMAGE_LEAST_SIZE;
        for (const std::size_t limit : limits) {
            length += ITEM_LENGTH_SIZE + limit;
        }
        longest = std::max(longest, length);
    }
    return longest;
}

// Where the items of an image stand, by field, and how long they are; and where they end. What is said of a field that
// the image lacks means nothing.
struct ItemPlaces {
    const unsigned char* bytes[MOST_FIELDS];
    unsigned long length[MOST_FIELDS];
    const unsigned char* end;
};

// Whether the image is whole, of this type, without items of a later release and without one that fills a text member.
[[nodiscard]] inline bool findItems(const char* image, std::size_t length, const RecordType& type, unsigned long mask,
                                    ItemPlaces* places) noexcept {
    if ((mask & ~ITEMLESS_BIT & ~type.known) != 0) {
        return false;
    }
    const ItemLimits& limits = limitsOf(type.type);
    const auto* at = reinterpret_cast<const unsigned char*>(image) + IMAGE_HEADER_SIZE;
    const auto* const end = reinterpret_cast<const unsigned char*>(image) + length - IMAGE_CHECKSUM_SIZE;
    for (unsigned long bits = mask & ~ITEMLESS_BIT; bits != 0; bits &= bits - 1) {
        const auto n = static_cast<std::size_t>(std::countr_zero(bits));
        const auto room = static_cast<unsigned long>(end - at);
        if (room < ITEM_LENGTH_SIZE) {
            return false;
        }
        const unsigned long size = loadLittle(at, ITEM_LENGTH_SIZE);
        if (size > limits[n] || size > room - ITEM_LENGTH_SIZE) {
            return false;
        }
        places->bytes[n] = at + ITEM_LENGTH_SIZE;
        places->length[n] = size;
        at += ITEM_LENGTH_SIZE + size;
    }
    places->end = at;
    return at == end;
}

// The type of the image, whose items were found; null when any of it is in doubt.
[[nodiscard]] inline const RecordType* openImage(const char* image, std::size_t length, ImageHeader* header,
                                                 ItemPlaces* places) noexcept {
    if (length < IMAGE_LEAST_SIZE) {
        return nullptr;
    }
    *header = headerOf(image);
    const RecordType* const type = recordTypeOf(header->recordType);
    const bool found = type != nullptr && findItems(image, length, *type, header->fieldMask, places);
    return found ? type : nullptr;
}

// The highest bit of each byte that is 0; above the first of those it may say so of others.
[[nodiscard]] constexpr unsigned long zeroBytes(unsigned long bytes) noexcept {
    constexpr unsigned long EACH = 0x0101010101010101;
    return (bytes - EACH) & ~bytes & (EACH << 7U);
}

// The last bytes of the item, not more than a word and not none. What stands before it in its image is as long as one.
[[nodiscard]] inline unsigned long lastBytes(const PackedItem& item, std::size_t count) noexcept {
    constexpr std::size_t WORD = sizeof(unsigned long);
    static_assert(ITEM_LENGTH_SIZE + IMAGE_HEADER_SIZE >= WORD);
    return loadLittle(item.bytes + item.length - WORD, WORD) >> (8 * (WORD - count));
}

// Copies the item up to its NUL, a word at a time, and zeros to the end of the last word; answers how much it wrote.
// The member takes whole words and is longer than the item. Most texts are too short for the calls that search and
// copy.
[[nodiscard]] inline std::size_t copyText(const PackedItem& item, char* member) noexcept {
    constexpr std::size_t WORD = sizeof(unsigned long);
    auto* const to = reinterpret_cast<unsigned char*>(member);
    for (std::size_t at = 0; at < item.length; at += WORD) {
        const std::size_t left = item.length - at;
        const unsigned long word = left >= WORD ? loadLittle(item.bytes + at, WORD) : lastBytes(item, left);
        const unsigned long zeros = zeroBytes(word);
        if (zeros != 0) {
            storeLittle(to + at, word & ((zeros & (~zeros + 1)) - 1), WORD);
            return at + WORD;
        }
        storeLittle(to + at, word, WORD);
    }
    return (item.length + WORD - 1) / WORD * WORD;
}

// The fields of an image whose items were found, as matches() asks for them. An absent one is empty or 0.
class PlacedFields {
public:
    PlacedFields(const ItemPlaces& places, unsigned long mask) noexcept : places_(places), mask_(mask) {}

    [[nodiscard]] bool has(unsigned long bit) const noexcept { return (mask_ & bit) != 0; }
    [[nodiscard]] PackedItem item(const GlobalRegField& field) const noexcept {
        const auto n = static_cast<std::size_t>(std::countr_zero(field.bit));
        return has(field.bit) ? PackedItem{field.bit, places_.length[n], places_.bytes[n]}
                              : PackedItem{field.bit, 0, places_.end};
    }
    // Into a member of the field's capacity, with zeros behind it.
    void putText(const GlobalRegField& field, char* member) const noexcept {
        const std::size_t taken = has(field.bit) ? copyText(item(field), member) : 0;
        std::memset(member + taken, 0, field.capacity - taken);
    }
    [[nodiscard]] unsigned long value(const GlobalRegField& field) const noexcept {
        const PackedItem found = item(field);
        return found.length == 0 ? 0 : lastBytes(found, found.length);
    }
    [[nodiscard]] bool equal(const GlobalRegField& field, const GlobalRegRecord& key) const noexcept {
        return field.kind == GLOBALREG_FIELD_TEXT ? sameText(item(field), field, key)
                                                  : value(field) == valueOf(key, field);
    }

private:
    const ItemPlaces& places_;
    unsigned long mask_;
};

// Whether the image, whose items were found, holds what the key asks for.
[[nodiscard]] inline bool placesMatch(unsigned long mask, const ImageHeader& header, const ItemPlaces& places,
                                      const void* key) noexcept {
    Difference difference;
    return matches(mask, header.recordType, PlacedFields(places, header.fieldMask),
                   *static_cast<const GlobalRegRecord*>(key), &difference);
}

// What takes an image (FrameWays.h): shows `put` the type, the header and the places of one that is whole and matches
// the key, any where that is null.
template <class Put>
[[nodiscard]] Taken takeMatch(unsigned long mask, const char* image, std::size_t length, const void* key,
                              Put put) noexcept {
    ImageHeader header;
    ItemPlaces places;
    const RecordType* const type = openImage(image, length, &header, &places);
    if (type == nullptr) {
        return Taken::Doubt;
    }
    if (key != nullptr && !placesMatch(mask, header, places, key)) {
        return Taken::No;
    }
    put(*type, header, places);
    return Taken::Yes;
}

}  // namespace genreg

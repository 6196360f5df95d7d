// Looking through images: each is gone through once, which checks its lengths and finds its items.
#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

#include "genreg/core/FrameBytes.h"
#include "genreg/global/FieldTable.h"
#include "genreg/global/ImageWays.h"
#include "genreg/global/PackedImage.h"

namespace genreg {
namespace {

constexpr std::size_t MOST_FIELDS = 10;
static_assert(std::size(INSTANCE_FIELDS) <= MOST_FIELDS && std::size(SERVICE_FIELDS) <= MOST_FIELDS &&
              std::size(VARIABLE_FIELDS) <= MOST_FIELDS);

// The longest item of each field that is taken as it is: a text leaves its member room for a NUL. One that fills its
// member is for others to judge.
using ItemLimits = std::array<unsigned short, MOST_FIELDS>;

consteval ItemLimits limitsOf(std::span<const GlobalRegField> fields) {
    ItemLimits limits = {};
    for (std::size_t n = 0; n < fields.size(); ++n) {
        const bool text = fields[n].kind == GLOBALREG_FIELD_TEXT;
        limits[n] = static_cast<unsigned short>(fields[n].capacity - (text ? 1 : 0));
    }
    return limits;
}
constexpr ItemLimits INSTANCE_LIMITS = limitsOf(INSTANCE_FIELDS);
constexpr ItemLimits SERVICE_LIMITS = limitsOf(SERVICE_FIELDS);
constexpr ItemLimits VARIABLE_LIMITS = limitsOf(VARIABLE_FIELDS);

const ItemLimits& limitsOf(unsigned int type) noexcept {
    return type == GLOBALREG_INSTANCE ? INSTANCE_LIMITS : type == GLOBALREG_SERVICE ? SERVICE_LIMITS : VARIABLE_LIMITS;
}

// Where the items of an image stand, by field; null for one that it lacks.
struct ItemPlaces {
    const unsigned char* bytes[MOST_FIELDS];
    unsigned long length[MOST_FIELDS];
    const unsigned char* end;
};

// Whether the image is whole, of this type, without items of a later release and without one that fills a text member.
[[nodiscard]] inline bool findItems(const char* image, std::size_t length, const RecordType& type,
                                    const ItemLimits& limits, unsigned long mask, ItemPlaces* places) noexcept {
    if ((mask & ~ITEMLESS_BIT & ~type.known) != 0) {
        return false;
    }
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

// The text that a record must have to match, compared by its last bytes, in which names differ most.
class RarestText {
public:
    // Of the fields that are compared the last one with a text is the rarest.
    RarestText(const GlobalRegRecord& key, const RecordType& type, unsigned long bits) noexcept {
        for (bits &= type.known; bits != 0; bits &= bits - 1) {
            const auto n = static_cast<std::size_t>(std::countr_zero(bits));
            const GlobalRegField& field = type.fields[n];
            if (field.kind == GLOBALREG_FIELD_TEXT && !textOf(key, field).empty()) {
                field_ = n;
                text_ = textOf(key, field);
            }
        }
    }
    [[nodiscard]] bool none() const noexcept { return text_.empty(); }
    [[nodiscard]] std::size_t field() const noexcept { return field_; }
    [[nodiscard]] bool differsFrom(const unsigned char* bytes, unsigned long length) const noexcept {
        if (length < text_.size()) {
            return true;
        }
        const std::size_t compared = std::min(text_.size(), sizeof(unsigned long));
        const std::size_t offset = text_.size() - compared;
        if (compared < sizeof(unsigned long)) {
            return std::memcmp(bytes, text_.data(), compared) != 0;
        }
        return loadLittle(bytes + offset, sizeof(unsigned long)) !=
               loadLittle(reinterpret_cast<const unsigned char*>(text_.data()) + offset, sizeof(unsigned long));
    }

private:
    std::size_t field_ = 0;
    std::string_view text_;
};

// Whether the image is whole, and its record surely is not the key's; what it is made of.
inline bool surelyOther(const char* image, std::size_t length, const RecordType& type, const RarestText& rarest,
                        ImageHeader* header, ItemPlaces* places) noexcept {
    if (length < IMAGE_LEAST_SIZE) {
        return false;
    }
    *header = headerOf(image);
    if (header->recordType != type.type) {
        const RecordType* const other = recordTypeOf(header->recordType);
        return other != nullptr && findItems(image, length, *other, limitsOf(other->type), header->fieldMask, places);
    }
    const std::size_t n = rarest.field();
    return findItems(image, length, type, limitsOf(type.type), header->fieldMask, places) &&
           (header->fieldMask >> n & 1U) != 0 && rarest.differsFrom(places->bytes[n], places->length[n]);
}

// A key without a type, or without a text that is compared, is looked for one record after another.
template <typename Also>
std::size_t passImages(unsigned long mask, const char* frames, std::size_t length, bool bigEndian, const void* key,
                       Also also) noexcept {
    const auto& sought = *static_cast<const GlobalRegRecord*>(key);
    const RecordType* const type = recordTypeOf(sought.recordType);
    if (type == nullptr || mask == 0) {
        return 0;
    }
    const RarestText rarest(sought, *type, mask);
    if (rarest.none()) {
        return 0;
    }
    ImageHeader header = {};
    ItemPlaces places;
    std::size_t at = 0;
    for (Frame frame = {}; frameAt(bigEndian, frames, length, at, &frame) &&
                           surelyOther(frame.payload, frame.length, *type, rarest, &header, &places) &&
                           also(header, places);) {
        at += FRAME_LENGTH_SIZE + frame.length;
    }
    return at;
}

std::size_t passImages(unsigned long mask, const char* frames, std::size_t length, bool bigEndian,
                       const void* key) noexcept {
    return passImages(mask, frames, length, bigEndian, key, [](const ImageHeader&, const ItemPlaces&) { return true; });
}

// Whether the item, of an image, is a text with its NUL and no other. Looked at in words from its end: what stands
// before it in the image is as long as one at least.
inline bool holdsOneText(const unsigned char* bytes, unsigned long length) noexcept {
    constexpr unsigned long WORD = sizeof(unsigned long);
    constexpr unsigned long ONES = ~0UL / 0xff;
    static_assert(WORD <= IMAGE_HEADER_SIZE);
    const auto hasZero = [](unsigned long word) { return ((word - ONES) & ~word & (ONES << 7)) != 0; };
    if (length == 0 || bytes[length - 1] != 0) {
        return false;
    }
    unsigned long left = length - 1;
    for (; left >= WORD; left -= WORD) {
        if (hasZero(loadLittle(bytes + left - WORD, WORD))) {
            return false;
        }
    }
    return left == 0 || !hasZero(loadLittle(bytes + left - WORD, WORD) | ~0UL >> (8 * left));
}

// Whether unpacking the image and packing the record gives the image again.
bool packsAlike(const ImageHeader& header, const RecordType& type, const ItemPlaces& places) noexcept {
    if ((type.known & ~header.fieldMask & ~header.missingFieldMask) != 0) {
        return false;  // unpacking would add to the missing-field mask
    }
    for (unsigned long bits = header.fieldMask & ~ITEMLESS_BIT; bits != 0; bits &= bits - 1) {
        const auto n = static_cast<std::size_t>(std::countr_zero(bits));
        const GlobalRegField& field = type.fields[n];
        const unsigned long length = places.length[n];
        const bool text = field.kind == GLOBALREG_FIELD_TEXT;
        const bool alike = text ? holdsOneText(places.bytes[n], length) : length == field.capacity;
        if (!alike) {
            return false;
        }
    }
    return true;
}

std::size_t carryImages(unsigned long mask, const char* frames, std::size_t length, bool bigEndian,
                        const void* key) noexcept {
    return passImages(mask, frames, length, bigEndian, key, [](const ImageHeader& header, const ItemPlaces& places) {
        return packsAlike(header, *recordTypeOf(header.recordType), places);
    });
}

// Puts one item where the record has it. A text ends in a NUL, which the item may lack.
inline void takeItem(GlobalRegRecord& record, const GlobalRegField& field, const unsigned char* bytes,
                     unsigned long length) noexcept {
    char* const member = memberOf(record, field);
    if (field.kind == GLOBALREG_FIELD_TEXT) {
        std::memcpy(member, bytes, length);
        member[length] = '\0';
    } else {
        setValue(record, field, loadLittle(bytes, length));
    }
}

enum class Rest {
    Zeroed,  // the bytes that no item fills
    Left     // but for the first of each text, and for numbers
};

template <Rest REST>
Taken takeImage(unsigned long mask, const char* image, std::size_t length, const void* key, void* record) noexcept {
    if (length < IMAGE_LEAST_SIZE) {
        return Taken::Doubt;
    }
    const ImageHeader header = headerOf(image);
    const RecordType* const type = recordTypeOf(header.recordType);
    ItemPlaces places;
    if (type == nullptr || !findItems(image, length, *type, limitsOf(type->type), header.fieldMask, &places)) {
        return Taken::Doubt;
    }
    if (key != nullptr && !imageMayMatch(mask, image, length, key)) {
        return Taken::No;
    }
    auto& taken = *static_cast<GlobalRegRecord*>(record);
    if constexpr (REST == Rest::Zeroed) {
        std::memset(record, 0, sizeof taken);
    } else {
        for (unsigned long bits = type->known & ~header.fieldMask; bits != 0;) {
            takeItem(taken, fieldOf(*type, takeLowest(&bits)), places.end, 0);
        }
    }
    taken.recordType = header.recordType;
    taken.fieldMask = header.fieldMask;
    taken.missingFieldMask = header.missingFieldMask | (type->known & ~header.fieldMask);
    for (unsigned long bits = header.fieldMask & ~ITEMLESS_BIT; bits != 0; bits &= bits - 1) {
        const auto n = static_cast<std::size_t>(std::countr_zero(bits));
        takeItem(taken, type->fields[n], places.bytes[n], places.length[n]);
    }
    taken.checksum = static_cast<int>(loadLittle(places.end, IMAGE_CHECKSUM_SIZE));
    return Taken::Yes;
}

}  // namespace

constinit const FrameWays IMAGE_WAYS = {true, passImages, carryImages, takeImage<Rest::Zeroed>};
constinit const FrameWays LIST_WAYS = {true, passImages, carryImages, takeImage<Rest::Left>};

}  // namespace genreg

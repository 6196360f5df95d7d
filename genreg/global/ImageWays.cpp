// Looking through images: each is gone through once, which checks its lengths and finds its items.
#include "genreg/global/ImageWays.h"

#include <algorithm>
#include <bit>

#include "genreg/core/FrameBytes.h"
#include "genreg/global/ImageItems.h"

namespace genreg {
namespace {

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
        const std::size_t compared = std::min(text_.size(), sizeof(unsigned long));
        return length < text_.size() ||
               std::memcmp(bytes + text_.size() - compared, text_.data() + text_.size() - compared, compared) != 0;
    }

private:
    std::size_t field_ = 0;
    std::string_view text_;
};

// Whether the image is whole, and its record surely is not the key's; what it is made of.
inline bool surelyOther(const char* image, std::size_t length, const RecordType& type, const RarestText& rarest,
                        ImageHeader* header, ItemPlaces* places) noexcept {
    const RecordType* const found = openImage(image, length, header, places);
    const std::size_t n = rarest.field();
    return found != nullptr && (found != &type || ((header->fieldMask >> n & 1U) != 0 &&
                                                   rarest.differsFrom(places->bytes[n], places->length[n])));
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

Taken takeImage(unsigned long mask, const char* image, std::size_t length, const void* key, void* record) noexcept {
    ImageHeader header;
    ItemPlaces places;
    const RecordType* const type = openImage(image, length, &header, &places);
    if (type == nullptr) {
        return Taken::Doubt;
    }
    if (key != nullptr && !placesMatch(mask, header, places, key)) {
        return Taken::No;
    }
    auto& taken = *static_cast<GlobalRegRecord*>(record);
    std::memset(record, 0, sizeof taken);
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

constinit const FrameWays IMAGE_WAYS = {true, passImages, carryImages, takeImage};

}  // namespace genreg

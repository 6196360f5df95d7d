// Looking through images: each is gone through once, which checks its lengths and finds its items.
#include "genreg/global/ImageWays.h"

#include <algorithm>
#include <bit>

#include "genreg/core/FrameBytes.h"
#include "genreg/core/Identity.h"
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
        const std::size_t compared = std::min(text_.size(), WORD);
        return length < text_.size() ||
               std::memcmp(bytes + text_.size() - compared, text_.data() + text_.size() - compared, compared) != 0;
    }

    // The same where a word more can be read than the item's bytes.
    class InWords {
    public:
        explicit InWords(std::string_view text) noexcept
            : length_(text.size()), offset_(length_ < WORD ? 0 : length_ - WORD) {
            const std::size_t compared = length_ - offset_;
            bytes_ = loadLittle(reinterpret_cast<const unsigned char*>(text.data()) + offset_, compared);
            unused_ = 8 * (WORD - compared);
        }
        [[nodiscard]] bool differsFrom(const unsigned char* bytes, unsigned long length) const noexcept {
            return length < length_ || (loadLittle(bytes + offset_, WORD) ^ bytes_) << unused_ != 0;
        }

    private:
        std::size_t length_;
        std::size_t offset_;
        unsigned long bytes_;
        unsigned long unused_;  // bits
    };
    [[nodiscard]] InWords inWords() const noexcept { return InWords(text_); }

    static constexpr std::size_t WORD = sizeof(unsigned long);

private:
    std::size_t field_ = 0;
    std::string_view text_;
};

// Whether the item, of an image, is a text with its NUL and no other. Looked at in words from its end: what stands
// before it in the image is as long as one at least.
inline bool holdsOneText(const unsigned char* bytes, unsigned long length) noexcept {
    constexpr unsigned long WORD = sizeof(unsigned long);
    static_assert(WORD <= IMAGE_HEADER_SIZE);
    if (length == 0 || bytes[length - 1] != 0) {
        return false;
    }
    unsigned long left = length - 1;
    for (; left >= WORD; left -= WORD) {
        if (zeroBytes(loadLittle(bytes + left - WORD, WORD)) != 0) {
            return false;
        }
    }
    return left == 0 || zeroBytes(loadLittle(bytes + left - WORD, WORD) | ~0UL >> (8 * left)) == 0;
}

// The way past images of one type and mask that are whole, and whose records surely are not the key's. Most images of a
// registry are made alike, so the longest length of each item stands ready, and nothing but the lengths is looked at:
// where each is short enough and they end where the image does, none has led beyond it.
//
// CARRIED: and unpacking the image and packing the record gives the image again.
template <bool CARRIED>
class AlikeImages {
public:
    AlikeImages(const RecordType& type, const RarestText& rarest, bool bigEndian) noexcept
        : type_(type), field_(rarest.field()), text_(rarest.inWords()), bigEndian_(bigEndian) {}

    // Behind those that begin the bytes. Through an image leads a chain of lengths, each known when the one before is;
    // so two are gone through beside each other, as long as no length can lead beyond the bytes. What is left is gone
    // through with each length held against the image's end.
    [[nodiscard]] std::size_t pass(const char* frames, std::size_t length) const noexcept {
        const char* const end = frames + length;
        const char* at = frames;
        if (count_ == 0) {
            return 0;  // none is known yet
        }
        for (Walk first, second; static_cast<std::size_t>(end - at) / 2 >= longest_; at = second.end) {
            if (!(begin(at, &first) && begin(first.end, &second) && areOther<Lengths::Bounded>(first, second))) {
                break;
            }
        }
        for (Walk walk; end - at >= LEAST_AHEAD && begin(at, &walk) && end - walk.end >= WORD_AHEAD &&
                        areOther<Lengths::Checked>(walk);) {
            at = walk.end;
        }
        return static_cast<std::size_t>(at - frames);
    }

    // From now on images such as this one, which was passed otherwise.
    void learn(const ImageHeader& header) noexcept {
        const unsigned long bits = header.fieldMask & ~ITEMLESS_BIT;
        if (header.recordType != type_.type || header.fieldMask == mask_) {
            return;
        }
        mask_ = header.fieldMask;
        missing_ = type_.known & ~bits;
        texts_ = 0;
        before_ = count_ = 0;
        longest_ = FRAME_LENGTH_SIZE + IMAGE_LEAST_SIZE + RarestText::WORD;
        for (unsigned long left = bits; left != 0; left &= left - 1) {
            const auto n = static_cast<std::size_t>(std::countr_zero(left));
            before_ += n < field_ ? 1 : 0;
            longest_ += ITEM_LENGTH_SIZE + limitsOf(type_.type)[n];
            texts_ |= (type_.fields[n].kind == GLOBALREG_FIELD_TEXT ? 1U : 0U) << count_;
            limits_[count_++] = limitsOf(type_.type)[n];
        }
    }

private:
    // What is read ahead of where an image ends, and of where one may begin.
    static constexpr std::ptrdiff_t WORD_AHEAD = RarestText::WORD;
    static constexpr std::ptrdiff_t LEAST_AHEAD = FRAME_LENGTH_SIZE + IMAGE_LEAST_SIZE + WORD_AHEAD;

    enum class Lengths { Bounded, Checked };

    // On the way through one image.
    struct Walk {
        const unsigned char* at;    // the next item
        const unsigned char* text;  // the item of the rarest text
        const char* end;            // of the image, as its frame says
    };

    // Whether the frame may hold such an image.
    [[nodiscard, gnu::always_inline]] bool begin(const char* frame, Walk* walk) const noexcept {
        const char* const image = frame + FRAME_LENGTH_SIZE;
        const std::size_t size = decodeLength(bigEndian_, frame);
        const auto* const header = reinterpret_cast<const unsigned char*>(image);
        walk->at = header + IMAGE_HEADER_SIZE;
        walk->end = image + size;
        return size <= longest_ && loadLittle(header + IMAGE_TYPE_SIZE, IMAGE_MASK_SIZE) == mask_ &&
               loadLittle(header, IMAGE_TYPE_SIZE) == type_.type &&
               (!CARRIED || packsMissing(loadLittle(header + IMAGE_TYPE_SIZE + IMAGE_MASK_SIZE, IMAGE_MASK_SIZE)));
    }
    // Whether the images are whole and the records others than the key's.
    template <Lengths LENGTHS, class... Walks>
    [[nodiscard, gnu::always_inline]] bool areOther(Walks&... walks) const noexcept {
        for (std::size_t n = 0; n < before_; ++n) {
            if (!(step<LENGTHS>(walks, n) && ...)) {
                return false;
            }
        }
        ((walks.text = walks.at), ...);
        for (std::size_t n = before_; n < count_; ++n) {
            if (!(step<LENGTHS>(walks, n) && ...)) {
                return false;
            }
        }
        return (isOther(walks) && ...);
    }
    // Past item n, which is short enough.
    template <Lengths LENGTHS>
    [[nodiscard, gnu::always_inline]] bool step(Walk& walk, std::size_t n) const noexcept {
        const unsigned long size = itemLength(walk.at);
        const unsigned char* const bytes = walk.at + ITEM_LENGTH_SIZE;
        walk.at = bytes + size;
        return size <= limits_[n] &&
               (LENGTHS == Lengths::Bounded || reinterpret_cast<const char*>(walk.at) <= walk.end) &&
               (!CARRIED || packs(n, bytes, size));
    }
    [[nodiscard, gnu::always_inline]] bool packs(std::size_t n, const unsigned char* bytes,
                                                 unsigned long size) const noexcept {
        return (texts_ >> n & 1U) != 0 ? holdsOneText(bytes, size) : size == limits_[n];
    }
    // Unpacking would add to the mask of missing fields what is lacking there.
    [[nodiscard, gnu::always_inline]] bool packsMissing(unsigned long missing) const noexcept {
        return (missing_ & ~missing) == 0;
    }
    [[nodiscard, gnu::always_inline]] bool isOther(const Walk& walk) const noexcept {
        return reinterpret_cast<const char*>(walk.at) + IMAGE_CHECKSUM_SIZE == walk.end &&
               text_.differsFrom(walk.text + ITEM_LENGTH_SIZE, itemLength(walk.text));
    }

    const RecordType& type_;
    std::size_t field_;
    RarestText::InWords text_;
    bool bigEndian_;
    unsigned long mask_ = 0;
    std::size_t longest_ = 0;    // of a frame, and a word
    unsigned long missing_ = 0;  // the known fields that the mask lacks
    unsigned int texts_ = 0;     // which items are texts
    std::size_t before_ = 0;     // items in front of the rarest text
    std::size_t count_ = 0;
    ItemLimits limits_ = {};  // in the order of the items
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
template <typename Pass>
std::size_t withRarestText(unsigned long mask, const void* key, Pass pass) noexcept {
    const auto& sought = *static_cast<const GlobalRegRecord*>(key);
    const RecordType* const type = recordTypeOf(sought.recordType);
    if (type == nullptr || mask == 0) {
        return 0;
    }
    const RarestText rarest(sought, *type, mask);
    return rarest.none() ? 0 : pass(*type, rarest);
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

void unpackTo(GlobalRegRecord& record, const RecordType& type, const ImageHeader& header,
              const ItemPlaces& places) noexcept {
    std::memset(static_cast<void*>(&record), 0, sizeof record);
    record.recordType = header.recordType;
    record.fieldMask = header.fieldMask;
    record.missingFieldMask = header.missingFieldMask | (type.known & ~header.fieldMask);
    for (unsigned long bits = header.fieldMask & ~ITEMLESS_BIT; bits != 0; bits &= bits - 1) {
        const auto n = static_cast<std::size_t>(std::countr_zero(bits));
        takeItem(record, type.fields[n], places.bytes[n], places.length[n]);
    }
    record.checksum = static_cast<int>(loadLittle(places.end, IMAGE_CHECKSUM_SIZE));
}

Taken takeImage(unsigned long mask, const char* image, std::size_t length, const void* key, void* record) noexcept {
    return takeMatch(mask, image, length, key,
                     [record](const RecordType& type, const ImageHeader& header, const ItemPlaces& places) {
                         unpackTo(*static_cast<GlobalRegRecord*>(record), type, header, places);
                     });
}

// The fields that tell records of a type apart.
unsigned long keyBits(unsigned int type) noexcept {
    switch (type) {
        case GLOBALREG_INSTANCE:
            return INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;
        case GLOBALREG_SERVICE:
            return SERVICE_SERVICE | SERVICE_VERSION_CODE;
        default:
            return VARIABLE_SERVICE | VARIABLE_NAME;
    }
}

// The type and those fields, each by its text or its value.
template <class Text, class Value>
unsigned int identityOf(const RecordType& type, Text text, Value value) noexcept {
    unsigned int identity = type.type;
    for (unsigned long bits = keyBits(type.type); bits != 0;) {
        const GlobalRegField& field = fieldOf(type, takeLowest(&bits));
        if (field.kind == GLOBALREG_FIELD_TEXT) {
            const std::string_view bytes = text(field);
            identity = mixIdentity(identity, bytes.data(), bytes.size());
        } else {
            const unsigned long number = value(field);
            identity = mixIdentity(identity, reinterpret_cast<const char*>(&number), sizeof number);
        }
    }
    return identity;
}

// A field that is absent is empty or 0. Items that findItems() leaves in doubt are as good as others here.
bool identifyImage(const char* image, std::size_t length, unsigned int* identity) noexcept {
    PackedItem items[MOST_FIELDS];
    std::fill(std::begin(items), std::end(items), PackedItem{0, 0, reinterpret_cast<const unsigned char*>(image)});
    unsigned long damage = 0;
    const unsigned int rc =
        walkUnchecked(image, length, &damage, [&](const PackedItem& item, const GlobalRegField* field) {
            if (field != nullptr) {
                items[std::countr_zero(item.bit)] = item;
            }
        });
    if (rc != 0) {
        return false;
    }
    const auto itemOf = [&](const GlobalRegField& field) { return items[std::countr_zero(field.bit)]; };
    *identity = identityOf(
        *recordTypeOf(headerOf(image).recordType),
        [&](const GlobalRegField& field) { return textOf(itemOf(field), field); },
        [&](const GlobalRegField& field) { return valueOf(itemOf(field), field); });
    return true;
}

bool identifyKey(unsigned long mask, const void* key, unsigned int* identity) noexcept {
    const auto& sought = *static_cast<const GlobalRegRecord*>(key);
    const RecordType* const type = recordTypeOf(sought.recordType);
    if (mask == 0 || type == nullptr || (~comparedBits(mask, type->type, sought) & keyBits(type->type)) != 0) {
        return false;
    }
    *identity = identityOf(
        *type, [&](const GlobalRegField& field) { return textOf(sought, field); },
        [&](const GlobalRegField& field) { return valueOf(sought, field); });
    return true;
}

// Past the images in front that are whole and whose records surely are not the key's.
template <bool CARRIED>
std::size_t pass(unsigned long mask, const char* frames, std::size_t length, bool bigEndian, const void* key) noexcept {
    return withRarestText(mask, key, [&](const RecordType& type, const RarestText& rarest) {
        AlikeImages<CARRIED> alike(type, rarest, bigEndian);
        ImageHeader header = {};
        ItemPlaces places;
        std::size_t at = 0;
        for (Frame frame = {};; at += FRAME_LENGTH_SIZE + frame.length) {
            at += alike.pass(frames + at, length - at);
            if (!frameAt(bigEndian, frames, length, at, &frame) ||
                !surelyOther(frame.payload, frame.length, type, rarest, &header, &places) ||
                (CARRIED && !imagePacksAlike(frame.payload, frame.length))) {
                return at;
            }
            alike.learn(header);
        }
    });
}

}  // namespace

std::size_t passImages(unsigned long mask, const char* frames, std::size_t length, bool bigEndian,
                       const void* key) noexcept {
    return pass<false>(mask, frames, length, bigEndian, key);
}

constinit const FrameWays IMAGE_WAYS = {true, passImages, pass<true>, takeImage, identifyImage, identifyKey, nullptr};

}  // namespace genreg

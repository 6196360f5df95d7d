// A schema of the tests on the binary engine, and the bytes that it stands for, built by hand.
//
// An item in memory has 84 bytes. Its packed image:
//   nameLength 1, name, value 4 (the machine's order), textLength 1, text, tailLength 2, tail
// The tail stands for fields of a later release: it survives the packing with the previous image, and makes an image
// larger than the item.
#pragma once

#include <genreg/GenRegBin.h>
#include <osse/Memory.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

struct BinItem {
    char name[16];
    int value;
    char text[64];
};

constexpr unsigned long ITEM_NAME = 0x1;
constexpr unsigned long ITEM_VALUE = 0x2;
constexpr unsigned long ITEM_TEXT = 0x4;

inline BinItem binItem(const std::string& name, int value, const std::string& text = "") {
    BinItem item = {};
    (void)std::snprintf(item.name, sizeof item.name, "%s", name.c_str());
    item.value = value;
    (void)std::snprintf(item.text, sizeof item.text, "%s", text.c_str());
    return item;
}

// What of an image lies where; whole is false when a length leads out of the image or its member.
struct BinImage {
    bool whole = false;
    std::string name, text, tail;
    int value = 0;

    BinImage(const void* image, std::size_t size) {
        const auto* at = static_cast<const unsigned char*>(image);
        std::size_t left = size;
        const auto take = [&](void* to, std::size_t count) {
            const bool there = count <= left;
            std::memcpy(to, at, there ? count : 0);
            at += there ? count : 0;
            left -= there ? count : 0;
            return there;
        };
        const auto takeText = [&](std::string* to, std::size_t count) {
            to->resize(std::min(count, left));
            return take(to->data(), count);
        };
        std::uint8_t nameLength = 0;
        std::uint8_t textLength = 0;
        std::uint16_t tailLength = 0;
        whole = take(&nameLength, 1) && nameLength < sizeof BinItem::name && takeText(&name, nameLength) &&
                take(&value, sizeof value) && take(&textLength, 1) && textLength < sizeof BinItem::text &&
                takeText(&text, textLength) && take(&tailLength, 2) && takeText(&tail, tailLength) && left == 0;
    }
    [[nodiscard]] BinItem item() const { return binItem(name, value, text); }
};

inline std::string binImage(const BinItem& item, const std::string& tail = "") {
    const std::string name = item.name;
    const std::string text = item.text;
    const auto tailLength = static_cast<std::uint16_t>(tail.size());
    std::string image(1, static_cast<char>(name.size()));
    image += name;
    image.append(reinterpret_cast<const char*>(&item.value), sizeof item.value);
    image += static_cast<char>(text.size());
    image += text;
    image.append(reinterpret_cast<const char*>(&tailLength), sizeof tailLength);
    return image + tail;
}

// The length of an image whose lengths are true.
inline std::size_t binImageSize(const void* image) {
    const auto* const bytes = static_cast<const unsigned char*>(image);
    const std::size_t text = 1UL + bytes[0] + 4;
    const std::size_t tail = text + 1 + bytes[text];
    return tail + 2 + bytes[tail] + 256UL * bytes[tail + 1];
}

inline std::string binFrame(const std::string& payload, bool bigEndian = false) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::string bytes(4, '\0');
    for (unsigned int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<char>(length >> (bigEndian ? 24 - 8 * i : 8 * i));
    }
    return bytes + payload;
}

// The file of these items. packed: as images without a tail, else as they lie in memory.
inline std::string binFile(const std::vector<BinItem>& items, bool packed = true) {
    std::string bytes;
    for (const BinItem& item : items) {
        bytes += binFrame(packed ? binImage(item) : std::string(reinterpret_cast<const char*>(&item), sizeof item));
    }
    return bytes;
}

// What a test makes the callbacks of its thread do, and what they saw.
struct BinItemsKnobs {
    unsigned int validateResult = 0;
    unsigned int unpackResult = 0;
    unsigned int packResult = 0;
    unsigned long maxSize = sizeof(BinItem);
    unsigned long recordSize = sizeof(BinItem);  // told with packing off
    unsigned int logResult = 0;
    unsigned int notifyResult = 0;
    std::vector<std::string> heard;
};

class BinItems : public GenRegBin {
public:
    enum class Slots { Given, All };

    explicit BinItems(const std::string& path, unsigned long wanted = 0, Slots slots = Slots::Given) {
        (void)setRegistryPaths(path.c_str());
        matchRecord = MatchRecord;
        validateRecord = ValidateRecord;
        getRecordSize = GetRecordSize;
        getMaxRecordSize = GetMaxRecordSize;
        packRecord = PackRecord;
        unpackRecord = UnpackRecord;
        getPackedRecordSize = GetPackedRecordSize;
        logChange = Log;
        notifyChange = Notify;
        if (slots == Slots::All) {
            useShortcuts(CheckPacked, PackedMayMatch, PacksAlike);
        }
        features = wanted;
    }

    static BinItemsKnobs& knobs() {
        static thread_local BinItemsKnobs knobs;
        return knobs;
    }

    using GenRegBase::logChange;
    using GenRegBase::matchRecord;
    using GenRegBase::notifyChange;
    using GenRegBase::state;
    using GenRegBase::validateRecord;
    using GenRegBin::checkPacked;
    using GenRegBin::getPackedRecordSize;
    using GenRegBin::packRecord;
    using GenRegBin::unpackRecord;
    using GenRegBin::useShortcuts;
    using GenRegFile::getMaxRecordSize;
    using GenRegFile::getRecordSize;
    using GenRegFile::regFp;
    using GenRegFile::tmpFp;

    static unsigned int MatchRecord(unsigned long mask, void* record, void* key) {
        const auto& a = *static_cast<const BinItem*>(record);
        const auto& b = *static_cast<const BinItem*>(key);
        const bool matches = ((mask & ITEM_NAME) == 0 || std::strcmp(a.name, b.name) == 0) &&
                             ((mask & ITEM_VALUE) == 0 || a.value == b.value) &&
                             ((mask & ITEM_TEXT) == 0 || std::strcmp(a.text, b.text) == 0);
        return matches ? 1 : 0;
    }
    static unsigned int ValidateRecord(unsigned long /*mask*/, void* /*record*/) { return knobs().validateResult; }
    static unsigned int GetRecordSize(void* /*record*/, unsigned long* size) {
        *size = knobs().recordSize;
        return 0;
    }
    static unsigned int GetMaxRecordSize(unsigned long* size) {
        *size = knobs().maxSize;
        return 0;
    }
    static unsigned int PackRecord(void** buffer, void* previousImage) {
        std::string tail;
        if (previousImage != nullptr) {
            tail = BinImage(previousImage, binImageSize(previousImage)).tail;
        }
        const std::string image = binImage(*static_cast<const BinItem*>(*buffer), tail);
        if (image.size() > sizeof(BinItem)) {
            (void)ossMemFree(*buffer);
            *buffer = ossMemAlloc(image.size());
        }
        std::memcpy(*buffer, image.data(), image.size());
        return knobs().packResult;
    }
    static unsigned int UnpackRecord(void** buffer) {
        const BinItem item = BinImage(*buffer, binImageSize(*buffer)).item();
        std::memcpy(*buffer, &item, sizeof item);
        return knobs().unpackResult;
    }
    static unsigned int GetPackedRecordSize(void* packed, unsigned long* size) {
        *size = binImageSize(packed);
        return 0;
    }
    static unsigned int Log(GenRegBase* /*object*/, unsigned long operation, void* first, void* second) {
        const auto name = [](void* item) { return item == nullptr ? "-" : static_cast<BinItem*>(item)->name; };
        knobs().heard.push_back(std::to_string(operation) + " " + name(first) + " " + name(second));
        return knobs().logResult;
    }
    static unsigned int Notify() {
        knobs().heard.emplace_back("notified");
        return knobs().notifyResult;
    }
    static unsigned int CheckPacked(const void* image, unsigned long length) {
        return BinImage(image, length).whole ? 0 : 1;
    }
    static bool PackedMayMatch(unsigned long mask, const void* image, unsigned long length, const void* key) {
        BinItem item = BinImage(image, length).item();
        return (mask & ITEM_NAME) == 0 || std::strcmp(item.name, static_cast<const BinItem*>(key)->name) == 0;
    }
    static bool PacksAlike(const void* image, unsigned long length) {
        const BinImage parts(image, length);
        return binImage(parts.item(), parts.tail) == std::string(static_cast<const char*>(image), length);
    }
};

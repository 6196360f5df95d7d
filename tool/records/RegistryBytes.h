// The bytes of a binary registry, taken apart without opening it: whole, or as far as a damaged file lets one.
#pragma once

#include <genreg/GlobalRegFields.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Output.h"
#include "records/RecordFields.h"

namespace tool {

struct RecordItem {
    unsigned long bit;
    const GlobalRegField* field;  // null for an item of a later release
    std::size_t offset;           // of its length field within the image
    std::string bytes;
};

// A record of the global registry as its packed image tells it.
struct RecordImage {
    unsigned int type = 0;
    unsigned long fieldMask = 0;
    unsigned long missingFieldMask = 0;
    std::vector<RecordItem> items;  // up to the damage, if there is one
    int checksum = 0;
    std::optional<std::size_t> damage;  // offset within the image of what does not fit
};

[[nodiscard]] RecordImage decodeImage(std::string_view image);

[[nodiscard]] std::string versionText(unsigned long code);
// "instance", "service", "variable"; "unknown" for anything else.
[[nodiscard]] std::string recordTypeName(unsigned int type);
// For people. A text is quoted where it would not read as one word.
[[nodiscard]] std::string itemText(const RecordItem& item);
// Sets members[name] to the value of an item whose field is known: text, dotted version, number.
void putItem(Json& members, const std::string& name, const RecordItem& item);
[[nodiscard]] LaterItems laterItems(const RecordImage& image);
// The items of a record: by their names, and those of a later release as "unknown".
[[nodiscard]] Json itemsObject(const RecordImage& image);
// The field's name, or the bit of an item of a later release: "0x400".
[[nodiscard]] std::string itemName(const RecordItem& item);

// A stretch of the file: a frame, sound or with a record inside that does not fit; or bytes that are no frame.
struct RegistryPart {
    std::size_t offset = 0;
    std::size_t size = 0;
    bool framed = false;
    std::string_view payload;  // of a frame
    std::string damage;        // what is wrong; empty when nothing is
    std::size_t damageOffset = 0;
    unsigned int damageCode = 0;  // as the library answers it

    // Whether it is a frame of a record type that there is not.
    [[nodiscard]] bool isOfUnknownType() const;
};

enum class RegistryContent {
    GLOBAL,     // packed records of the global registry
    VARIABLES,  // binary variable/value records
    OTHER,      // records of a schema that is not known here: any payload is sound
};

struct RegistryHeader {
    std::string stated;  // digits, perhaps behind a minus
    int computed;
    bool fits;
};

struct RegistryDamage {
    std::size_t offset;  // of what does not fit, from the beginning of the file
    std::size_t part;    // of the part that it is in
    unsigned int code;   // as the library answers it
    std::string why;
};

// Views into the bytes that were given.
struct RegistryBytes {
    RegistryContent content = RegistryContent::OTHER;
    bool bigEndian = false;
    std::optional<RegistryHeader> header;
    std::vector<RegistryPart> parts;

    // In the order of the file: of the header, and of each part.
    [[nodiscard]] std::vector<RegistryDamage> damages() const;
    [[nodiscard]] bool isSound() const { return damages().empty(); }
};

// Where the records begin, and the byte order of their lengths.
struct RegistryLayout {
    std::size_t start = 0;
    bool bigEndian = false;
    std::optional<RegistryHeader> header;
};
[[nodiscard]] RegistryLayout layoutOf(std::string_view bytes);
// The features (REG_FEATURE_*) that an engine needs for the file. None for one that cannot be read: the engine says
// why.
[[nodiscard]] unsigned long layoutFeatures(const std::string& path);
// Of the frame at that place, which must be whole.
[[nodiscard]] std::size_t frameLength(std::string_view bytes, std::size_t at, bool bigEndian);

// "damaged in 2 places, the first at offset 58: ..."; of one that is not sound.
[[nodiscard]] std::string damageText(const RegistryBytes& bytes);
// Failure (damaged) that says so.
[[nodiscard]] Failure damageFailure(const std::string& path, const RegistryBytes& bytes);

// Takes the file apart. Behind damage it goes on at the next sound record. `expectGlobal`: what decides when nothing in
// the file says whose records they are.
[[nodiscard]] RegistryBytes takeApart(std::string_view bytes, bool expectGlobal);

}  // namespace tool

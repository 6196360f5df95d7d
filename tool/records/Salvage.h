// A binary registry out of its bytes, whole or as far as damage lets one: what frames there are, and behind damage the
// next sound one. What a header, a frame or an item is the library tells.
#pragma once

#include <genreg/GenRegBinVarVal.h>
#include <genreg/RegistryBytes.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "records/RecordFields.h"

namespace tool {

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

struct RegistryDamage {
    std::size_t offset;  // of what does not fit, from the beginning of the file
    std::size_t part;    // of the part that it is in
    unsigned int code;   // as the library answers it
    std::string why;
};

// Views into the bytes that were given.
struct SalvagedRegistry {
    RegistryContent content = RegistryContent::OTHER;
    GenRegLayout layout{};
    bool headerFits = true;
    std::vector<RegistryPart> parts;

    // The sound records of the global registry.
    [[nodiscard]] std::vector<FoundRecord> records() const;
    // In the order of the file: of the header, and of each part.
    [[nodiscard]] std::vector<RegistryDamage> damages() const;
    [[nodiscard]] bool isSound() const { return damages().empty(); }
    // The parts that are sound records.
    [[nodiscard]] std::vector<const RegistryPart*> sound() const;
    // The bytes of a registry of those alone, with a checksum header that fits where there was one. `bytes` are those
    // that were taken apart.
    [[nodiscard]] std::string rescued(std::string_view bytes) const;
};

// A binary registry has a NUL near its beginning, in the length of the first frame or at the end of a checksum header.
// Text has none, or further on by accident.
[[nodiscard]] bool isBinary(std::string_view bytes);

// The features (REG_FEATURE_*) that an engine needs for the file. None for one that cannot be read: the engine says
// why.
[[nodiscard]] unsigned long layoutFeatures(const std::string& path);

// The record of a payload that is one of a binary variable: of the right size, with a name, both texts ended.
[[nodiscard]] std::optional<GenRegBinVarValRecord> variableOf(std::string_view payload);

// "damaged in 2 places, the first at offset 58: ..."; of one that is not sound.
[[nodiscard]] std::string damageText(const SalvagedRegistry& registry);
// Failure (damaged) that says so.
[[nodiscard]] Failure damageFailure(const std::string& path, const SalvagedRegistry& registry);

// Takes the file apart. Behind damage it goes on at the next sound record. `expectGlobal`: what decides when nothing in
// the file says whose records they are.
[[nodiscard]] SalvagedRegistry takeApart(std::string_view bytes, bool expectGlobal);
// The same, for those who put the registry to rights: a frame of a length that no writer gives it is damage too, where
// nothing else tells what a record is. `expected`: what decides when nothing in the file says whose records they are.
// Time and memory grow with the bytes, whatever they are.
[[nodiscard]] SalvagedRegistry salvage(std::string_view bytes, RegistryContent expected);

}  // namespace tool

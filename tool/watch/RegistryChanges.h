// What changed between two readings of the global registry.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "records/RegistryBytes.h"

namespace tool {

// Records by key, in the order of the file. Keys are not for showing.
using RegistryRecords = std::vector<std::pair<std::string, RecordImage>>;

// The sound records of the bytes. Records that share a key, which no writer of the library leaves, are told apart by
// their order.
[[nodiscard]] RegistryRecords recordsOf(const RegistryBytes& bytes);

struct RegistryChange {
    std::optional<RecordImage> before;  // none: it was added
    std::optional<RecordImage> after;   // none: it was deleted

    [[nodiscard]] const RecordImage& record() const { return after ? *after : *before; }
    [[nodiscard]] const char* action() const { return !before ? "add" : !after ? "delete" : "change"; }
};

// Deletions first. Records are alike when they have the same fields with the same values.
[[nodiscard]] std::vector<RegistryChange> changesBetween(const RegistryRecords& before, const RegistryRecords& after);

// "action", "type", "key", "changed" (names of fields), "before" and "after", null where there is none.
[[nodiscard]] Json changeObject(const RegistryChange& change);
// "changed  instance RVN 9.7.0.2 inst1  startAtBoot: 0 -> 1".
[[nodiscard]] std::string changeText(const RegistryChange& change);
// The values of the record's key, in order: service and version or name, and so on.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> keyValues(const RecordImage& record);

}  // namespace tool

// Binary registries as records, read from their bytes: what is sound in a damaged file too, and how two files differ.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Diff.h"
#include "base/Output.h"
#include "base/Update.h"
#include "records/RecordFields.h"
#include "records/RegistryBytes.h"

namespace tool {

// What the bytes are made of, and the sound records of the global registry among them.
struct RecordFile {
    RegistryBytes bytes;
    std::vector<FoundRecord> records;
};

// A binary registry has a NUL near its beginning, in the length of the first frame or at the end of a checksum header.
// Text has none, or further on by accident.
[[nodiscard]] bool isBinary(std::string_view bytes);

// Views into the bytes that were given. `expectGlobal` as for takeApart.
[[nodiscard]] RecordFile parseRecords(std::string_view bytes, bool expectGlobal);

// The differences by key. For people: records only in the one (-) or the other (+), and fields old -> new (~). False
// when there are none: what differs then are the order of records or notes that mean nothing to readers.
bool printRecordDifference(Output& output, const Difference& difference);
// For programs: an object for each record that differs: "op" (remove, insert, change), the record or its key, and the
// "changes" of a changed one.
[[nodiscard]] std::vector<Json> recordDifferenceObjects(const Difference& difference);

// A change of the global registry, which has its folder made and whose difference is shown record by record. It has yet
// to be told how it is made.
[[nodiscard]] Change changeOfRecords(const std::string& path, const std::string& doing, const Json& result);

}  // namespace tool

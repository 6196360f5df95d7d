// Binary registries as records, read from their bytes: what is sound in a damaged file too, and how two files differ.
#pragma once

#include <genreg/GlobalRegRecord.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Diff.h"
#include "Output.h"

namespace tool {

struct FoundRecord {
    std::size_t offset;  // of its frame
    GlobalRegRecord record;
    std::map<unsigned long, std::string> later;  // the items of a later release's fields, by their bits
};

struct BadFrame {
    std::size_t offset;  // of what does not fit, from the beginning of the file
    std::size_t frame;   // of the frame that it is in
    unsigned int code;   // as the library answers it
    std::string why;
};

struct RecordFile {
    std::vector<FoundRecord> records;
    std::vector<BadFrame> unknown;  // sound frames, of a type that there is not
    std::vector<BadFrame> damaged;
    std::vector<BadFrame> header;  // one when the checksum header does not fit

    // All of these in one. unknownToo: where frames of unknown types are damage.
    [[nodiscard]] std::vector<BadFrame> bad(bool unknownToo) const;
};

// A binary registry has a NUL near its beginning, in the length of the first frame or at the end of a checksum header.
// Text has none, or further on by accident.
[[nodiscard]] bool isBinary(std::string_view bytes);

[[nodiscard]] RecordFile parseRecords(std::string_view bytes);

// Failure (damaged): where the first bad frame of the file stands, and how many there are.
[[nodiscard]] Failure damageFailure(const std::string& path, const std::vector<BadFrame>& frames);

// The differences by key. For people: records only in the one (-) or the other (+), and fields old -> new (~). False
// when there are none: what differs then are the order of records or notes that mean nothing to readers.
bool printRecordDifference(Output& output, const Difference& difference);
// For programs: an object for each record that differs: "op" (remove, insert, change), the record or its key, and the
// "changes" of a changed one.
[[nodiscard]] std::vector<Json> recordDifferenceObjects(const Difference& difference);

}  // namespace tool

// A line of the change log, taken apart again. Texts stand in it as they are, so that a comma or an exclamation mark
// within one may leave several readings of the record: then it is told as text.
#pragma once

#include <genreg/GlobalRegFields.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/RecordFields.h"

namespace tool {

struct LoggedRecord {
    unsigned int type = 0;
    // Absent and empty look alike in the log; either is none.
    std::vector<std::pair<const GlobalRegField*, std::optional<std::string>>> fields;
};

struct ChangeLogLine {
    std::string time;
    std::string caller;
    long pid = 0;
    long user = 0;
    std::string level;
    std::string fixpack;
    std::string path;
    std::string action;
    std::optional<std::string> commandLine;
    std::string recordText;
    std::optional<LoggedRecord> record;     // the key, of a change
    std::optional<LoggedRecord> newRecord;  // of a change
};

[[nodiscard]] std::optional<ChangeLogLine> parseChangeLogLine(std::string_view line);

}  // namespace tool

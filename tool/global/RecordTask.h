// What a command on records of the global registry works on, and what every one of them answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Command.h"
#include "records/RecordFields.h"

namespace tool {

struct RecordArguments {
    unsigned int type;               // GLOBALREG_*
    std::vector<std::string> key{};  // the key's fields in their order; those that were not given are empty
    std::vector<std::string> words{};
    std::optional<std::string> valueFrom{};
    bool ifPresent = false;
};

struct RecordTask {
    Context& context;
    const RecordKind& kind;
    std::string path;
    GlobalRegRecord key;  // only the key's fields, as far as they were given
    std::string doing;    // "set instance RVN 9.7.0.2 inst1"
};

// Throws a Failure for a key that no record has.
[[nodiscard]] RecordTask taskOf(Context& context, const RecordArguments& arguments, const char* verb);

// "genreg instance list".
[[nodiscard]] std::string commandFor(const RecordTask& task, std::string_view verb);

[[nodiscard]] std::vector<const GlobalRegField*> keyFieldsOf(const RecordKind& kind);
// Throws a Failure (usage) with the nearest name. offered: which fields it names, where those of the key are no answer.
enum class OfferedFields { BESIDE_KEY, ALL };
[[nodiscard]] const GlobalRegField& fieldNamed(const RecordKind& kind, const std::string& name,
                                               OfferedFields offered = OfferedFields::BESIDE_KEY);

// Every record of that file, which must be there.
[[nodiscard]] std::vector<FoundRecord> recordsOf(const RecordTask& task, const std::string& path);
// Those of the task's key.
[[nodiscard]] std::vector<FoundRecord> meant(const RecordTask& task, const std::vector<FoundRecord>& records);
// The answer where there are none; a name that is near is named.
[[nodiscard]] Failure notFound(const RecordTask& task, const std::vector<FoundRecord>& records);

int setRecord(Context& context, const RecordArguments& arguments);
int removeRecords(Context& context, const RecordArguments& arguments);

}  // namespace tool

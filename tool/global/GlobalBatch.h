// Changes of the global registry that are committed as one, and what each of them did.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/BatchFile.h"
#include "base/Command.h"
#include "global/GlobalRegistry.h"
#include "records/RecordChanges.h"

namespace tool {

// A change as a batch asks for it: the key, the fields to set (or, without a text, to remove), and what it expects.
struct AskedChange {
    BatchItem item;
    GlobalRegRecord key;
    std::vector<std::pair<const GlobalRegField*, std::optional<std::string>>> fields;
    std::vector<std::pair<const GlobalRegField*, std::optional<std::string>>> expected;
    std::optional<LaterItems> later;  // none: as they stand
    bool whole = false;               // fields that are not named are removed
};

// All of a batch, checked. Throws a Failure that names the line.
[[nodiscard]] std::vector<AskedChange> readChanges(const std::string& source);

class GlobalBatch {
public:
    // Takes the lock and reads the file at the path, which need not exist. Throws a Failure.
    GlobalBatch(const Context& context, const std::string& path, bool rehearsal, std::string doing);

    // Each throws a Failure, and nothing of the batch is to be committed then.
    MadeRecord make(const AskedChange& asked);
    // Deletes every record but those of these changes.
    std::vector<MadeRecord> deleteOthers(const std::vector<AskedChange>& asked);

    // False when everything is as it was: nothing is written then.
    bool commit();

private:
    using Records = std::multimap<std::string, FoundRecord>;

    [[nodiscard]] Records::iterator find(const AskedChange& asked);
    void expect(const AskedChange& asked, const FoundRecord& found) const;
    [[nodiscard]] FoundRecord edited(const AskedChange& asked, const std::optional<FoundRecord>& found) const;
    void answered(unsigned int code) const;

    GlobalRegistry registry_;
    std::string path_;
    std::string doing_;
    Records records_;  // by their keys
};

}  // namespace tool

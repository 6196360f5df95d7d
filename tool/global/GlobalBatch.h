// Changes of the global registry that are committed as one, and what each of them did.
#pragma once

#include <deque>
#include <functional>
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
// A record is large: they stay where they are.
using AskedChanges = std::deque<AskedChange>;
[[nodiscard]] AskedChanges readChanges(const std::string& source);
// A record as export prints it, whatever its texts hold. Failures call it by the source, which must outlive what comes
// of it, and the number.
[[nodiscard]] AskedChange changeOf(const std::string& source, std::size_t number, const Json& record);
// The record that the change makes: of the one that is there, or a new one.
[[nodiscard]] FoundRecord recordOf(const AskedChange& asked, const std::optional<FoundRecord>& found = {});

class GlobalBatch {
public:
    // Is shown what became of a record.
    using Taker = std::function<void(const MadeRecord& made)>;

    // Takes the lock and reads the file at the path, which need not exist. Throws a Failure.
    GlobalBatch(const Context& context, const std::string& path, bool rehearsal, std::string doing);

    // Each throws a Failure, and nothing of the batch is to be committed then.
    void make(const AskedChange& asked, const Taker& take);
    // Deletes every record but those of these changes, and answers how many.
    std::size_t deleteOthers(const AskedChanges& asked, const Taker& take);

    // False when everything is as it was: nothing is written then.
    bool commit();

private:
    using Records = std::multimap<std::string, FoundRecord>;

    [[nodiscard]] Records::iterator find(const AskedChange& asked);
    void expect(const AskedChange& asked, const FoundRecord& found) const;
    void answered(unsigned int code) const;

    GlobalRegistry registry_;
    std::string path_;
    std::string doing_;
    Records records_;  // by their keys
};

}  // namespace tool

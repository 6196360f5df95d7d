// What the commands on entries do, whatever the schema.
#pragma once

#include "base/Update.h"
#include "entries/EntrySchema.h"

namespace tool {

// Those whose name the pattern fits; an empty one fits all.
int listEntries(Context& context, const EntrySchema& schema, const std::string& file, const std::string& pattern);
// The first entry, or every one; the type may be empty.
int getEntries(Context& context, const EntrySchema& schema, const EntryRequest& request, bool every,
               const std::string& type);
// What somebody else changes meanwhile stays, but for the fields that are asked for: those are a conflict.
int setEntry(Context& context, const EntrySchema& schema, const EntryRequest& request);
int addEntry(Context& context, const EntrySchema& schema, const EntryRequest& request);
int deleteEntry(Context& context, const EntrySchema& schema, const EntryRequest& request);

// All entries of a file that must be there.
[[nodiscard]] std::vector<Entry> entriesOf(const EntrySchema& schema, const std::string& file,
                                           const std::string& doing);

// A change whose difference is shown as the schema shows it. It has yet to be told how it is made and told.
[[nodiscard]] Change changeOfEntries(const EntrySchema& schema, const std::string& file, const std::string& doing);

// Makes a change of lines, which would damage a file of records: refused there.
int carryOutOnText(Context& context, const Change& change);

}  // namespace tool

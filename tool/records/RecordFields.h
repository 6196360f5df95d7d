// The records of the global registry for people and programs: fields by name, values as text and as JSON.
#pragma once

#include <genreg/GlobalRegFields.h>

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Output.h"

namespace tool {

struct RecordKind {
    unsigned int type;  // GLOBALREG_*
    std::string_view name;
    unsigned long keyFields;
    std::span<const GlobalRegField> fields;
    unsigned long known;  // the bits of all fields
};

// The items of fields that a later release defines, by their bits: carried along and shown as bytes.
using LaterItems = std::map<unsigned long, std::string>;

// A record as it was found in a file.
struct FoundRecord : GlobalRegRecord {
    LaterItems later;
};

// Null for a type that there is not.
[[nodiscard]] const RecordKind* findKind(unsigned int type);
[[nodiscard]] const RecordKind& kindOf(unsigned int type);

[[nodiscard]] bool has(const GlobalRegRecord& record, const GlobalRegField& field);
// An item of a later release for people, where fields have name and value: "0x400" and "01ff".
[[nodiscard]] std::string laterName(unsigned long bit);
[[nodiscard]] std::string laterCell(std::string_view bytes);
[[nodiscard]] std::string laterCell(const LaterItems& items, unsigned long bit);
// The member "unknown" of an object: what the item's bit and bytes are. No item leaves the object as it is.
void putLater(Json& object, const LaterItems& items);

// As `set` takes it, versions dotted; none for an absent field.
[[nodiscard]] std::optional<std::string> valueText(const GlobalRegRecord& record, const GlobalRegField& field);
// A cell of a table.
[[nodiscard]] std::string valueCell(const GlobalRegRecord& record, const GlobalRegField& field);
// The value under that name; an absent field leaves the object as it is.
void putField(Json& object, const std::string& name, const GlobalRegRecord& record, const GlobalRegField& field);
// "type" and the fields that are there; only those of the mask. With every field, the items of a later release, too.
[[nodiscard]] Json recordObject(const GlobalRegRecord& record, unsigned long mask = ~0UL);
[[nodiscard]] Json recordObject(const FoundRecord& found);
// "instance RVN 9.7.0.2 inst1", printable.
[[nodiscard]] std::string keyText(const GlobalRegRecord& record);

// Whether all fields of the mask have the same value; an absent text is empty, an absent number 0.
[[nodiscard]] bool sameValues(const GlobalRegRecord& a, const GlobalRegRecord& b, unsigned long mask);

// Sets a field from its text. Throws a Failure (invalid) that names the field and its limit.
void setField(GlobalRegRecord& record, const GlobalRegField& field, const std::string& text);
void removeField(GlobalRegRecord& record, const GlobalRegField& field);

}  // namespace tool

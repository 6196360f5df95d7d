// The records of the global registry for people and programs: fields by name, values as text and as JSON. Whoever shows
// a record asks here how.
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
    unsigned long keyFields;  // bits
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
// "instance", "service", "variable"; "unknown" for anything else.
[[nodiscard]] std::string recordTypeName(unsigned int type);

// The record of an image, up to the damage if there is one.
[[nodiscard]] FoundRecord recordOfImage(std::string_view image);
[[nodiscard]] LaterItems laterItems(std::string_view image);
// Shows `visit` the items of an image in front of the damage.
template <typename Visit>
void eachItem(std::string_view image, Visit visit) {
    for (GlobalRegItem item{}; globalRegNextItem(image.data(), image.size(), &item) == 0;) {
        visit(item);
    }
}
[[nodiscard]] std::string_view bytesOf(const GlobalRegItem& item);
// The field's name, or the bit of an item of a later release: "0x400".
[[nodiscard]] std::string itemName(const GlobalRegItem& item);

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
// For a line of several values: quoted where it would not read as one word.
[[nodiscard]] std::string valueWord(const GlobalRegRecord& record, const GlobalRegField& field);
// The value under that name; an absent field leaves the object as it is.
void putField(Json& object, const std::string& name, const GlobalRegRecord& record, const GlobalRegField& field);
// The fields that are there; only those of the mask.
void putFields(Json& object, const GlobalRegRecord& record, unsigned long mask = ~0UL);
// "type" and the fields. With every field, the items of a later release, too.
[[nodiscard]] Json recordObject(const GlobalRegRecord& record, unsigned long mask = ~0UL);
[[nodiscard]] Json recordObject(const FoundRecord& found);
[[nodiscard]] std::string versionText(unsigned long code);
// "instance RVN 9.7.0.2 inst1", printable.
[[nodiscard]] std::string keyText(const GlobalRegRecord& record);

// Type and key fields, the same for records of one key and for no others; not for people.
[[nodiscard]] std::string keyBytes(const GlobalRegRecord& record);
// Of the service record that an instance belongs to.
[[nodiscard]] std::string keyBytesOfService(const GlobalRegRecord& instance);

// Whether all fields of the mask have the same value; an absent text is empty, an absent number 0.
[[nodiscard]] bool sameValues(const GlobalRegRecord& a, const GlobalRegRecord& b, unsigned long mask);

// Sets a field from its text. Throws a Failure (invalid) that names the field and its limit.
void setField(GlobalRegRecord& record, const GlobalRegField& field, const std::string& text);
void removeField(GlobalRegRecord& record, const GlobalRegField& field);

}  // namespace tool

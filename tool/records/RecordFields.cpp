#include "records/RecordFields.h"

#include <fmt/core.h>
#include <genreg/VersionCodes.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "base/Failure.h"
#include "base/Text.h"

namespace tool {
namespace {

constexpr std::size_t VERSION_TEXT_SIZE = 24;

RecordKind makeKind(unsigned int type, std::string_view name) {
    unsigned long count = 0;
    const GlobalRegField* fields = globalRegFields(type, &count);
    RecordKind kind{type, name, 0, {fields, count}, 0};
    for (const GlobalRegField& field : kind.fields) {
        kind.known |= field.bit;
        kind.keyFields |= field.key ? field.bit : 0;
    }
    return kind;
}

const char* memberOf(const GlobalRegRecord& record, const GlobalRegField& field) {
    return reinterpret_cast<const char*>(&record) + field.offset;
}

char* memberOf(GlobalRegRecord& record, const GlobalRegField& field) {
    return reinterpret_cast<char*>(&record) + field.offset;
}

template <typename Number>
Number numberOf(const GlobalRegRecord& record, const GlobalRegField& field) {
    Number number{};
    std::memcpy(&number, memberOf(record, field), sizeof number);
    return number;
}

std::string textOf(const GlobalRegRecord& record, const GlobalRegField& field) {
    const char* text = memberOf(record, field);
    return {text, strnlen(text, field.capacity)};
}

Failure invalid(const GlobalRegField& field, unsigned int code, const std::string& why, std::string hint) {
    Failure failure;
    failure.kind = "invalid";
    failure.exitStatus = EXIT_INVALID;
    failure.code = code;
    failure.message = fmt::format("{} {}", field.name, why);
    failure.hint = std::move(hint);
    return failure;
}

// The library takes what it can from a text; here nothing may be cut off or wrap around.
bool isVersion(std::string_view text) {
    for (std::size_t part = 0; part < 4; ++part) {
        unsigned short number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc()) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (text.empty()) {
            return true;
        }
        if (text.front() != '.') {
            return false;
        }
        text.remove_prefix(1);
    }
    return false;
}

unsigned long parsedVersion(const GlobalRegField& field, const std::string& text) {
    unsigned long code = 0;
    if (!isVersion(text) || text.size() >= VERSION_TEXT_SIZE || ossVersionStringToCode(text.c_str(), &code) != 0) {
        throw invalid(field, REG_VERSION_INVALID, fmt::format("is no version: {}", cell(text)),
                      "one to four numbers up to 65535: 9.7.0.2");
    }
    return code;
}

// A number with a rule is a yes or no.
int parsedSwitch(const GlobalRegField& field, const std::string& text) {
    std::string word = text;
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (word == "1" || word == "yes" || word == "true") {
        return 1;
    }
    if (word == "0" || word == "no" || word == "false") {
        return 0;
    }
    throw invalid(field, field.refusedCode, fmt::format("is either 0 or 1, not {}", cell(text)), "yes or no");
}

int parsedNumber(const GlobalRegField& field, const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        using Limits = std::numeric_limits<int>;
        throw invalid(field, REG_RECORD_REFUSED,
                      fmt::format("is a number from {} to {}, not {}", Limits::min(), Limits::max(), cell(text)),
                      "a number within the range");
    }
    return number;
}

void setText(GlobalRegRecord& record, const GlobalRegField& field, const std::string& text) {
    if (text.size() >= field.capacity) {
        throw invalid(field, REG_RECORD_REFUSED,
                      fmt::format("has room for {} bytes, and this text has {}", field.capacity - 1, text.size()),
                      "shorten it");
    }
    std::memcpy(memberOf(record, field), text.data(), text.size());
}

template <typename Number>
void setNumber(GlobalRegRecord& record, const GlobalRegField& field, Number number) {
    static_assert(std::is_integral_v<Number>);
    std::memcpy(memberOf(record, field), &number, sizeof number);
}

// The key that a record of the kind has with the values that this one has under the names of its fields.
std::string keyBytesAs(const RecordKind& kind, const GlobalRegRecord& record) {
    std::string key(kind.name);
    for (const GlobalRegField& named : kind.fields) {
        const bool counts = (kind.keyFields & named.bit) != 0;
        for (const GlobalRegField& field :
             counts ? kindOf(record.recordType).fields : std::span<const GlobalRegField>()) {
            if (std::string_view(field.name) == named.name) {
                key += '\0';
                key += valueText(record, field).value_or("");
            }
        }
    }
    return key;
}

}  // namespace

const RecordKind* findKind(unsigned int type) {
    static const RecordKind kinds[] = {makeKind(GLOBALREG_SERVICE, "service"), makeKind(GLOBALREG_INSTANCE, "instance"),
                                       makeKind(GLOBALREG_VARIABLE, "variable")};
    const auto* found =
        std::find_if(std::begin(kinds), std::end(kinds), [&](const RecordKind& kind) { return kind.type == type; });
    return found == std::end(kinds) ? nullptr : found;
}

const RecordKind& kindOf(unsigned int type) {
    const RecordKind* kind = findKind(type);
    if (kind == nullptr) {
        throw std::logic_error(fmt::format("record type {}", type));
    }
    return *kind;
}

std::string recordTypeName(unsigned int type) {
    const RecordKind* kind = findKind(type);
    return std::string(kind == nullptr ? "unknown" : kind->name);
}

FoundRecord recordOfImage(std::string_view image) {
    FoundRecord record;
    (void)globalRegReadImage(image.data(), image.size(), &record);
    record.later = laterItems(image);
    return record;
}

LaterItems laterItems(std::string_view image) {
    LaterItems later;
    eachItem(image, [&](const GlobalRegItem& item) {
        if (item.field == nullptr) {
            later[item.bit] = bytesOf(item);
        }
    });
    return later;
}

std::string_view bytesOf(const GlobalRegItem& item) {
    return {static_cast<const char*>(item.bytes), item.length};
}

std::string itemName(const GlobalRegItem& item) {
    return item.field == nullptr ? laterName(item.bit) : item.field->name;
}

bool has(const GlobalRegRecord& record, const GlobalRegField& field) {
    return (record.fieldMask & field.bit) != 0;
}

std::string laterName(unsigned long bit) {
    return fmt::format("{:#x}", bit);
}

std::string laterCell(std::string_view bytes) {
    return cell(hexDigits(bytes));
}

std::string laterCell(const LaterItems& items, unsigned long bit) {
    const auto item = items.find(bit);
    return item == items.end() ? std::string(ABSENT) : laterCell(item->second);
}

void putLater(Json& object, const LaterItems& items) {
    for (const auto& [bit, bytes] : items) {
        object["unknown"].push_back({{"bit", laterName(bit)}, {"base64", base64(bytes)}});
    }
}

std::optional<std::string> valueText(const GlobalRegRecord& record, const GlobalRegField& field) {
    if (!has(record, field)) {
        return std::nullopt;
    }
    switch (field.kind) {
        case GLOBALREG_FIELD_TEXT:
            return textOf(record, field);
        case GLOBALREG_FIELD_VERSION:
            return versionText(numberOf<unsigned long>(record, field));
        case GLOBALREG_FIELD_NUMBER:
            return fmt::format("{}", numberOf<int>(record, field));
        default:
            return std::string(1, *memberOf(record, field));
    }
}

std::string valueCell(const GlobalRegRecord& record, const GlobalRegField& field) {
    const auto value = valueText(record, field);
    if (!value) {
        return std::string(ABSENT);
    }
    // A lone "-" is quoted to tell it from an absent one; a blank flag would not be seen.
    return *value == " " ? "\" \"" : cell(*value);
}

std::string valueWord(const GlobalRegRecord& record, const GlobalRegField& field) {
    const auto value = valueText(record, field);
    if (!value) {
        return std::string(ABSENT);
    }
    const bool plain = field.kind != GLOBALREG_FIELD_TEXT ||
                       (value->find_first_of(" ,=\"\\") == std::string::npos && printable(*value) == *value);
    return plain ? cell(*value) : tool::quoted(*value);
}

void putField(Json& object, const std::string& name, const GlobalRegRecord& record, const GlobalRegField& field) {
    const auto value = valueText(record, field);
    if (!value) {
        return;
    }
    if (field.kind == GLOBALREG_FIELD_NUMBER) {
        object[name] = numberOf<int>(record, field);
    } else {
        putText(object, name, *value);
    }
}

void putFields(Json& object, const GlobalRegRecord& record, unsigned long mask) {
    for (const GlobalRegField& field : kindOf(record.recordType).fields) {
        if ((mask & field.bit) != 0) {
            putField(object, field.name, record, field);
        }
    }
}

Json recordObject(const GlobalRegRecord& record, unsigned long mask) {
    Json object{{"type", kindOf(record.recordType).name}};
    putFields(object, record, mask);
    return object;
}

Json recordObject(const FoundRecord& found) {
    Json object = recordObject(static_cast<const GlobalRegRecord&>(found));
    putLater(object, found.later);
    return object;
}

std::string versionText(unsigned long code) {
    char text[VERSION_TEXT_SIZE] = "";
    (void)ossVersionCodeToString(code, text, sizeof text);
    return text;
}

std::string keyText(const GlobalRegRecord& record) {
    const RecordKind& kind = kindOf(record.recordType);
    std::string text(kind.name);
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) != 0 && has(record, field)) {
            text += " " + valueCell(record, field);
        }
    }
    return text;
}

std::string keyBytes(const GlobalRegRecord& record) {
    return keyBytesAs(kindOf(record.recordType), record);
}

std::string keyBytesOfService(const GlobalRegRecord& instance) {
    return keyBytesAs(kindOf(GLOBALREG_SERVICE), instance);
}

bool sameValues(const GlobalRegRecord& a, const GlobalRegRecord& b, unsigned long mask) {
    const auto same = [&](const GlobalRegField& field) {
        if ((mask & field.bit) == 0) {
            return true;
        }
        return field.kind == GLOBALREG_FIELD_TEXT
                   ? std::strncmp(memberOf(a, field), memberOf(b, field), field.capacity) == 0
                   : std::memcmp(memberOf(a, field), memberOf(b, field), field.capacity) == 0;
    };
    const auto fields = kindOf(a.recordType).fields;
    return a.recordType == b.recordType && std::all_of(fields.begin(), fields.end(), same);
}

void setField(GlobalRegRecord& record, const GlobalRegField& field, const std::string& text) {
    removeField(record, field);
    switch (field.kind) {
        case GLOBALREG_FIELD_TEXT:
            setText(record, field, text);
            break;
        case GLOBALREG_FIELD_VERSION:
            setNumber(record, field, parsedVersion(field, text));
            break;
        case GLOBALREG_FIELD_NUMBER:
            setNumber(record, field, field.refusedCode != 0 ? parsedSwitch(field, text) : parsedNumber(field, text));
            break;
        default:
            if (text.size() != 1) {
                throw invalid(field, REG_RECORD_REFUSED, fmt::format("is one byte, not {}", cell(text)),
                              "a single letter or digit");
            }
            *memberOf(record, field) = text[0];
    }
    record.fieldMask |= field.bit;
}

void removeField(GlobalRegRecord& record, const GlobalRegField& field) {
    std::memset(memberOf(record, field), 0, field.capacity);
    record.fieldMask &= ~field.bit;
}

}  // namespace tool

#include "records/RegistryBytes.h"

#include <fmt/core.h>
#include <genreg/Constants.h>
#include <genreg/RegistryBytes.h>
#include <genreg/VersionCodes.h>

#include <algorithm>
#include <bit>

#include "base/DiskFiles.h"
#include "base/Text.h"

namespace tool {
namespace {

constexpr std::size_t LENGTH_SIZE = 4;

constexpr std::size_t MASK_OFFSET = 4;
constexpr std::size_t MISSING_OFFSET = 12;
constexpr std::size_t ITEMS_OFFSET = 20;
constexpr std::size_t ITEM_LENGTH_SIZE = 2;
constexpr std::size_t IMAGE_CHECKSUM_SIZE = 4;
constexpr std::size_t LEAST_IMAGE = ITEMS_OFFSET + IMAGE_CHECKSUM_SIZE;
constexpr unsigned int ITEM_BITS = 63;

constexpr std::size_t VARIABLE_SIZE = 36;
constexpr std::size_t VARIABLE_TEXT = 16;
constexpr std::size_t VARIABLE_COMMENT = 20;

unsigned long little(std::string_view bytes) {
    unsigned long value = 0;
    for (std::size_t i = std::min<std::size_t>(bytes.size(), sizeof value); i > 0; --i) {
        value = value << 8U | static_cast<unsigned char>(bytes[i - 1]);
    }
    return value;
}

std::string_view textOf(std::string_view bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

bool isVariable(std::string_view payload) {
    return payload.size() == VARIABLE_SIZE && payload[0] != '\0' &&
           payload.substr(0, VARIABLE_TEXT).find('\0') != std::string_view::npos &&
           payload.substr(VARIABLE_COMMENT).find('\0') != std::string_view::npos;
}

bool isGlobal(std::string_view payload) {
    return globalRegCheckImage(payload.data(), payload.size(), nullptr) == 0;
}

// Whether it is a record of the global registry by its first words, sound or not: of a known type, with a key.
bool saysGlobal(std::string_view payload) {
    if (payload.size() < LEAST_IMAGE) {
        return false;
    }
    const RecordKind* kind = findKind(static_cast<unsigned int>(little(payload.substr(0, MASK_OFFSET))));
    return kind != nullptr && (~little(payload.substr(MASK_OFFSET, sizeof kind->keyFields)) & kind->keyFields) == 0;
}

// The records behind the header, of one byte order.
class Body {
public:
    Body(std::string_view bytes, std::size_t start, bool bigEndian)
        : bytes_(bytes), start_(start), bigEndian_(bigEndian) {}

    // Follows the lengths. Whether they lead to the end; `visit` is given each payload on the way.
    template <typename Visit>
    bool follow(Visit visit) const {
        std::size_t at = start_;
        while (at < bytes_.size() && fits(at)) {
            visit(payloadAt(at));
            at += LENGTH_SIZE + lengthAt(at);
        }
        return at == bytes_.size();
    }
    [[nodiscard]] bool fits(std::size_t at) const {
        return bytes_.size() - at >= LENGTH_SIZE && lengthAt(at) <= bytes_.size() - at - LENGTH_SIZE;
    }
    [[nodiscard]] std::size_t lengthAt(std::size_t at) const { return frameLength(bytes_, at, bigEndian_); }
    [[nodiscard]] std::string_view payloadAt(std::size_t at) const {
        return bytes_.substr(at + LENGTH_SIZE, lengthAt(at));
    }
    [[nodiscard]] std::size_t start() const { return start_; }
    [[nodiscard]] std::size_t end() const { return bytes_.size(); }

    // Where the next sound record from there on begins; the limit when there is none before it.
    [[nodiscard]] std::size_t search(std::size_t at, std::size_t limit, bool (*sound)(std::string_view)) const {
        while (at < limit && !(fits(at) && sound(payloadAt(at)))) {
            ++at;
        }
        return std::min(at, limit);
    }

private:
    std::string_view bytes_;
    std::size_t start_;
    bool bigEndian_;
};

RegistryContent judge(const Body& body, bool expectGlobal) {
    bool anyGlobal = false;
    bool anySaysGlobal = false;
    bool anyFrame = false;
    bool allVariables = true;
    const bool complete = body.follow([&](std::string_view payload) {
        anyFrame = true;
        anyGlobal = anyGlobal || isGlobal(payload);
        anySaysGlobal = anySaysGlobal || saysGlobal(payload);
        allVariables = allVariables && isVariable(payload);
    });
    if (anyGlobal || (!complete && body.search(body.start(), body.end(), isGlobal) != body.end())) {
        return RegistryContent::GLOBAL;
    }
    if ((anyFrame && allVariables) || (!complete && body.search(body.start(), body.end(), isVariable) != body.end())) {
        return RegistryContent::VARIABLES;
    }
    return expectGlobal || anySaysGlobal ? RegistryContent::GLOBAL : RegistryContent::OTHER;
}

// What a payload that is not sound has wrong, and where within it.
std::string payloadDamage(RegistryContent content, std::string_view payload, std::size_t* where) {
    *where = 0;
    if (content != RegistryContent::GLOBAL) {
        return payload.size() == VARIABLE_SIZE ? "name or comment has no end" : "this is no variable of 36 bytes";
    }
    if (payload.size() < LEAST_IMAGE) {
        return fmt::format("the record is too short: {}", counted(payload.size(), "byte"));
    }
    const RecordImage image = decodeImage(payload);
    *where = image.damage.value_or(0);
    if (recordTypeName(image.type) == "unknown") {
        return fmt::format("there is no record type {}", image.type);
    }
    const auto expected = static_cast<std::size_t>(std::popcount(image.fieldMask << 1U));
    if (image.items.size() == expected) {
        return "the record ends before its frame does";
    }
    return image.items.empty() ? "the first field does not fit"
                               : fmt::format("the field behind {} does not fit", itemName(image.items.back()));
}

class Dissection {
public:
    Dissection(const Body& body, RegistryContent content) : body_(body), content_(content) {}

    std::vector<RegistryPart> parts() {
        for (std::size_t at = body_.start(); at < body_.end();) {
            at = takePart(at);
        }
        return std::move(parts_);
    }

private:
    [[nodiscard]] bool sound(std::string_view payload) const {
        return content_ == RegistryContent::OTHER ||
               (content_ == RegistryContent::GLOBAL ? isGlobal(payload) : isVariable(payload));
    }
    // The next sound record between the two, or the latter.
    [[nodiscard]] std::size_t search(std::size_t at, std::size_t limit) const {
        return content_ == RegistryContent::OTHER
                   ? limit
                   : body_.search(at, limit, content_ == RegistryContent::GLOBAL ? isGlobal : isVariable);
    }
    // Whether the length of a frame whose record is not sound may be believed: it leads to the end or to a sound
    // record, and past none.
    [[nodiscard]] bool isCredible(std::size_t at, std::size_t next) const {
        const bool leadsOn = next == body_.end() || (body_.fits(next) && sound(body_.payloadAt(next)));
        return leadsOn && search(at + 1, next) == next;
    }

    std::size_t takePart(std::size_t at) {
        RegistryPart part;
        part.offset = at;
        part.damageOffset = at;
        part.damageCode = REG_FRAME_TRUNCATED;
        std::size_t next = body_.end();
        if (body_.fits(at)) {
            const std::string_view payload = body_.payloadAt(at);
            const bool good = sound(payload);
            next = at + LENGTH_SIZE + payload.size();
            part.framed = good || isCredible(at, next);
            part.payload = part.framed ? payload : std::string_view();
            if (!part.framed) {
                part.damage = fmt::format("the length says {}, where no record ends", counted(payload.size(), "byte"));
            } else if (!good) {
                std::size_t where = 0;
                part.damage = payloadDamage(content_, payload, &where);
                part.damageOffset = at + LENGTH_SIZE + where;
                part.damageCode = part.isOfUnknownType() ? REG_UNKNOWN_RECORD_TYPE : REG_UNPACK_FAILED;
            }
        } else if (body_.end() - at < LENGTH_SIZE) {
            part.damage = "the file ends inside a length";
        } else {
            part.damage =
                fmt::format("the length says {}, and the file ends after {}", counted(body_.lengthAt(at), "byte"),
                            counted(body_.end() - at - LENGTH_SIZE, "byte"));
        }
        if (!part.framed) {
            next = search(at + 1, body_.end());
        }
        part.size = next - at;
        parts_.push_back(std::move(part));
        return next;
    }

    const Body& body_;
    RegistryContent content_;
    std::vector<RegistryPart> parts_;
};

const GlobalRegField* fieldOf(unsigned int type, unsigned long bit) {
    unsigned long count = 0;
    const GlobalRegField* fields = globalRegFields(type, &count);
    const GlobalRegField* end = fields + count;
    const GlobalRegField* found = std::find_if(fields, end, [&](const auto& field) { return field.bit == bit; });
    return found == end ? nullptr : found;
}

}  // namespace

RecordImage decodeImage(std::string_view image) {
    RecordImage record;
    unsigned long damage = 0;
    if (globalRegCheckImage(image.data(), image.size(), &damage) != 0) {
        record.damage = damage;
    }
    if (image.size() < LEAST_IMAGE) {
        return record;
    }
    record.type = static_cast<unsigned int>(little(image.substr(0, MASK_OFFSET)));
    record.fieldMask = little(image.substr(MASK_OFFSET, sizeof record.fieldMask));
    record.missingFieldMask = little(image.substr(MISSING_OFFSET, sizeof record.missingFieldMask));
    record.checksum = static_cast<int>(little(image.substr(image.size() - IMAGE_CHECKSUM_SIZE)));
    std::size_t at = ITEMS_OFFSET;
    // Up to the damage every length has been found to fit.
    for (unsigned int i = 0; i < ITEM_BITS && at < record.damage.value_or(image.size()); ++i) {
        const unsigned long bit = 1UL << i;
        if ((record.fieldMask & bit) != 0) {
            const std::size_t length = little(image.substr(at, ITEM_LENGTH_SIZE));
            record.items.push_back(
                {bit, fieldOf(record.type, bit), at, std::string(image.substr(at + ITEM_LENGTH_SIZE, length))});
            at += ITEM_LENGTH_SIZE + length;
        }
    }
    return record;
}

std::string versionText(unsigned long code) {
    char text[24] = "";
    (void)ossVersionCodeToString(code, text, sizeof text);
    return text;
}

std::string recordTypeName(unsigned int type) {
    switch (type) {
        case GLOBALREG_INSTANCE:
            return "instance";
        case GLOBALREG_SERVICE:
            return "service";
        case GLOBALREG_VARIABLE:
            return "variable";
        default:
            return "unknown";
    }
}

std::string itemText(const RecordItem& item) {
    if (item.field == nullptr) {
        return laterCell(item.bytes);
    }
    switch (item.field->kind) {
        case GLOBALREG_FIELD_VERSION:
            return versionText(little(item.bytes));
        case GLOBALREG_FIELD_NUMBER:
            return std::to_string(static_cast<int>(little(item.bytes)));
        case GLOBALREG_FIELD_FLAG:
            return cell(item.bytes.substr(0, 1));
        default: {
            const std::string_view text = textOf(item.bytes);
            const bool plain = text.find_first_of(" ,=\"\\") == std::string::npos && printable(text) == text;
            return plain ? cell(text) : quoted(text);
        }
    }
}

void putItem(Json& members, const std::string& name, const RecordItem& item) {
    if (item.field->kind == GLOBALREG_FIELD_NUMBER) {
        members[name] = static_cast<int>(little(item.bytes));
    } else if (item.field->kind == GLOBALREG_FIELD_VERSION) {
        members[name] = versionText(little(item.bytes));
    } else if (item.field->kind == GLOBALREG_FIELD_FLAG) {
        putText(members, name, std::string_view(item.bytes).substr(0, 1));
    } else {
        putText(members, name, textOf(item.bytes));
    }
}

LaterItems laterItems(const RecordImage& image) {
    LaterItems later;
    for (const RecordItem& item : image.items) {
        if (item.field == nullptr) {
            later[item.bit] = item.bytes;
        }
    }
    return later;
}

Json itemsObject(const RecordImage& image) {
    Json object = Json::object();
    for (const RecordItem& item : image.items) {
        if (item.field != nullptr) {
            putItem(object, item.field->name, item);
        }
    }
    putLater(object, laterItems(image));
    return object;
}

std::string itemName(const RecordItem& item) {
    return item.field == nullptr ? laterName(item.bit) : item.field->name;
}

bool RegistryPart::isOfUnknownType() const {
    return framed && globalRegCheckImage(payload.data(), payload.size(), nullptr) == REG_UNKNOWN_RECORD_TYPE;
}

std::vector<RegistryDamage> RegistryBytes::damages() const {
    std::vector<RegistryDamage> all;
    if (header && !header->fits) {
        all.push_back({0, 0, REG_CHECKSUM_DIFFERS,
                       fmt::format("the checksum header says {}, and the bytes behind it give {}", header->stated,
                                   header->computed)});
    }
    for (const RegistryPart& part : parts) {
        if (!part.damage.empty()) {
            all.push_back({part.damageOffset, part.offset, part.damageCode, part.damage});
        }
    }
    return all;
}

std::size_t frameLength(std::string_view bytes, std::size_t at, bool bigEndian) {
    std::string field(bytes.substr(at, LENGTH_SIZE));
    if (bigEndian) {
        std::reverse(field.begin(), field.end());
    }
    return little(field);
}

RegistryLayout layoutOf(std::string_view bytes) {
    GenRegLayout told{};
    const unsigned int code = genregReadLayout(bytes.data(), bytes.size(), &told);
    RegistryLayout layout{told.records, (told.features & REG_FEATURE_BIG_ENDIAN) != 0, {}};
    if (told.stated != nullptr) {
        layout.header = RegistryHeader{told.stated, told.computed, code == 0};
    }
    return layout;
}

unsigned long layoutFeatures(const std::string& path) {
    std::string bytes;
    try {
        bytes = readFile(path, "read it");
    } catch (const Failure&) {
        return 0;
    }
    const RegistryLayout layout = layoutOf(bytes);
    return (layout.header ? REG_FEATURE_CHECKSUM_HEADER : 0) | (layout.bigEndian ? REG_FEATURE_BIG_ENDIAN : 0);
}

std::string damageText(const RegistryBytes& bytes) {
    const std::vector<RegistryDamage> all = bytes.damages();
    const RegistryDamage& first = all.front();
    return fmt::format("damaged {}at offset {}{}: {}",
                       all.size() == 1 ? "" : fmt::format("in {} places, the first ", all.size()), first.offset,
                       first.part == first.offset ? "" : fmt::format(" (in the frame at {})", first.part), first.why);
}

Failure damageFailure(const std::string& path, const RegistryBytes& bytes) {
    Failure failure;
    failure.kind = "damaged";
    failure.exitStatus = EXIT_DAMAGED;
    failure.code = bytes.damages().front().code;
    failure.path = path;
    failure.message = fmt::format("{}: {}", printable(path), damageText(bytes));
    failure.hint = fmt::format(
        "keep a copy of the file; genreg dump {} shows the damage, genreg diff what a .bkp, .cor or saved one has",
        shellWord(path));
    return failure;
}

RegistryBytes takeApart(std::string_view bytes, bool expectGlobal) {
    const RegistryLayout layout = layoutOf(bytes);
    RegistryBytes result;
    result.header = layout.header;
    result.bigEndian = layout.bigEndian;
    const Body body(bytes, layout.start, layout.bigEndian);
    result.content = judge(body, expectGlobal);
    result.parts = Dissection(body, result.content).parts();
    return result;
}

}  // namespace tool

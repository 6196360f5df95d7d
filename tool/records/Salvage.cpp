#include "records/Salvage.h"

#include <fmt/core.h>
#include <genreg/Checksum.h>
#include <genreg/Constants.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "base/DiskFiles.h"
#include "base/Text.h"

namespace tool {
namespace {

bool isVariable(std::string_view payload) {
    return variableOf(payload).has_value();
}

bool isGlobal(std::string_view payload) {
    return globalRegCheckImage(payload.data(), payload.size(), nullptr) == 0;
}

// Whether it is a record of the global registry by its first words, sound or not: of a known type, with a key.
bool saysGlobal(std::string_view payload) {
    GlobalRegRecord record;
    (void)globalRegReadImage(payload.data(), payload.size(), &record);
    const RecordKind* kind = findKind(record.recordType);
    return kind != nullptr && (~record.fieldMask & kind->keyFields) == 0;
}

// The records behind the header, of one byte order.
class Body {
public:
    Body(std::string_view bytes, const GenRegLayout& layout) : bytes_(bytes), layout_(layout) {}

    // Follows the lengths. Whether they lead to the end; `visit` is given each payload on the way.
    template <typename Visit>
    bool follow(Visit visit) const {
        GenRegFrame frame{};
        std::size_t at = start();
        for (; fits(at, &frame); at = frame.end) {
            visit(payloadOf(frame));
        }
        return at == end();
    }
    // Whether a frame begins there that ends within the bytes.
    bool fits(std::size_t at, GenRegFrame* frame) const {
        return genregReadFrame(bytes_.data(), bytes_.size(), layout_.features, at, frame) == 0;
    }
    static std::string_view payloadOf(const GenRegFrame& frame) {
        return {static_cast<const char*>(frame.payload), frame.length};
    }
    [[nodiscard]] std::size_t start() const { return layout_.records; }
    [[nodiscard]] std::size_t end() const { return bytes_.size(); }

    // Where the next sound record from there on begins; the limit when there is none before it.
    [[nodiscard]] std::size_t search(std::size_t at, std::size_t limit, bool (*sound)(std::string_view)) const {
        GenRegFrame frame{};
        while (at < limit && !(fits(at, &frame) && sound(payloadOf(frame)))) {
            ++at;
        }
        return std::min(at, limit);
    }
    // How many sound records there are, whatever is between them.
    [[nodiscard]] std::size_t count(bool (*sound)(std::string_view)) const {
        std::size_t found = 0;
        GenRegFrame frame{};
        for (std::size_t at = start(); (at = search(at, end(), sound)) != end() && fits(at, &frame); at = frame.end) {
            ++found;
        }
        return found;
    }

private:
    std::string_view bytes_;
    const GenRegLayout& layout_;
};

// Whose records they are; none where nothing says so. Where frames lead to the end of the file, `most` lets a few of
// them be something else than the others.
std::optional<RegistryContent> recognised(const Body& body, bool most) {
    bool anyGlobal = false;
    std::size_t frames = 0;
    std::size_t ofVariables = 0;
    const bool complete = body.follow([&](std::string_view payload) {
        ++frames;
        anyGlobal = anyGlobal || isGlobal(payload);
        ofVariables += isVariable(payload) ? 1 : 0;
    });
    if (complete) {
        const bool variables = frames != 0 && (most ? 2 * ofVariables > frames : ofVariables == frames);
        return anyGlobal   ? std::optional(RegistryContent::GLOBAL)
               : variables ? std::optional(RegistryContent::VARIABLES)
                           : std::nullopt;
    }
    // What got into the file may hold a record of the other kind.
    const std::size_t global = body.count(isGlobal);
    const std::size_t variables = body.count(isVariable);
    if (global == 0 && variables == 0) {
        return std::nullopt;
    }
    return global >= variables ? RegistryContent::GLOBAL : RegistryContent::VARIABLES;
}

RegistryContent judge(const Body& body, RegistryContent expected) {
    bool anySaysGlobal = false;
    (void)body.follow([&](std::string_view payload) { anySaysGlobal = anySaysGlobal || saysGlobal(payload); });
    return expected == RegistryContent::OTHER && anySaysGlobal ? RegistryContent::GLOBAL : expected;
}

// What a payload that is not sound has wrong, and where within it.
std::string payloadDamage(RegistryContent content, std::string_view payload, std::size_t* where) {
    *where = 0;
    if (content == RegistryContent::OTHER) {
        return fmt::format("no record has {}", counted(payload.size(), "byte"));
    }
    if (content == RegistryContent::VARIABLES) {
        return payload.size() == sizeof(GenRegBinVarValRecord) ? "name or comment has no end"
                                                               : "this is no variable of 36 bytes";
    }
    GlobalRegItem item{};
    std::string last;
    int items = 0;
    unsigned int code = 0;
    while ((code = globalRegNextItem(payload.data(), payload.size(), &item)) == 0) {
        last = itemName(item);
        ++items;
    }
    *where = item.offset;
    GlobalRegRecord record;
    (void)globalRegReadImage(payload.data(), payload.size(), &record);
    if (code == REG_UNKNOWN_RECORD_TYPE) {
        return fmt::format("there is no record type {}", record.recordType);
    }
    if (item.offset == 0) {
        return fmt::format("the record is too short: {}", counted(payload.size(), "byte"));
    }
    if (items == std::popcount(record.fieldMask << 1U)) {  // the highest bit has no item
        return "the record ends before its frame does";
    }
    return last.empty() ? "the first field does not fit" : fmt::format("the field behind {} does not fit", last);
}

class Dissection {
public:
    Dissection(const Body& body, RegistryContent content, bool asWritten)
        : body_(body), content_(content), asWritten_(asWritten) {}

    std::vector<RegistryPart> parts() {
        for (std::size_t at = body_.start(); at < body_.end();) {
            at = takePart(at);
        }
        return std::move(parts_);
    }

private:
    [[nodiscard]] bool sound(std::string_view payload) const {
        if (content_ == RegistryContent::OTHER) {
            return !asWritten_ || (payload.size() >= REG_MIN_RECORD_SIZE && payload.size() <= REG_MAX_RECORD_SIZE);
        }
        return (content_ == RegistryContent::GLOBAL ? isGlobal(payload) : isVariable(payload));
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
        GenRegFrame frame{};
        const bool leadsOn = next == body_.end() || (body_.fits(next, &frame) && sound(Body::payloadOf(frame)));
        return leadsOn && search(at + 1, next) == next;
    }

    std::size_t takePart(std::size_t at) {
        RegistryPart part;
        part.offset = at;
        part.damageOffset = at;
        part.damageCode = REG_FRAME_TRUNCATED;
        GenRegFrame frame{};
        const bool whole = body_.fits(at, &frame);
        std::size_t next = frame.end;
        if (whole) {
            const std::string_view payload = Body::payloadOf(frame);
            const bool good = sound(payload);
            part.framed = good || isCredible(at, next);
            part.payload = part.framed ? payload : std::string_view();
            if (!part.framed) {
                part.damage = fmt::format("the length says {}, where no record ends", counted(payload.size(), "byte"));
            } else if (!good) {
                std::size_t where = 0;
                part.damage = payloadDamage(content_, payload, &where);
                part.damageOffset = at + REG_FRAME_LENGTH_SIZE + where;
                part.damageCode = part.isOfUnknownType() ? REG_UNKNOWN_RECORD_TYPE : REG_UNPACK_FAILED;
            }
        } else if (body_.end() - at < REG_FRAME_LENGTH_SIZE) {
            part.damage = "the file ends inside a length";
        } else {
            part.damage = fmt::format("the length says {}, and the file ends after {}", counted(frame.length, "byte"),
                                      counted(body_.end() - at - REG_FRAME_LENGTH_SIZE, "byte"));
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
    bool asWritten_;
    std::vector<RegistryPart> parts_;
};

// How many records of one kind there are.
std::size_t strength(std::string_view bytes, const GenRegLayout& layout) {
    const Body body(bytes, layout);
    return std::max(body.count(isGlobal), body.count(isVariable));
}

// Where the beginning is damaged, the layout that it shows may not be that of the rest: what looks like a header that
// does not fit is none where records stand in its place, and the order of the bytes is that in which there are most.
void correctLayout(std::string_view bytes, SalvagedRegistry& registry) {
    const GenRegLayout shown = registry.layout;
    if (registry.headerFits && Body(bytes, shown).follow([](std::string_view) {})) {
        return;
    }
    std::size_t most = strength(bytes, shown);
    for (const bool headless : {false, true}) {
        for (const bool otherOrder : {false, true}) {
            GenRegLayout layout =
                headless ? GenRegLayout{shown.features & REG_FEATURE_BIG_ENDIAN, 0, nullptr, 0} : shown;
            layout.features ^= otherOrder ? REG_FEATURE_BIG_ENDIAN : 0;
            const bool another = otherOrder || (headless && !registry.headerFits);
            const std::size_t found = another ? strength(bytes, layout) : 0;
            if (found > most) {
                most = found;
                registry.layout = layout;
            }
        }
    }
    registry.headerFits = registry.headerFits || registry.layout.stated == nullptr;
}

SalvagedRegistry dissected(std::string_view bytes, RegistryContent expected, bool asWritten) {
    SalvagedRegistry registry;
    registry.headerFits = genregReadLayout(bytes.data(), bytes.size(), &registry.layout) == 0;
    correctLayout(bytes, registry);
    const Body body(bytes, registry.layout);
    const auto content = recognised(body, asWritten);
    registry.content = content ? *content : judge(body, expected);
    registry.parts = Dissection(body, registry.content, asWritten).parts();
    return registry;
}

// Whether a checksum header ends them, as writers write it.
bool endsAsHeader(std::string_view bytes) {
    if (bytes.size() < REG_CHECKSUM_HEADER_SIZE) {
        return false;
    }
    const std::string_view header = bytes.substr(bytes.size() - REG_CHECKSUM_HEADER_SIZE);
    const std::string_view text = header.substr(0, header.find('\0'));
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    constexpr std::size_t MOST_DIGITS = 10;
    return !digits.empty() && digits.size() <= MOST_DIGITS &&
           digits.find_first_not_of("0123456789") == std::string_view::npos &&
           header.find_first_not_of('\0', text.size()) == std::string_view::npos;
}

}  // namespace

bool RegistryPart::isOfUnknownType() const {
    return framed && globalRegCheckImage(payload.data(), payload.size(), nullptr) == REG_UNKNOWN_RECORD_TYPE;
}

std::vector<FoundRecord> SalvagedRegistry::records() const {
    std::vector<FoundRecord> records;
    for (const RegistryPart& part : parts) {
        if (content == RegistryContent::GLOBAL && part.framed && part.damage.empty()) {
            records.push_back(recordOfImage(part.payload));
        }
    }
    return records;
}

std::vector<RegistryDamage> SalvagedRegistry::damages() const {
    std::vector<RegistryDamage> all;
    if (!headerFits) {
        all.push_back({0, 0, REG_CHECKSUM_DIFFERS,
                       fmt::format("the checksum header says {}, and the bytes behind it give {}", layout.stated,
                                   layout.computed)});
    }
    for (const RegistryPart& part : parts) {
        if (!part.damage.empty()) {
            all.push_back({part.damageOffset, part.offset, part.damageCode, part.damage});
        }
    }
    return all;
}

bool isBinary(std::string_view bytes) {
    constexpr std::size_t LONGEST_START = 12;  // within which a checksum header ends
    const std::size_t null = bytes.find('\0');
    return null < REG_FRAME_LENGTH_SIZE ||
           (null <= LONGEST_START && bytes.substr(0, null).find('\n') == std::string_view::npos);
}

unsigned long layoutFeatures(const std::string& path) {
    std::string bytes;
    try {
        bytes = readFile(path, "read it");
    } catch (const Failure&) {
        return 0;
    }
    GenRegLayout layout{};
    (void)genregReadLayout(bytes.data(), bytes.size(), &layout);
    return layout.features;
}

std::optional<GenRegBinVarValRecord> variableOf(std::string_view payload) {
    GenRegBinVarValRecord record{};
    const auto ends = [](const auto& text) { return std::memchr(text, '\0', sizeof text) != nullptr; };
    if (payload.size() != sizeof record) {
        return std::nullopt;
    }
    std::memcpy(&record, payload.data(), sizeof record);
    const bool sound = record.variable[0] != '\0' && ends(record.variable) && ends(record.comment);
    return sound ? std::optional(record) : std::nullopt;
}

std::string damageText(const SalvagedRegistry& registry) {
    const std::vector<RegistryDamage> all = registry.damages();
    const RegistryDamage& first = all.front();
    return fmt::format("damaged {}at offset {}{}: {}",
                       all.size() == 1 ? "" : fmt::format("in {} places, the first ", all.size()), first.offset,
                       first.part == first.offset ? "" : fmt::format(" (in the frame at {})", first.part), first.why);
}

Failure damageFailure(const std::string& path, const SalvagedRegistry& registry) {
    Failure failure;
    failure.kind = "damaged";
    failure.exitStatus = EXIT_DAMAGED;
    failure.code = registry.damages().front().code;
    failure.path = path;
    failure.message = fmt::format("{}: {}", printable(path), damageText(registry));
    failure.hint = fmt::format(
        "keep a copy of the file; genreg dump {0} shows the damage, genreg diff what a .bkp, .cor or saved one has, "
        "genreg "
        "repair -n {0} what can be kept",
        shellWord(path));
    return failure;
}

std::vector<const RegistryPart*> SalvagedRegistry::sound() const {
    std::vector<const RegistryPart*> all;
    for (const RegistryPart& part : parts) {
        if (part.framed && part.damage.empty()) {
            all.push_back(&part);
        }
    }
    return all;
}

std::string SalvagedRegistry::rescued(std::string_view bytes) const {
    const std::vector<const RegistryPart*> kept = sound();
    const std::size_t first = kept.empty() ? 0 : kept.front()->offset;
    const bool stamped = layout.stated != nullptr || endsAsHeader(bytes.substr(0, first));
    std::string body;
    for (const RegistryPart* part : kept) {
        body += bytes.substr(part->offset, part->size);
    }
    if (!stamped) {
        return body;
    }
    std::string header = std::to_string(static_cast<int>(sqlzChecksumXOR(body.data(), body.size())));
    header.resize(REG_CHECKSUM_HEADER_SIZE);
    return header + body;
}

SalvagedRegistry takeApart(std::string_view bytes, bool expectGlobal) {
    return dissected(bytes, expectGlobal ? RegistryContent::GLOBAL : RegistryContent::OTHER, false);
}

SalvagedRegistry salvage(std::string_view bytes, RegistryContent expected) {
    return dissected(bytes, expected, true);
}

}  // namespace tool

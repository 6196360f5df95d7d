#include <fmt/core.h>

#include <algorithm>
#include <memory>

#include "base/DiskFiles.h"
#include "base/Text.h"
#include "global/GlobalPath.h"
#include "inspect/InspectCommands.h"
#include "records/Salvage.h"

namespace tool {
namespace {

constexpr std::size_t BYTES_IN_LINE = 16;
constexpr std::size_t BYTES_SHOWN = 128;  // of what has no fields to show, without --raw
constexpr std::uintmax_t LARGEST_FILE = 1UL << 30U;

struct Arguments {
    std::string file;
    bool raw = false;
};

std::string place(std::size_t offset) {
    return fmt::format("{:#010x}", offset);
}

void printBytes(Output& output, std::string_view bytes, std::size_t offset, bool all) {
    const std::size_t shown = all ? bytes.size() : std::min(bytes.size(), BYTES_SHOWN);
    for (std::size_t at = 0; at < shown; at += BYTES_IN_LINE) {
        const std::string_view row = bytes.substr(at, std::min(BYTES_IN_LINE, shown - at));
        std::string digits;
        std::string letters;
        for (const char byte : row) {
            digits += fmt::format(" {:02x}", static_cast<unsigned char>(byte));
            letters += byte >= ' ' && byte <= '~' ? byte : '.';
        }
        output.line(fmt::format("    {:08x}:{:<48}  {}", offset + at, digits, letters));
    }
    if (shown < bytes.size()) {
        output.line(fmt::format("    ... and {} more (--raw shows all)", counted(bytes.size() - shown, "byte")));
    }
}

// The fields of a binary variable as if they were items of an image: name, value, comment.
struct VariableField {
    const char* name;
    std::size_t offset;
    std::size_t size;
};
using Variable = GenRegBinVarValRecord;
constexpr VariableField VARIABLE_FIELDS[] = {{"name", offsetof(Variable, variable), sizeof Variable::variable},
                                             {"value", offsetof(Variable, value), sizeof Variable::value},
                                             {"comment", offsetof(Variable, comment), sizeof Variable::comment}};

std::string_view variableText(std::string_view payload, const VariableField& field) {
    const std::string_view bytes = payload.substr(field.offset, field.size);
    return bytes.substr(0, bytes.find('\0'));
}

int variableValue(std::string_view payload, const VariableField& field) {
    int value = 0;
    payload.copy(reinterpret_cast<char*>(&value), sizeof value, field.offset);
    return value;
}

bool isNumber(const VariableField& field) {
    return field.size == sizeof(int);
}

// What to tell of one file: its name, its bytes and what they are made of.
class Dump {
public:
    Dump(Context& context, std::string path, bool raw, bool expectGlobal)
        : output_(context.output),
          path_(std::move(path)),
          raw_(raw),
          bytes_(readFile(path_, "dump it")),
          parts_(takeApart(bytes_, expectGlobal)) {}

    int tell() {
        if (parts_.layout.stated != nullptr) {
            tellHeader();
        }
        std::size_t frames = 0;
        for (const RegistryPart& part : parts_.parts) {
            frames += part.framed ? 1 : 0;
            if (output_.style.json) {
                output_.json(part.framed ? frameObject(part, frames) : damageObject(part));
            } else {
                print(part, frames);
            }
        }
        if (!output_.style.json) {
            output_.line(fmt::format(
                "{}, {}{}{}", counted(bytes_.size(), "byte"), counted(frames, "frame"),
                (parts_.layout.features & REG_FEATURE_BIG_ENDIAN) != 0 ? ", lengths big-endian" : "", contentText()));
        }
        refuseDamage();
        return EXIT_DONE;
    }

private:
    [[nodiscard]] std::string contentText() const {
        switch (parts_.content) {
            case RegistryContent::GLOBAL:
                return ", records of the global registry";
            case RegistryContent::VARIABLES:
                return ", binary variables";
            default:
                return parts_.parts.empty() ? "" : ", records of a kind not known here";
        }
    }

    void tellHeader() {
        const std::string stated = parts_.layout.stated;
        const int computed = parts_.layout.computed;
        const bool fits = parts_.headerFits;
        if (output_.style.json) {
            output_.json({{"kind", "header"},
                          {"offset", 0},
                          {"checksum", std::stoll(stated)},
                          {"computed", computed},
                          {"fits", fits}});
            return;
        }
        output_.line(
            fmt::format("{}  checksum header: {}{}", place(0), stated,
                        fits ? ", fits" : fmt::format("  <-- DAMAGED: the bytes behind it give {}", computed)));
        if (raw_) {
            printBytes(
                output_,
                std::string_view(bytes_).substr(0, parts_.parts.empty() ? bytes_.size() : parts_.parts.front().offset),
                0, true);
        }
    }

    void print(const RegistryPart& part, std::size_t number) {
        const std::string damage =
            part.damage.empty() ? "" : fmt::format("  <-- DAMAGED at {}: {}", place(part.damageOffset), part.damage);
        if (!part.framed) {
            output_.line(fmt::format("{}  no frame: {}{}", place(part.offset), counted(part.size, "byte"), damage));
            printBytes(output_, partBytes(part), part.offset, raw_);
            return;
        }
        output_.line(fmt::format("{}  frame {}, {}{}{}", place(part.offset), number,
                                 counted(part.payload.size(), "byte"), headline(part), damage));
        const bool told = printFields(part);
        if (raw_ || !told) {
            printBytes(output_, partBytes(part), part.offset, raw_);
        }
    }

    [[nodiscard]] std::string headline(const RegistryPart& part) const {
        if (parts_.content != RegistryContent::GLOBAL) {
            return "";
        }
        const FoundRecord record = recordOfImage(part.payload);
        return fmt::format(": {}, fields {:#x}, missing {:#x}, checksum {}", recordTypeName(record.recordType),
                           record.fieldMask, record.missingFieldMask, record.checksum);
    }

    // False when the payload has no fields that are known.
    bool printFields(const RegistryPart& part) {
        const std::size_t start = part.offset + REG_FRAME_LENGTH_SIZE;
        if (parts_.content == RegistryContent::GLOBAL) {
            const FoundRecord record = recordOfImage(part.payload);
            eachItem(part.payload, [&](const GlobalRegItem& item) {
                output_.line(fmt::format("  {}  {:<16} {}", place(start + item.offset), itemName(item),
                                         item.field == nullptr ? laterCell(bytesOf(item)) + "  (of a later release)"
                                                               : valueWord(record, *item.field)));
            });
            return part.damage.empty();
        }
        if (parts_.content != RegistryContent::VARIABLES || !part.damage.empty()) {
            return false;
        }
        for (const VariableField& field : VARIABLE_FIELDS) {
            output_.line(fmt::format("  {}  {:<16} {}", place(start + field.offset), field.name,
                                     isNumber(field) ? std::to_string(variableValue(part.payload, field))
                                                     : cell(variableText(part.payload, field))));
        }
        return true;
    }

    Json frameObject(const RegistryPart& part, std::size_t number) {
        Json object{{"kind", "frame"}, {"frame", number}, {"offset", part.offset}, {"length", part.payload.size()}};
        const std::size_t start = part.offset + REG_FRAME_LENGTH_SIZE;
        if (parts_.content == RegistryContent::GLOBAL) {
            const FoundRecord record = recordOfImage(part.payload);
            object["record"] = recordTypeName(record.recordType);
            object["fieldMask"] = fmt::format("{:#x}", record.fieldMask);
            object["missingFieldMask"] = fmt::format("{:#x}", record.missingFieldMask);
            object["checksum"] = record.checksum;
            object["fields"] = Json::array();
            eachItem(part.payload, [&](const GlobalRegItem& item) {
                Json told{{"bit", laterName(item.bit)}, {"offset", start + item.offset}, {"length", item.length}};
                if (item.field == nullptr) {
                    told["base64"] = base64(bytesOf(item));
                    object["unknown"].push_back(told);
                } else {
                    Json field{{"name", item.field->name}};
                    field.update(told);
                    putField(field, "value", record, *item.field);
                    object["fields"].push_back(field);
                }
            });
        } else if (parts_.content == RegistryContent::VARIABLES && part.damage.empty()) {
            object["record"] = "binvar";
            object["fields"] = Json::array();
            for (const VariableField& field : VARIABLE_FIELDS) {
                Json told{{"name", field.name}, {"offset", start + field.offset}, {"length", field.size}};
                if (isNumber(field)) {
                    told["value"] = variableValue(part.payload, field);
                } else {
                    putText(told, "value", variableText(part.payload, field));
                }
                object["fields"].push_back(told);
            }
        }
        addDamage(object, part);
        return object;
    }

    Json damageObject(const RegistryPart& part) {
        Json object{{"kind", "damage"}, {"offset", part.offset}, {"length", part.size}};
        addDamage(object, part);
        return object;
    }

    void addDamage(Json& object, const RegistryPart& part) {
        object["damage"] = nullptr;
        if (!part.damage.empty()) {
            object["damage"] = {{"offset", part.damageOffset}, {"message", part.damage}};
        }
        if (raw_) {
            object["hex"] = hexDigits(partBytes(part));
        }
    }

    [[nodiscard]] std::string_view partBytes(const RegistryPart& part) const {
        return std::string_view(bytes_).substr(part.offset, part.size);
    }

    void refuseDamage() {
        if (parts_.isSound()) {
            return;
        }
        output_.flush();
        Failure failure = damageFailure(path_, parts_);
        failure.hint = "keep a copy of the file, then compare it with its .bkp, .cor or a saved one (genreg diff)";
        throw failure;
    }

    Output& output_;
    std::string path_;
    bool raw_;
    std::string bytes_;
    SalvagedRegistry parts_;
};

int dump(Context& context, const Arguments& arguments) {
    const std::string path = globalFile(context, arguments.file);
    judgeFile(path, "dump it", true);
    std::error_code ignored;
    if (std::filesystem::file_size(path, ignored) > LARGEST_FILE && !ignored) {
        Failure failure = systemFailure(EFBIG, path, "dump it");
        failure.kind = "unreadable";
        failure.exitStatus = EXIT_UNREADABLE;
        failure.hint = "dump a part of it: head -c 1G FILE > PART";
        throw failure;
    }
    return Dump(context, path, arguments.raw, arguments.file.empty()).tell();
}

Action declareDump(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.optionalFile(arguments->file, "a binary registry; without one, the global registry");
    parser.flag("--raw", arguments->raw, "show the bytes of every frame, too");
    return [arguments](Context& context) { return dump(context, *arguments); };
}

}  // namespace

std::span<const Command> dumpCommands() {
    static constexpr Command COMMANDS[] = {
        {"dump", "the frames of a binary registry and their fields, and where it is damaged", USES_REGISTRY,
         declareDump},
    };
    return COMMANDS;
}

}  // namespace tool

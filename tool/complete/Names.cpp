// Real names: of the global registry, of the file that is named, of codes.
#include <genreg/Codes.h>
#include <genreg/GlobalReg.h>

#include <algorithm>

#include "base/DiskFiles.h"
#include "complete/Completion.h"
#include "entries/EntryEditor.h"
#include "global/GlobalPath.h"
#include "global/GlobalRegistry.h"
#include "system/System.h"

namespace tool {
namespace {

const RecordKind* kindOfGroup(const std::string& group) {
    for (const unsigned int type : {GLOBALREG_SERVICE, GLOBALREG_INSTANCE, GLOBALREG_VARIABLE}) {
        if (kindOf(type).name == group) {
            return &kindOf(type);
        }
    }
    return nullptr;
}

const EntrySchema* schemaOfGroup(const std::string& group) {
    for (const auto* schema : {&varValSchema(), &servicesSchema(), &initTabSchema(), &binVarSchema()}) {
        if (schema->group == group) {
            return schema;
        }
    }
    return nullptr;
}

Names fieldNames(const RecordKind& kind, const char* end) {
    Names names;
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) == 0) {
            names.found.push_back({field.name + std::string(end), ""});
        }
    }
    return names;
}

// What stands in the next field of the key of records that have the ones before it. A service and its versions are
// known by any kind of record.
Names keyNames(Context& context, const RecordKind& kind, const std::vector<std::string>& before) {
    std::vector<const GlobalRegField*> fields;
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) != 0) {
            fields.push_back(&field);
        }
    }
    Names names;
    if (before.size() >= fields.size()) {
        return names;
    }
    const bool ofKindOnly = before.size() + 1 == fields.size() && kind.type != GLOBALREG_SERVICE;
    const std::string path = globalPath(context).path;
    (void)judgeFile(path, "complete", true);
    for (const FoundRecord& record : GlobalRegistry(context, path, true).read("complete")) {
        const auto valueOf = [&](const GlobalRegField& field) -> std::optional<std::string> {
            for (const GlobalRegField& own : kindOf(record.recordType).fields) {
                if (std::string_view(own.name) == field.name) {
                    return valueText(record, own);
                }
            }
            return std::nullopt;
        };
        bool fits = findKind(record.recordType) != nullptr && (!ofKindOnly || record.recordType == kind.type);
        for (std::size_t i = 0; fits && i < before.size(); ++i) {
            fits = valueOf(*fields[i]) == before[i];
        }
        if (const auto value = fits ? valueOf(*fields[before.size()]) : std::nullopt) {
            names.found.push_back({*value, ""});
        }
    }
    return names;
}

Names entryNames(const EntrySchema& schema, const std::string& operand, const std::vector<std::string>& before) {
    Names names;
    const bool aliases = operand.starts_with("ALIAS[");
    const bool values = operand.starts_with("PORT[");
    const bool found = operand == "PATTERN" || operand == schema.found.name || operand == schema.named.name;
    if (before.empty() || (!aliases && !values && !found)) {
        return names;
    }
    const bool whole = operand == schema.found.name;
    for (const Entry& entry : entriesOf(schema, before[0], "complete")) {
        if (aliases) {
            for (const std::string& alias : entry.names) {
                names.found.push_back({alias, entry.name});
            }
        } else if (values) {
            names.found.push_back({entry.value, entry.name});
        } else {
            // What a value is may be nobody's business but the user's who asks for it.
            const std::string help = schema.nameEnd != 0 ? entry.value : "";
            const bool cut = !whole && schema.nameEnd != 0;
            names.found.push_back({cut ? entry.name.substr(0, entry.name.find(schema.nameEnd)) : entry.name, help});
        }
    }
    return names;
}

Names codeNames() {
    Names names;
    for (std::size_t i = 0; genregCodeAt(i) != 0; ++i) {
        names.found.push_back({genregCodeName(genregCodeAt(i)), hexCode(genregCodeAt(i))});
    }
    return names;
}

}  // namespace

Names namesFor(Context& context, const std::string& command, const std::string& operand,
               const std::vector<std::string>& before) {
    const std::string group = command.substr(0, command.find(' '));
    const RecordKind* const kind = kindOfGroup(group);
    const EntrySchema* const schema = schemaOfGroup(group);
    if (operand == "FIELD" && kind != nullptr) {
        return fieldNames(*kind, "");
    }
    if (operand == "FIELD=VALUE" && kind != nullptr) {
        return fieldNames(*kind, "=");
    }
    if (kind != nullptr && (operand == "SERVICE" || operand == "VERSION" || operand == "NAME")) {
        return keyNames(context, *kind, before);
    }
    if (command == "explain") {
        return codeNames();
    }
    if (operand == "SHELL") {
        return {{{"bash", ""}, {"zsh", ""}, {"fish", ""}}, false};
    }
    constexpr std::string_view FREE[] = {"SECONDS", "V", "TEXT", "VERSION", "LEVEL", "CODE"};
    const bool isFile = operand == "FILE" || operand == "PATH" || operand == "BATCH";
    if (schema != nullptr && !isFile) {
        return entryNames(*schema, operand, before);
    }
    return {{}, isFile || std::ranges::find(FREE, operand) == std::end(FREE)};
}

}  // namespace tool

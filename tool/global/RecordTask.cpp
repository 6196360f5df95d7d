#include "global/RecordTask.h"

#include <fmt/core.h>
#include <genreg/GlobalReg.h>

#include <algorithm>
#include <bit>
#include <iterator>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "global/GlobalRegistry.h"

namespace tool {
namespace {

GlobalRegRecord keyOf(const RecordKind& kind, const std::vector<std::string>& words) {
    GlobalRegRecord key{};
    key.recordType = kind.type;
    const auto fields = keyFieldsOf(kind);
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].empty()) {
            Failure failure = usageFailure(fmt::format("{} is empty", fields[i]->name));
            failure.kind = "invalid";
            failure.exitStatus = EXIT_INVALID;
            failure.code = fields[i]->refusedCode != 0 ? fields[i]->refusedCode : REG_VERSION_INVALID;
            throw failure;
        }
        setField(key, *fields[i], words[i]);
    }
    return key;
}

bool isMeant(const RecordTask& task, const GlobalRegRecord& record) {
    return record.recordType == task.key.recordType && (task.key.fieldMask & ~record.fieldMask) == 0 &&
           sameValues(record, task.key, task.key.fieldMask);
}

}  // namespace

std::string commandFor(const RecordTask& task, std::string_view verb) {
    return fmt::format("genreg {} {}", task.kind.name, verb);
}

// The last field of the key tells records apart.
Failure notFound(const RecordTask& task, const std::vector<FoundRecord>& records) {
    const GlobalRegField& field =
        task.kind.type == GLOBALREG_SERVICE
            ? task.kind.fields.front()
            : task.kind.fields[static_cast<std::size_t>(std::bit_width(task.kind.keyFields)) - 1];
    std::vector<std::string> names;
    for (const FoundRecord& record : records) {
        const auto name = valueText(record, field);
        if (name && record.recordType == task.kind.type) {
            names.push_back(*name);
        }
    }
    const std::string wanted = valueText(task.key, field).value_or("");
    const std::string meant = nearest(wanted, names);
    const std::string list = commandFor(task, "list");
    return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, task.path,
                  fmt::format("there is no {}", keyText(task.key)),
                  meant.empty() || meant == wanted ? list : fmt::format("{}, or {}", printable(meant), list));
}

std::vector<const GlobalRegField*> keyFieldsOf(const RecordKind& kind) {
    std::vector<const GlobalRegField*> fields;
    for (const GlobalRegField& field : kind.fields) {
        if ((kind.keyFields & field.bit) != 0) {
            fields.push_back(&field);
        }
    }
    return fields;
}

RecordTask taskOf(Context& context, const RecordArguments& arguments, const char* verb) {
    RecordTask task{context, kindOf(arguments.type), globalRegistryPath(context), {}, {}};
    task.doing = fmt::format("{} {}", verb, task.kind.name);
    task.key = refusingFor(task.path, task.doing, [&] { return keyOf(task.kind, arguments.key); });
    task.doing = fmt::format("{} {}", verb, keyText(task.key));
    return task;
}

std::vector<FoundRecord> recordsOf(const RecordTask& task, const std::string& path) {
    judgeFile(path, task.doing, true);
    return GlobalRegistry(task.context, path, true).read(task.doing);
}

std::vector<FoundRecord> meant(const RecordTask& task, const std::vector<FoundRecord>& records) {
    std::vector<FoundRecord> matches;
    std::copy_if(records.begin(), records.end(), std::back_inserter(matches),
                 [&](const FoundRecord& record) { return isMeant(task, record); });
    return matches;
}

const GlobalRegField& fieldNamed(const RecordKind& kind, const std::string& name, OfferedFields offered) {
    std::vector<std::string> names;
    for (const GlobalRegField& field : kind.fields) {
        if (field.name == name) {
            return field;
        }
        if (offered == OfferedFields::ALL || (kind.keyFields & field.bit) == 0) {
            names.emplace_back(field.name);
        }
    }
    const std::string near = nearest(name, names);
    std::string all;
    for (const std::string& known : names) {
        all += (all.empty() ? "" : ", ") + known;
    }
    throw usageFailure(fmt::format("a{} {} has no field {}", kind.name == "instance" ? "n" : "", kind.name, cell(name)),
                       near.empty() ? all : near);
}

}  // namespace tool

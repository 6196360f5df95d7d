// Setting and removing records of the global registry.
#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "base/ValueSource.h"
#include "global/GlobalRegistry.h"
#include "global/RecordTask.h"
#include "records/RecordChanges.h"
#include "records/RecordDiff.h"

namespace tool {
namespace {

// A field to set, or without a text to remove.
struct FieldEdit {
    const GlobalRegField* field;
    std::string text;
};

std::string lookAgain(const RecordTask& task) {
    return fmt::format("look at it ({}), then decide anew", commandFor(task, "get"));
}

Failure changedMeanwhile(const RecordTask& task, const std::string& what) {
    return answer("changed", EXIT_CONFLICT, 0, task.path,
                  fmt::format("{} by somebody else meanwhile; nothing was written", what), lookAgain(task));
}

Failure severalMatch(const RecordTask& task, std::size_t count) {
    return answer("several", EXIT_CONFLICT, REG_SEVERAL_MATCH, task.path,
                  fmt::format("there are {} records {}; nothing was changed", count, keyText(task.key)),
                  fmt::format("{} shows them", commandFor(task, "list")));
}

std::vector<FieldEdit> editsOf(const RecordKind& kind, const std::vector<std::string>& words) {
    std::vector<FieldEdit> edits;
    unsigned long named = 0;
    for (const std::string& word : words) {
        const std::size_t sign = word.find('=');
        if (sign == std::string::npos) {
            throw usageFailure(fmt::format("{} is no field=value", cell(word)),
                               word.starts_with('-') ? std::string("options come before \"--\"")
                                                     : fmt::format("genreg {} set --help", kind.name));
        }
        const GlobalRegField& field = fieldNamed(kind, word.substr(0, sign));
        if ((kind.keyFields & field.bit) != 0) {
            throw usageFailure(fmt::format("{} is a part of the key, which does not change", field.name),
                               "a record of another key is another record: set that one");
        }
        if ((named & field.bit) != 0) {
            throw usageFailure(fmt::format("{} is given twice", field.name));
        }
        named |= field.bit;
        edits.push_back({&field, word.substr(sign + 1)});
    }
    return edits;
}

void applyEdits(GlobalRegRecord& record, const std::vector<FieldEdit>& edits) {
    for (const FieldEdit& edit : edits) {
        if (edit.text.empty()) {
            removeField(record, *edit.field);
        } else {
            setField(record, *edit.field, edit.text);
        }
    }
}

// Refuses what --if-value does not allow.
void checkExpected(const RecordTask& task, const GlobalRegRecord& found) {
    const auto& expected = task.context.options.ifValue;
    if (!expected) {
        return;
    }
    const GlobalRegField& field = fieldNamed(task.kind, "value");
    if (valueText(found, field).value_or("") != *expected) {
        throw answer("changed", EXIT_CONFLICT, 0, task.path,
                     fmt::format("{} is {}, not {}; nothing was changed", keyText(task.key), valueCell(found, field),
                                 cell(*expected)),
                     lookAgain(task));
    }
}

// A set as it goes: read, edit, and change under a key of what was read. Where somebody changed the record in between,
// all of it is done again, as long as --wait allows, for as long as no field that is to be set became another's.
class RecordSet {
public:
    RecordSet(const RecordTask& task, const std::vector<FieldEdit>& edits, const std::string& path)
        : task_(task), edits_(edits), path_(path), wanted_{task.key, {}} {
        applyEdits(wanted_, edits);
    }

    // False when the record says so already.
    bool make() {
        return attemptPatiently(task_.context, task_.path, keyText(task_.key), [&] {
            const auto changed = attempt();
            if (!changed && task_.context.options.ifValue) {
                throw changedMeanwhile(task_, keyText(task_.key) + " was changed");
            }
            return changed;
        });
    }

    // What became of it.
    [[nodiscard]] const MadeRecord& made() const { return made_; }

private:
    // None when the record is no longer what was read.
    std::optional<bool> attempt() {
        const bool exists = judgeFile(path_, task_.doing, false);
        GlobalRegistry registry(task_.context, path_, path_ != task_.path);
        const std::vector<FoundRecord> all = exists ? registry.read(task_.doing) : std::vector<FoundRecord>();
        const std::vector<FoundRecord> matches = meant(task_, all);
        if (matches.size() > 1) {
            throw severalMatch(task_, matches.size());
        }
        const auto found = matches.empty() ? std::nullopt : std::optional(matches.front());
        if (again_) {
            refuseContradiction(found);
        } else {
            first_ = found;
            again_ = true;
        }
        if (task_.context.options.ifValue) {
            if (!found) {
                throw notFound(task_, all);
            }
            checkExpected(task_, *found);
        }
        FoundRecord record = found.value_or(wanted_);
        applyEdits(record, edits_);
        const unsigned int code = found ? registry.change(*found, record) : registry.add(record);
        if (code == (found ? REG_NOT_FOUND : REG_DUPLICATE)) {
            return std::nullopt;
        }
        if (code != 0 && code != REG_UNCHANGED) {
            throw libraryFailure(code, path_, task_.doing);
        }
        made_ = {found, record, code == 0};
        return made_.changed;
    }

    // What others may have done to the record since it was read first: anything but to remove it, or to give a field
    // that is to be set a value that is neither the old one nor the wanted one.
    void refuseContradiction(const std::optional<GlobalRegRecord>& found) const {
        if (first_ && !found) {
            throw changedMeanwhile(task_, keyText(task_.key) + " was removed");
        }
        for (const FieldEdit& edit : edits_) {
            const auto before = first_ ? valueText(*first_, *edit.field) : std::nullopt;
            const auto now = found ? valueText(*found, *edit.field) : std::nullopt;
            if (now != before && now != valueText(wanted_, *edit.field)) {
                const auto shown = [](const auto& value) { return value ? cell(*value) : std::string(ABSENT); };
                throw changedMeanwhile(task_, fmt::format("{}: {} was changed from {} to {}", keyText(task_.key),
                                                          edit.field->name, shown(before), shown(now)));
            }
        }
    }

    const RecordTask& task_;
    const std::vector<FieldEdit>& edits_;
    const std::string& path_;
    FoundRecord wanted_;                // of a record that is not there yet
    std::optional<FoundRecord> first_;  // as it was read first
    bool again_ = false;
    MadeRecord made_;
};

// The records that are to go. Refuses what the options do not allow.
std::vector<FoundRecord> removable(const RecordTask& task, const std::vector<FoundRecord>& all) {
    std::vector<FoundRecord> matches = meant(task, all);
    if (matches.empty()) {
        throw notFound(task, all);
    }
    if (matches.size() > 1 && !task.context.options.all) {
        throw severalMatch(task, matches.size());
    }
    if (!task.context.options.all) {
        checkExpected(task, matches.front());
    }
    return matches;
}

// The instances whose service would be gone with these records.
std::vector<std::string> leftBehind(const std::vector<FoundRecord>& all, const std::vector<FoundRecord>& removed) {
    std::vector<std::string> names;
    for (const GlobalRegRecord& record : all) {
        const auto isOf = [&](const GlobalRegRecord& service) {
            return service.recordType == GLOBALREG_SERVICE && record.recordType == GLOBALREG_INSTANCE &&
                   record.body.instance.versionCode == service.body.service.versionCode &&
                   std::strncmp(record.body.instance.service, service.body.service.service,
                                sizeof service.body.service.service) == 0;
        };
        if (std::any_of(removed.begin(), removed.end(), isOf)) {
            names.push_back(keyText(record));
        }
    }
    return names;
}

bool removeFrom(const RecordTask& task, const std::string& path, bool ifPresent, std::vector<FoundRecord>* removed,
                std::vector<std::string>* left) {
    const std::vector<FoundRecord> all = recordsOf(task, path);
    if (ifPresent && meant(task, all).empty()) {
        return false;
    }
    std::vector<FoundRecord> matches = removable(task, all);
    GlobalRegistry registry(task.context, path, path != task.path);
    const unsigned int code = task.context.options.ifValue
                                  ? registry.remove(matches.front())
                                  : registry.removeMatching(task.key, task.context.options.all);
    if (code == REG_NOT_FOUND && ifPresent && meant(task, recordsOf(task, path)).empty()) {
        return false;
    }
    if (code == REG_NOT_FOUND) {
        throw changedMeanwhile(task, keyText(task.key) + " was changed");
    }
    if (code != 0) {
        throw libraryFailure(code, path, task.doing);
    }
    *left = leftBehind(all, matches);
    *removed = std::move(matches);
    return true;
}

void tellLeftBehind(const RecordTask& task, const std::vector<std::string>& left) {
    constexpr std::size_t SHOWN = 5;
    if (left.empty()) {
        return;
    }
    std::string names;
    for (std::size_t i = 0; i < std::min(left.size(), SHOWN); ++i) {
        names += (names.empty() ? "" : ", ") + left[i];
    }
    if (left.size() > SHOWN) {
        names += fmt::format(" and {} more", left.size() - SHOWN);
    }
    task.context.output.note("left-behind", task.path,
                             fmt::format("{}: {} without a service: {}", keyText(task.key),
                                         task.context.options.dryRun ? "would leave" : "leaves", names));
}

}  // namespace

int setRecord(Context& context, const RecordArguments& arguments) {
    std::vector<std::string> words = arguments.words;
    if (arguments.valueFrom) {
        words.push_back("value=" + valueFrom(*arguments.valueFrom));
    }
    const std::vector<FieldEdit> edits = editsOf(kindOf(arguments.type), words);
    const RecordTask task = taskOf(context, arguments, "set");
    refusingFor(task.path, task.doing, [&] {
        // The change log has a line for the record; a line break would let it hold another.
        for (const std::string& word : arguments.key) {
            refuseControl("key", word);
        }
        for (const FieldEdit& edit : edits) {
            refuseControl(edit.field->name, edit.text);
        }
        GlobalRegRecord trial = task.key;
        applyEdits(trial, edits);
    });
    Change change = changeOfRecords(task.path, task.doing);
    MadeRecord made;
    change.make = [&](const std::string& path) {
        RecordSet set(task, edits, path);
        const bool changed = set.make();
        made = set.made();
        return changed;
    };
    change.told = [&] { return std::vector{toldRecord(made)}; };
    const int status = carryOut(context, change);
    if (!made.before && !context.options.dryRun) {
        context.output.note("added", task.path, fmt::format("{}: added", keyText(task.key)));
    }
    return status;
}

int removeRecords(Context& context, const RecordArguments& arguments) {
    const Options& options = context.options;
    if (options.all && options.ifValue) {
        throw usageFailure("--if-value is about one record, --all about several");
    }
    const RecordTask task = taskOf(context, arguments, "remove");
    if (task.key.fieldMask != task.kind.keyFields && !options.all) {
        throw usageFailure(fmt::format("{}: which one? {} names several", keyText(task.key), task.doing),
                           "the whole key, or --all");
    }
    if (options.all && !options.yes && !options.dryRun) {
        const std::vector<FoundRecord> all = recordsOf(task, task.path);
        const std::size_t count = arguments.ifPresent && meant(task, all).empty() ? 0 : removable(task, all).size();
        if (count > 1) {
            confirm(task.path, fmt::format("remove {} records ({})", count, keyText(task.key)));
        }
    }
    Change change = changeOfRecords(task.path, task.doing);
    std::vector<FoundRecord> removed;
    std::vector<std::string> left;
    change.make = [&](const std::string& path) { return removeFrom(task, path, arguments.ifPresent, &removed, &left); };
    change.told = [&] {
        std::vector<ToldChange> told;
        for (const FoundRecord& record : removed) {
            told.push_back(toldRecord({record, {}, true}));
        }
        return told.empty() ? std::vector{toldAbsence(task.key)} : told;
    };
    const int status = carryOut(context, change);
    tellLeftBehind(task, left);
    return status;
}

}  // namespace tool

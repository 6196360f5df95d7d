#include <fmt/core.h>

#include <filesystem>
#include <memory>
#include <utility>

#include "base/Diff.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "entries/BinVarRegistry.h"
#include "entries/EntryChanges.h"
#include "entries/Remarks.h"
#include "global/GlobalRegistry.h"
#include "inspect/InspectCommands.h"
#include "records/RecordChanges.h"
#include "records/RecordDiff.h"
#include "records/Salvage.h"

namespace tool {
namespace {

struct Arguments {
    std::string before;
    std::string after;
};

bool isThere(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

// What a single file is compared with: what a writer left beside it, else the global registry.
std::string otherSide(const Context& context, const std::string& path) {
    judgeFile(path, "compare", true);
    const RegistryFile file(path);
    for (const std::string& companion : {file.temporaryPath(), file.backupPath(), file.corruptPath()}) {
        if (isThere(companion) && !isSameFile(companion, path)) {
            return companion;
        }
    }
    std::string global = globalRegistryPath(context);
    const bool comparable = isBinary(readFile(path, "compare")) && isThere(global) && !isSameFile(global, path);
    if (!comparable) {
        throw usageFailure(
            fmt::format("{}: no .tmp, .bkp or .cor stands beside it; compare it with what?", printable(path)),
            fmt::format("genreg diff {} OTHER", shellWord(path)));
    }
    return global;
}

// Refuses to call a comparison complete that could not read everything.
void refuseDamage(const std::string& path, const SalvagedRegistry& file) {
    if (!file.isSound()) {
        throw damageFailure(path, file);
    }
}

int differing(Context& context, const Difference& difference, const std::string& why) {
    context.output.note("differs", difference.oldName,
                        fmt::format("differs from {}; {}", printable(difference.newName), why));
    return EXIT_NEGATIVE;
}

// In the shape of a change that turned the first into the second.
void tellChanges(Context& context, const Difference& difference, const std::vector<ToldChange>& changes) {
    for (const ToldChange& change : changes) {
        context.output.json(changeObject(change, context.operation, difference.oldName, false));
    }
}

int compareLinesOf(Context& context, const Difference& difference) {
    if (difference.empty()) {
        context.output.detail("no difference");
        return EXIT_DONE;
    }
    if (!context.output.style.json) {
        printDifference(context.output, difference);
        return EXIT_NEGATIVE;
    }
    const bool first = !difference.before.empty();
    const EntrySchema* const form =
        formOf(first ? difference.oldName : difference.newName, first ? difference.before : difference.after);
    const auto changes = changesOfLines(form != nullptr ? *form : varValSchema(), difference.before, difference.after);
    tellChanges(context, difference, changes);
    return changes.empty() ? differing(context, difference, "in the order of lines, or in how the last one ends")
                           : EXIT_NEGATIVE;
}

int sameRecords(Context& context, const Difference& difference) {
    if (!difference.empty()) {
        context.output.note("same", difference.oldName,
                            fmt::format("has the records of {}; their order or what readers skip differs",
                                        printable(difference.newName)));
    }
    return EXIT_DONE;
}

// A file of the global registry; one that was too damaged to tell is taken for such a one.
SalvagedRegistry asGlobal(SalvagedRegistry file, std::string_view bytes) {
    return file.content == RegistryContent::GLOBAL ? std::move(file) : takeApart(bytes, true);
}

int compareRecordsOf(Context& context, const Difference& difference, const SalvagedRegistry& before,
                     const SalvagedRegistry& after) {
    const std::vector<FoundRecord> oldRecords = before.records();
    const std::vector<FoundRecord> newRecords = after.records();
    const std::vector<RecordChange> changes = compareRecords(oldRecords, newRecords);
    if (context.output.style.json) {
        tellChanges(context, difference, changesOfRecords(difference.before, difference.after));
    } else {
        printRecordDifference(context.output, difference, changes);
    }
    refuseDamage(difference.oldName, before);
    refuseDamage(difference.newName, after);
    return changes.empty() ? sameRecords(context, difference) : EXIT_NEGATIVE;
}

int compareVariables(Context& context, const Difference& difference) {
    const Difference lines{difference.oldName, difference.newName, binVarLines(difference.before),
                           binVarLines(difference.after)};
    if (lines.empty()) {
        return sameRecords(context, difference);
    }
    if (!context.output.style.json) {
        return compareLinesOf(context, lines);
    }
    tellChanges(context, difference, changesOfVariables(difference.before, difference.after));
    return EXIT_NEGATIVE;
}

int compareBinary(Context& context, const Difference& difference) {
    SalvagedRegistry before = takeApart(difference.before, false);
    SalvagedRegistry after = takeApart(difference.after, false);
    // What is too damaged to tell goes with the other side.
    const auto is = [](const SalvagedRegistry& file, RegistryContent content) {
        return file.parts.empty() || file.content == content ||
               (file.content == RegistryContent::OTHER && !file.isSound());
    };
    const auto both = [&](RegistryContent content) { return is(before, content) && is(after, content); };
    if (both(RegistryContent::GLOBAL)) {
        return compareRecordsOf(context, difference, asGlobal(std::move(before), difference.before),
                                asGlobal(std::move(after), difference.after));
    }
    int status = EXIT_DONE;
    if (both(RegistryContent::VARIABLES)) {
        status = compareVariables(context, difference);
    } else if (!difference.empty()) {
        status = differing(context, difference,
                           before.content == after.content ? "their records are of a kind not known here"
                                                           : "their records are of different kinds");
    }
    refuseDamage(difference.oldName, before);
    refuseDamage(difference.newName, after);
    return status;
}

int compare(Context& context, const Arguments& arguments) {
    const std::string other = arguments.after.empty() ? otherSide(context, arguments.before) : arguments.after;
    const Difference difference{arguments.before, other, readFile(arguments.before, "compare"),
                                readFile(other, "compare")};
    const auto comparable = [](const std::string& bytes) { return bytes.empty() || isBinary(bytes); };
    if (comparable(difference.before) && comparable(difference.after)) {
        return compareBinary(context, difference);
    }
    if (isBinary(difference.before) || isBinary(difference.after)) {
        return differing(context, difference, "one of them is text");
    }
    return compareLinesOf(context, difference);
}

Action declareDiff(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.required("A", arguments->before, "a registry file, or a companion or copy of it");
    parser.optional("B", arguments->after,
                    "the other one; when there is none, the .tmp, .bkp or .cor beside A, else the global registry");
    parser.footer(
        "Binary registries are compared record by record: - only in A, + only in B, ~ fields old -> new.\n"
        "Exits 7 when a frame of either is damaged; the sound ones are compared all the same.");
    return [arguments](Context& context) { return compare(context, *arguments); };
}

}  // namespace

std::span<const Command> diffCommands() {
    static constexpr Command COMMANDS[] = {
        {"diff", "compare two registries by lines or records; exits 1 when they differ", 0, declareDiff},
    };
    return COMMANDS;
}

}  // namespace tool

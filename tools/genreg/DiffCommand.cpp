#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "Commands.h"
#include "Diff.h"
#include "Files.h"
#include "GlobalRegistry.h"
#include "RecordDiff.h"
#include "Text.h"
#include "Update.h"

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
    const std::string global = globalRegistryPath(context);
    const bool comparable = isBinary(readFile(path, "compare")) && isThere(global) && !isSameFile(global, path);
    if (!comparable) {
        throw usageFailure(
            fmt::format("{}: no .tmp, .bkp or .cor stands beside it; compare it with what?", printable(path)),
            fmt::format("genreg diff {} OTHER", printable(path)));
    }
    return global;
}

// Refuses to call a comparison complete that could not read everything.
void refuseDamage(const std::string& path, const RecordFile& file) {
    std::vector<BadFrame> bad = file.damaged;
    bad.insert(bad.end(), file.unknown.begin(), file.unknown.end());
    if (!bad.empty()) {
        throw damageFailure(path, bad);
    }
}

int compareBinary(Context& context, const Difference& difference) {
    Output& output = context.output;
    const RecordFile before = parseRecords(difference.before);
    const RecordFile after = parseRecords(difference.after);
    if (before.records.empty() && after.records.empty()) {
        if (difference.empty()) {
            return EXIT_DONE;
        }
        output.note("differs", difference.oldName,
                    fmt::format("differs from {}; they are no text files", printable(difference.newName)));
        return EXIT_NEGATIVE;
    }
    bool differs = false;
    if (output.style.json) {
        const std::vector<Json> objects = recordDifferenceObjects(difference);
        std::for_each(objects.begin(), objects.end(), [&](const Json& object) { output.json(object); });
        differs = !objects.empty();
    } else {
        differs = printRecordDifference(output, difference);
    }
    refuseDamage(difference.oldName, before);
    refuseDamage(difference.newName, after);
    if (!differs && !difference.empty()) {
        output.note("same", difference.oldName,
                    fmt::format("has the records of {}; their order or what readers skip differs",
                                printable(difference.newName)));
    }
    return differs ? EXIT_NEGATIVE : EXIT_DONE;
}

int compare(Context& context, const Arguments& arguments) {
    Output& output = context.output;
    const std::string other = arguments.after.empty() ? otherSide(context, arguments.before) : arguments.after;
    const Difference difference{arguments.before, other, readFile(arguments.before, "compare"),
                                readFile(other, "compare")};
    const auto comparable = [](const std::string& bytes) { return bytes.empty() || isBinary(bytes); };
    if (comparable(difference.before) && comparable(difference.after)) {
        return compareBinary(context, difference);
    }
    if (difference.empty()) {
        output.detail("no difference");
        return EXIT_DONE;
    }
    if (isBinary(difference.before) || isBinary(difference.after)) {
        output.note("differs", arguments.before, fmt::format("differs from {}; one of them is text", printable(other)));
    } else if (output.style.json) {
        for (const Json& object : differenceObjects(difference)) {
            output.json(object);
        }
    } else {
        printDifference(output, difference);
    }
    return EXIT_NEGATIVE;
}

Action declareDiff(CLI::App& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.add_option("A", arguments->before, "a registry file, or a companion or copy of it")->required();
    parser.add_option("B", arguments->after,
                      "the other one; when there is none, the .tmp, .bkp or .cor beside A, else the global registry");
    parser.footer(
        "Files that hold a NUL byte are compared record by record: - only in A, + only in B, ~ fields old -> new.\n"
        "Exits 7 when a frame of either is damaged; the sound ones are compared all the same.");
    return [arguments](Context& context) { return compare(context, *arguments); };
}

constexpr Command COMMANDS[] = {
    {"diff", "compare two registries by lines or records; exits 1 when they differ", 0, declareDiff},
};

}  // namespace

std::span<const Command> diffCommands() {
    return COMMANDS;
}

}  // namespace tool

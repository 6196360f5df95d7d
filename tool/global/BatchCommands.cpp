// Batches of the global registry: apply, export, import.
#include <fmt/core.h>

#include <memory>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Progress.h"
#include "base/Text.h"
#include "base/Update.h"
#include "global/GlobalBatch.h"
#include "global/GlobalCommands.h"
#include "global/GlobalPath.h"
#include "records/RecordDiff.h"

namespace tool {
namespace {

struct BatchWords {
    std::string source;  // empty: standard input
    bool merge = false;
    bool replace = false;
};

// Where records are to be deleted that nobody named.
void askBeforeReplacing(const Context& context, const std::string& path, const AskedChanges& asked) {
    if (context.options.yes || context.options.dryRun || !judgeFile(path, "import", false)) {
        return;
    }
    GlobalBatch trial(context, path, true, "import");
    const std::size_t lost = trial.deleteOthers(asked, [](const MadeRecord&) {});
    if (lost != 0) {
        confirm(path, fmt::format("delete {} record{} that the batch does not name", lost, lost == 1 ? "" : "s"));
    }
}

int applyChanges(Context& context, const BatchWords& words, bool replaces) {
    AskedChanges asked = readChanges(words.source);
    const std::string path = globalRegistryPath(context);
    if (replaces) {
        for (AskedChange& each : asked) {
            if (each.item.op() == BatchOp::Delete) {
                throw each.item.failure("import --replace deletes what the batch does not name", "leave it out");
            }
            each.whole = true;
        }
        askBeforeReplacing(context, path, asked);
    }
    BatchTally tally;
    const auto count = [&](const MadeRecord& made) {
        tally.count(made);
        if (context.output.style.json) {
            tally.told.push_back(toldRecord(made));
        }
    };
    Change change = changeOfRecords(path, replaces ? "import" : "apply");
    change.make = [&](const std::string& file) {
        tally = {};
        GlobalBatch batch(context, file, file != path, change.doing);
        {
            const Progress progress("making the changes", asked.size());
            if (replaces) {
                (void)batch.deleteOthers(asked, count);
            }
            for (const AskedChange& each : asked) {
                each.item.naming([&] { batch.make(each, count); });
                Progress::step();
            }
        }
        const Progress progress("writing " + path);
        return batch.commit();
    };
    change.told = [&] { return std::move(tally.told); };
    const int status = carryOut(context, change);
    if (!context.output.style.json) {
        context.output.line(tally.summary());
    }
    return status;
}

Action declareApply(Parser& parser) {
    auto words = std::make_shared<BatchWords>();
    parser.optional("BATCH", words->source, "a file of JSON lines, or - for standard input");
    return [words](Context& context) { return applyChanges(context, *words, false); };
}

Action declareImport(Parser& parser) {
    auto words = std::make_shared<BatchWords>();
    parser.optional("BATCH", words->source, "a file of JSON lines, or - for standard input");
    parser.flag("--merge", words->merge, "set what the batch names, as apply does");
    parser.flag("--replace", words->replace, "make the registry equal to the batch");
    return [words](Context& context) {
        if (words->merge == words->replace) {
            throw usageFailure("import wants --merge or --replace",
                               "--merge sets what the batch names, --replace deletes the rest as well");
        }
        return applyChanges(context, *words, words->replace);
    };
}

Action declareExport(Parser& parser) {
    auto file = std::make_shared<std::string>();
    parser.optionalFile(*file, "a registry, or a copy of one; else the global registry");
    return [file](Context& context) {
        const std::string path = file->empty() ? globalRegistryPath(context) : *file;
        judgeFile(path, "export", true);
        for (const FoundRecord& record : GlobalRegistry(context, path, true).read("export")) {
            context.output.json(recordObject(record));
        }
        return EXIT_DONE;
    };
}

constexpr unsigned int APPLIES = USES_REGISTRY | USES_UPDATE;

}  // namespace

std::span<const Command> batchCommands() {
    static constexpr Command COMMANDS[] = {
        {"apply", "make a batch of changes of the global registry with one commit", APPLIES, declareApply},
        {"export", "the records of the global registry as JSON lines", USES_REGISTRY, declareExport},
        {"import", "bring exported records in", APPLIES | USES_YES, declareImport},
    };
    return COMMANDS;
}

}  // namespace tool

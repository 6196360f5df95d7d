#include "publish/Export.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/DiskFiles.h"
#include "global/GlobalPath.h"
#include "global/GlobalRegistry.h"

namespace fleet {
namespace {

// Of `genreg export`, a line each.
std::vector<tool::Json> recordsOf(tool::Context& context, const std::string& path) {
    tool::judgeFile(path, "export", true);
    std::vector<tool::Json> records;
    tool::GlobalRegistry(context, path, true).readEach("export", [&](const tool::FoundRecord& record) {
        tool::Json line{{"schema", 1}};
        line.update(tool::recordObject(record));
        records.push_back(std::move(line));
    });
    return records;
}

}  // namespace

Exporter::Exporter(tool::Context& context, const Settings& settings) : context_(context), paths_(settings.registries) {
    if (paths_.empty()) {
        paths_.push_back(tool::globalFile(context));
    }
}

Exported Exporter::read() {
    Exported exported;
    for (const std::string& path : paths_) {
        try {
            exported.registries.push_back({path, recordsOf(context_, path)});
        } catch (const tool::Failure& failure) {
            const auto before = std::ranges::find(before_, path, &MirroredRegistry::path);
            if (failure.kind == "locked") {
                exported.postponed = true;
                if (before != before_.end()) {
                    exported.registries.push_back(*before);
                }
            } else {
                exported.errors.push_back({path, failure.kind, failure.message});
            }
        }
    }
    before_ = exported.registries;
    exported.content = contentOf(exported.errors, exported.registries);
    return exported;
}

}  // namespace fleet

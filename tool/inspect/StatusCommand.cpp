#include <fmt/core.h>
#include <osse/Files.h>

#include <chrono>
#include <memory>
#include <optional>

#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "entries/Remarks.h"
#include "global/GlobalPath.h"
#include "global/GlobalRegistry.h"
#include "inspect/Companions.h"
#include "inspect/InspectCommands.h"
#include "inspect/LockReport.h"
#include "inspect/RegistryReport.h"

namespace tool {
namespace {

// Size and age, as far as they can be told.
void addSizeAndAge(Json& object, const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    object["size"] = error ? Json(nullptr) : Json(size);
    const auto written = std::filesystem::last_write_time(path, error);
    const auto age = std::chrono::file_clock::now() - written;
    object["ageSeconds"] = error ? Json(nullptr) : Json(std::chrono::duration_cast<std::chrono::seconds>(age).count());
}

std::string ageText(const Json& object) {
    return object["ageSeconds"].is_null() ? "?" : duration(object["ageSeconds"].get<long long>());
}

Json companionObject(const Companion& companion) {
    Json object{{"companion", companion.name}};
    putText(object, "path", companion.path);
    addSizeAndAge(object, companion.path);
    object["meaning"] = companion.meaning;
    return object;
}

Json fileObject(const std::string& given, const RegistryFile& file) {
    OSSFileInfo info{};
    const unsigned int code = ossFileGetInfoV9(given.c_str(), &info);
    if (code != 0) {
        throw libraryFailure(code, given, "tell the status");
    }
    Json object = Json::object();
    putText(object, "path", given);
    putText(object, "realPath", file.registryPath());
    addSizeAndAge(object, given);
    object["mode"] = fmt::format("{:04o}", info.permissions);
    object["owner"] = info.owner;
    object["group"] = info.group;
    return object;
}

struct Report {
    Json file;
    Json lines;    // null for a binary registry
    Json records;  // null for a text registry
    Json lock;
    std::vector<Json> companions;
    Json monitor;  // of the global registry; null for others
    Json changeLog;
};

// Lines of any schema are counted as those of variables.
Json linesObject(const std::string& bytes) {
    using Kind = JudgedLine::Kind;
    auto counts = countLines(varValSchema(), bytes);
    return {{"total", counts[Kind::ENTRY] + counts[Kind::COMMENT] + counts[Kind::BLANK] + counts[Kind::REFUSED]},
            {"pairs", counts[Kind::ENTRY]},
            {"comments", counts[Kind::COMMENT]},
            {"blank", counts[Kind::BLANK]},
            {"other", counts[Kind::REFUSED]}};
}

void print(Output& output, const Report& report) {
    const auto text = [](const Json& object, const char* key) { return printable(object.value(key, std::string())); };
    const std::string path = text(report.file, "path");
    const std::string real = text(report.file, "realPath");
    output.line(fmt::format("file      {}{}", path, path == real ? "" : " -> " + real));
    output.line(fmt::format("size      {}, changed {} ago", sizeText(report.file), ageText(report.file)));
    output.line(fmt::format("mode      {}, owned by user {}, group {}", text(report.file, "mode"),
                            report.file["owner"].dump(), report.file["group"].dump()));
    if (report.lines.is_null()) {
        output.line("records   " + recordsText(report.records));
    } else {
        output.line(fmt::format("lines     {} in all: {} variable = value, {} comment, {} blank, {} of another form",
                                report.lines["total"].dump(), report.lines["pairs"].dump(),
                                report.lines["comments"].dump(), report.lines["blank"].dump(),
                                report.lines["other"].dump()));
    }
    output.line("lock      " + lockText(report.lock));
    for (const Json& companion : report.companions) {
        output.line(fmt::format("{:<9} {} ({}, {} old): {}", text(companion, "companion"), text(companion, "path"),
                                sizeText(companion), ageText(companion), text(companion, "meaning")));
    }
    if (!report.monitor.is_null()) {
        output.line("monitor   " + monitorText(report.monitor));
        output.line("log       " + changeLogText(report.changeLog));
    }
}

// The records of a binary registry: counted, and what of them is damaged.
struct Records {
    Json counted = Json::object();
    std::optional<Failure> damage{};
};

// Frames of none but unknown types are another kind of registry; among records of the known types, or in the global
// registry, they are damage, as they are to every reader.
Records recordsOf(const std::string& path, const std::string& bytes, bool global) {
    const SalvagedRegistry registry = takeApart(bytes, global);
    Records records{registry.content == RegistryContent::VARIABLES ? variablesObject(registry)
                                                                   : recordsObject(registry)};
    if (!registry.isSound()) {
        records.damage = damageFailure(path, registry);
    }
    return records;
}

int status(Context& context, const std::string& given) {
    const std::string path = globalFile(context, given);
    judgeFile(path, "tell the status", true);
    const bool global = isGlobalRegistry(context, path);
    const std::string bytes = readFile(path, "tell the status");
    const bool binary = global || isBinary(bytes);
    const Records records = binary ? recordsOf(path, bytes, global) : Records();
    const RegistryFile file(path);
    Report report{fileObject(path, file), nullptr, nullptr, lockObject(file), {}, nullptr, nullptr};
    (binary ? report.records : report.lines) = binary ? records.counted : linesObject(bytes);
    for (const Companion& companion : companions(file, report.lock["held"].get<bool>())) {
        report.companions.push_back(companionObject(companion));
    }
    if (global) {
        report.monitor = monitorObject();
        report.changeLog = changeLogObject();
    }
    if (context.output.style.json) {
        Json object = report.file;
        object["lines"] = report.lines;
        object["records"] = report.records;
        object["lock"] = report.lock;
        object["companions"] = report.companions;
        object["monitor"] = report.monitor;
        object["changeLog"] = report.changeLog;
        context.output.json(object);
    } else {
        print(context.output, report);
    }
    if (records.damage) {
        throw Failure(*records.damage);
    }
    return EXIT_DONE;
}

Action declareStatus(Parser& parser) {
    auto file = std::make_shared<std::string>();
    parser.optionalFile(*file, "the registry file; the global registry when there is none");
    parser.footer(
        "The global registry, and a file that begins as one of records does, is read as records; any other file as "
        "lines.");
    return [file](Context& context) { return status(context, *file); };
}

}  // namespace

std::span<const Command> statusCommands() {
    static constexpr Command COMMANDS[] = {
        {"status", "size, mode, owner, contents, companions and lock of a registry", USES_REGISTRY, declareStatus},
    };
    return COMMANDS;
}

}  // namespace tool

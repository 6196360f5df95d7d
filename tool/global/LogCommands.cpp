#include <fmt/core.h>
#include <osse/Files.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>

#include "base/Answers.h"
#include "base/Diff.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "global/ChangeLogLine.h"
#include "global/GlobalCommands.h"
#include "system/System.h"

namespace tool {
namespace {

constexpr char LOG_PATH[] = "/tmp/globalreg.debug";
constexpr mode_t LOG_PERMISSIONS = 0666;

std::filesystem::file_type typeOf(const std::string& path) {
    std::error_code error;
    return std::filesystem::symlink_status(path, error).type();
}

// Whether the log is on. What is neither a plain file nor missing was put there by somebody: nothing is done with it.
bool isOn() {
    const std::filesystem::file_type type = typeOf(LOG_PATH);
    if (type == std::filesystem::file_type::not_found) {
        return false;
    }
    if (type != std::filesystem::file_type::regular) {
        Failure failure = systemFailure(EEXIST, LOG_PATH, "use it");
        failure.kind = "conflict";
        failure.exitStatus = EXIT_CONFLICT;
        failure.message = fmt::format("{} is {}: nobody logs to it", LOG_PATH,
                                      type == std::filesystem::file_type::symlink ? "a link" : "no plain file");
        failure.hint = "look who put it there: ls -l " + std::string(LOG_PATH);
        throw failure;
    }
    std::error_code error;
    if (std::filesystem::hard_link_count(LOG_PATH, error) > 1 && !error) {
        Failure failure = systemFailure(EEXIST, LOG_PATH, "use it");
        failure.kind = "conflict";
        failure.exitStatus = EXIT_CONFLICT;
        failure.message = fmt::format("{} has a second name: nobody logs to it", LOG_PATH);
        failure.hint = "look who put it there, and remove it";
        throw failure;
    }
    return true;
}

int logOn(Context& context) {
    if (isOn()) {
        context.output.note("unchanged", LOG_PATH, "the log is on already");
        return EXIT_DONE;
    }
    // Exclusively: whatever appears there meanwhile, a link above all, makes this fail.
    std::FILE* stream = std::fopen(LOG_PATH, "wxe");
    if (stream == nullptr) {
        throw systemFailure(errno, LOG_PATH, "create it");
    }
    const int error = setPermissions(stream, LOG_PERMISSIONS);
    (void)std::fclose(stream);
    if (error != 0) {
        throw systemFailure(error, LOG_PATH, "let everybody write to it");
    }
    context.output.note("log", LOG_PATH, "the log is on");
    return EXIT_DONE;
}

int logOff(Context& context) {
    if (!isOn()) {
        context.output.note("unchanged", LOG_PATH, "the log is off already");
        return EXIT_DONE;
    }
    if (!context.options.yes) {
        confirm(LOG_PATH, "remove it and the lines in it");
    }
    std::error_code error;
    if (!std::filesystem::remove(LOG_PATH, error)) {
        throw systemFailure(error ? error.value() : ENOENT, LOG_PATH, "remove it");
    }
    context.output.note("log", LOG_PATH, "the log is off");
    return EXIT_DONE;
}

int logStatus(Context& context) {
    const bool on = isOn();
    Json object{{"path", LOG_PATH}, {"on", on}, {"size", nullptr}, {"mode", nullptr}, {"owner", nullptr}};
    OSSFileInfo info{};
    if (on && ossFileGetInfoV9(LOG_PATH, &info) == 0) {
        object["size"] = info.size;
        object["mode"] = fmt::format("{:04o}", info.permissions);
        object["owner"] = info.owner;
    }
    if (context.output.style.json) {
        context.output.json(object);
    } else if (!on) {
        context.output.line(fmt::format("{}: off (genreg log on creates it)", LOG_PATH));
    } else {
        context.output.line(fmt::format("{}: on, {}, mode {:04o}, owned by user {}", LOG_PATH,
                                        counted(info.size, "byte"), info.permissions, info.owner));
    }
    return EXIT_DONE;
}

bool isNumber(const std::string& text, int* number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size();
}

Json loggedObject(const LoggedRecord& record) {
    Json object{{"type", recordTypeName(record.type)}};
    for (const auto& [field, text] : record.fields) {
        int number = 0;
        if (text && field->kind == GLOBALREG_FIELD_NUMBER && isNumber(*text, &number)) {
            object[field->name] = number;
        } else if (text) {
            putText(object, field->name, *text);
        } else {
            object[field->name] = nullptr;
        }
    }
    return object;
}

std::string recordText(const LoggedRecord& record) {
    std::string text = recordTypeName(record.type);
    for (const auto& [field, value] : record.fields) {
        text += value ? fmt::format(" {}={}", field->name, cell(*value)) : "";
    }
    return text;
}

Json lineObject(const ChangeLogLine& line) {
    Json object = Json::object();
    for (const auto& [name, text] : {std::pair{"time", &line.time}, {"caller", &line.caller}}) {
        putText(object, name, *text);
    }
    object["pid"] = line.pid;
    object["user"] = line.user;
    putText(object, "level", line.level);
    putText(object, "fixpack", line.fixpack);
    putText(object, "path", line.path);
    putText(object, "action", line.action);
    object["commandLine"] = nullptr;
    if (line.commandLine) {
        object.erase("commandLine");
        putText(object, "commandLine", *line.commandLine);
    }
    object["record"] = line.record ? loggedObject(*line.record) : Json(nullptr);
    object["newRecord"] = line.newRecord ? loggedObject(*line.newRecord) : Json(nullptr);
    if (!line.record) {
        putText(object, "recordText", line.recordText);
    }
    return object;
}

std::vector<std::string> lineCells(const ChangeLogLine& line) {
    const std::string record =
        !line.record ? printable(line.recordText)
                     : recordText(*line.record) + (line.newRecord ? "  =>  " + recordText(*line.newRecord) : "");
    return {cell(line.time),
            cell(line.action),
            cell(line.caller),
            std::to_string(line.pid),
            std::to_string(line.user),
            fmt::format("{}/{}", printable(line.level), printable(line.fixpack)),
            cell(line.path),
            line.commandLine ? cell(*line.commandLine) : std::string(ABSENT),
            record};
}

int showLog(Context& context, const std::string& given) {
    if (given.empty() && !isOn()) {
        Failure failure = systemFailure(ENOENT, LOG_PATH, "show it");
        failure.hint = "genreg log on creates it";
        throw failure;
    }
    const std::string path = given.empty() ? std::string(LOG_PATH) : given;
    const std::string bytes = readFile(path, "show it");
    Output& output = context.output;
    Table table({"TIME (UTC)", "ACTION", "CALLER", "PID", "USER", "LEVEL", "PATH", "COMMAND LINE", "RECORD"});
    std::vector<std::string> others;
    std::size_t number = 0;
    for (std::string_view raw : splitLines(bytes)) {
        ++number;
        raw = raw.substr(0, raw.find('\n'));
        const std::optional<ChangeLogLine> line = parseChangeLogLine(raw);
        if (line && output.style.json) {
            Json object{{"line", number}};
            object.update(lineObject(*line));
            output.json(object);
        } else if (line) {
            table.row(lineCells(*line));
        } else {
            others.push_back(fmt::format("line {}: {}", number, printable(raw)));
            if (output.style.json) {
                Json object{{"line", number}};
                putText(object, "raw", raw);
                output.json(object);
            }
        }
    }
    if (!output.style.json) {
        table.print(output);
        for (const std::string& other : others) {
            output.line(other);
        }
    }
    output.flush();
    if (!others.empty()) {
        output.note("unparsed", path,
                    fmt::format("{} of {} {} another form", others.size(), counted(number, "line"),
                                others.size() == 1 ? "has" : "have"));
    }
    return EXIT_DONE;
}

}  // namespace

std::span<const Command> logCommands() {
    static constexpr Command COMMANDS[] = {
        {"log on", "create the change log: from now on every change leaves a line in it", 0,
         [](Parser&) -> Action { return logOn; }},
        {"log off", "remove the change log", USES_YES, [](Parser&) -> Action { return logOff; }},
        {"log status", "whether changes are logged", 0, [](Parser&) -> Action { return logStatus; }},
        {"log show", "the lines of the change log", 0,
         [](Parser& parser) -> Action {
             auto file = std::make_shared<std::string>();
             parser.optionalFile(*file, "a saved log, instead of the one being written");
             return [file](Context& context) { return showLog(context, *file); };
         }},
    };
    return COMMANDS;
}

}  // namespace tool

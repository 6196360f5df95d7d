#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>

#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "global/GlobalPath.h"
#include "records/RecordDiff.h"
#include "records/Salvage.h"
#include "watch/WatchCommand.h"
#include "watch/Watching.h"

namespace tool {
namespace {

constexpr int MEND_MILLISECONDS = 1000;      // how often a directory that went away is looked for
constexpr int PATIENCE_MILLISECONDS = 5000;  // for a command that was asked to end

struct Arguments {
    std::string command;
    bool follow = false;
};

// A command of --exec as it runs: a process group of its own, the change on its standard input.
class Reaction {
public:
    Reaction(const Context& context, const std::string& command, const std::vector<std::string>& variables,
             const std::string& input) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(unnamedFile(input), std::fclose);
        if (stream == nullptr) {
            throw systemFailure(errno, command, "hand the change to the command");
        }
        start(command, variables, fileno(stream.get()), context.output.descriptor());
    }

    // Waits for its end; hurries it when the end of all is asked for. The exit status as a shell tells it.
    int await(const WatchSignals& signals) const {
        int status = 0;
        int left = PATIENCE_MILLISECONDS;
        while (!hasEnded(child_, &status)) {
            if (!signals.endAsked()) {
                signals.wait(-1);
                continue;
            }
            endGroup(child_, left <= 0);
            signals.wait(left > 0 ? 100 : -1);
            left -= 100;
        }
        return status;
    }

private:
    void start(const std::string& command, const std::vector<std::string>& variables, int input, int output) {
        ChildSetup setup;
        setup.words = {"/bin/sh", "-c", command};
        setup.environment = variables;
        for (std::string& inherited : inheritedEnvironment()) {
            if (!inherited.starts_with("GENREG_")) {
                setup.environment.push_back(std::move(inherited));
            }
        }
        setup.input = input;
        setup.output = output;
        if (const int error = startGroup(setup, &child_)) {
            throw systemFailure(error, command, "run it");
        }
    }

    pid_t child_ = 0;
};

std::string now() {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

// The registry, and what it leads to where it is a link.
std::vector<std::string> placesOf(const std::string& path) {
    std::error_code error;
    const std::string real = std::filesystem::weakly_canonical(path, error);
    return error || real == path ? std::vector{path} : std::vector{path, real};
}

using Records = std::vector<FoundRecord>;

const char* actionOf(const RecordChange& change) {
    return change.before == nullptr ? "add" : change.after == nullptr ? "delete" : "change";
}

// Deletions first, then what is there in its order.
std::vector<RecordChange> changesBetween(const Records& before, const Records& after) {
    std::vector<RecordChange> changes = compareRecords(before, after);
    std::stable_sort(changes.begin(), changes.end(),
                     [](const RecordChange& a, const RecordChange& b) { return std::less<>()(a.after, b.after); });
    return changes;
}

Json fieldsOf(const FoundRecord* record) {
    if (record == nullptr) {
        return nullptr;
    }
    Json object = Json::object();
    putFields(object, *record);
    putLater(object, record->later);
    return object;
}

// "action", "type", "key", "changed" (names of fields), "before" and "after", null where there is none.
Json changeObject(const RecordChange& change) {
    const RecordKind& kind = kindOf(change.shown().recordType);
    Json object{{"action", actionOf(change)}, {"type", kind.name}};
    object["key"] = Json::object();
    putFields(object["key"], change.shown(), kind.keyFields);
    object["changed"] = Json::array();
    for (const FieldChange& field : change.fields) {
        const Json name = field.field == nullptr ? "unknown" : field.name;
        if (object["changed"].empty() || object["changed"].back() != name) {
            object["changed"].push_back(name);
        }
    }
    object["before"] = fieldsOf(change.before);
    object["after"] = fieldsOf(change.after);
    return object;
}

std::string fieldWord(const FoundRecord& record, const FieldChange& change) {
    return change.field != nullptr ? valueWord(record, *change.field) : laterCell(record.later, change.bit);
}

// "change   instance RVN 9.7.0.2 inst1  startAtBoot: 0 -> 1".
std::string changeText(const RecordChange& change) {
    const FoundRecord& record = change.shown();
    const RecordKind& kind = kindOf(record.recordType);
    std::string text = fmt::format("{:<7}  {}", actionOf(change), kind.name);
    std::string values;
    for (const GlobalRegField& field : kind.fields) {
        if (field.key && has(record, field)) {
            text += " " + valueWord(record, field);
        } else if (has(record, field)) {
            values += fmt::format(" {}={}", field.name, valueWord(record, field));
        }
    }
    for (const auto& [bit, bytes] : record.later) {
        values += fmt::format(" {}={}", laterName(bit), laterCell(bytes));
    }
    if (change.isChange()) {
        values.clear();
        for (const FieldChange& field : change.fields) {
            values += fmt::format(" {}: {} -> {}", field.name, fieldWord(*change.before, field),
                                  fieldWord(*change.after, field));
        }
    }
    text += (values.empty() ? "" : " ") + values;
    return change.isChange() ? text : text.substr(0, text.find_last_not_of(' ') + 1);
}

class Watcher {
public:
    Watcher(Context& context, const Arguments& arguments, WatchSignals& signals, std::string path)
        : context_(context), arguments_(arguments), signals_(signals), path_(std::move(path)), news_(placesOf(path_)) {
        if (auto records = read()) {
            records_ = std::move(*records);
        }
    }

    void begin() const {
        context_.output.note("watching", path_,
                             fmt::format("watching {}{}; ^C or SIGTERM ends it", counted(records_.size(), "record"),
                                         arguments_.follow ? "" : fmt::format(" as the monitor, pid {}", processId())));
    }

    void run() {
        Output& output = context_.output;
        bool mended = true;
        bool read = true;
        while (!signals_.endAsked() && read) {
            read = news_.wait(signals_, output.descriptor(), mended ? -1 : MEND_MILLISECONDS);
            const bool concerned = news_.take();
            const bool look = signals_.takeLook();
            const bool wasMended = mended;
            mended = news_.mend();
            if (concerned || look || !wasMended) {
                tellChanges();
            }
        }
    }

private:
    // None while the file is damaged, or being written by somebody who does not replace it: what was read before
    // stands until it can be read again. A missing file has no records.
    std::optional<Records> read() {
        try {
            if (!judgeFile(path_, "watch it", false)) {
                return Records();
            }
            const std::string bytes = readFile(path_, "watch it");
            const SalvagedRegistry registry = takeApart(bytes, true);
            if (registry.isSound()) {
                refused_.clear();
                return registry.records();
            }
            tellOnce(damageText(registry) + "; see genreg dump");
        } catch (const Failure& failure) {
            if (failure.kind == "missing") {
                return Records();
            }
            tellOnce(failure.message);
        }
        return std::nullopt;
    }

    void tellOnce(const std::string& message) {
        if (message != refused_) {
            refused_ = message;
            context_.output.note("unreadable", path_, message);
        }
    }

    void tellChanges() {
        auto records = read();
        if (!records) {
            return;
        }
        std::swap(records_, *records);
        Output& output = context_.output;
        for (const RecordChange& change : changesBetween(*records, records_)) {
            Json object{{"time", now()}};
            object.update(changeObject(change));
            if (output.style.json) {
                output.json(object);
            } else {
                output.line(fmt::format("{}  {}", object["time"].get<std::string>(), changeText(change)));
            }
            output.deliver();
            if (!arguments_.command.empty() && !signals_.endAsked()) {
                react(change, object);
            }
        }
    }

    void react(const RecordChange& change, const Json& object) {
        Json input{{"schema", 1}};
        input.update(object);
        std::vector<std::string> variables{fmt::format("GENREG_ACTION={}", actionOf(change)),
                                           fmt::format("GENREG_TYPE={}", object["type"].get<std::string>()),
                                           fmt::format("GENREG_PATH={}", path_)};
        for (const auto& [name, value] : object["key"].items()) {
            variables.push_back(fmt::format("GENREG_{}={}", variableName(name), value.get<std::string>()));
        }
        const Reaction reaction(context_, arguments_.command, variables, jsonText(input) + "\n");
        if (const int status = reaction.await(signals_); status != 0 && !signals_.endAsked()) {
            context_.output.note("command", path_, fmt::format("\"{}\" ended with {}", arguments_.command, status));
        }
    }

    // SERVICE, VERSION, NAME; with _b64 behind it where the value is no UTF-8 and so told in that form.
    static std::string variableName(const std::string& field) {
        const std::string suffix = field.ends_with("Base64") ? "_b64" : "";
        return (field.starts_with("service") ? "SERVICE" : field == "versionCode" ? "VERSION" : "NAME") + suffix;
    }

    Context& context_;
    const Arguments& arguments_;
    WatchSignals& signals_;
    std::string path_;
    WatchedFiles news_;  // from before the first reading on
    Records records_;
    std::string refused_;
};

int watch(Context& context, const Arguments& arguments) {
    const std::string path = globalFile(context);
    WatchSignals signals(!arguments.follow);
    std::optional<MonitorLock> lock;
    if (!arguments.follow) {
        lock.emplace(context.output);
        makeFolder(context.output, folderOf(RegistryFile(path).registryPath()));
    }
    Watcher watcher(context, arguments, signals, path);
    watcher.begin();
    watcher.run();
    return EXIT_DONE;
}

Action declareWatch(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.option("--exec", "CMD", arguments->command,
                  "run this for each change, which is on its standard input as JSON");
    parser.flag("--follow", arguments->follow, "only look on: no lock, no privilege");
    return [arguments](Context& context) { return watch(context, *arguments); };
}

}  // namespace

std::span<const Command> watchCommands() {
    static constexpr Command COMMANDS[] = {
        {"watch", "print each change of the global registry; unless --follow, as the monitor that writers wake",
         USES_REGISTRY, declareWatch},
    };
    return COMMANDS;
}

}  // namespace tool

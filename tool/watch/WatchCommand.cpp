#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <memory>
#include <optional>

#include "base/Diff.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "entries/EntryChanges.h"
#include "entries/Remarks.h"
#include "global/GlobalPath.h"
#include "records/RecordChanges.h"
#include "records/Salvage.h"
#include "system/ServiceManager.h"
#include "watch/WatchCommand.h"
#include "watch/Watching.h"

namespace tool {
namespace {

constexpr int MEND_MILLISECONDS = 1000;      // how often a directory that went away is looked for
constexpr int DOUBT_MILLISECONDS = 100;      // before an empty file is believed
constexpr int PATIENCE_MILLISECONDS = 5000;  // for a command that was asked to end

struct Arguments {
    std::vector<std::string> files;  // none: the global registry
    std::string command;
    bool follow = false;

    [[nodiscard]] bool isMonitor() const { return files.empty() && !follow; }
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
            if (!inherited.starts_with("GENREG_") && !inherited.starts_with(SERVICE_MANAGER_VARIABLE)) {
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

// A file that is watched: what it held when it could last be read.
class WatchedRegistry {
public:
    // named: by the user; else it is the global registry.
    WatchedRegistry(Output& output, std::string path, bool named)
        : output_(output), path_(std::move(path)), named_(named) {
        if (auto bytes = read()) {
            bytes_ = std::move(*bytes);
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    // How much there is in it.
    [[nodiscard]] std::string contents() const {
        const bool lines = !isOfRecords(bytes_) && !isOfVariables(bytes_);
        return lines ? counted(splitLines(bytes_).size(), "line")
                     : counted(takeApart(bytes_, !named_).parts.size(), "record");
    }

    // The same, and what is wrong with it as it stands.
    [[nodiscard]] std::string state() const {
        return refused_.empty() ? contents() : fmt::format("{}, as last read; {}", contents(), refused_);
    }

    // Whether it was found empty: it may be about to be written, by somebody who does not replace it.
    [[nodiscard]] bool isInDoubt() const { return isInDoubt_; }

    // What has changed since the last time.
    std::vector<ToldChange> changes() {
        auto bytes = read();
        const bool emptied = named_ && bytes && bytes->empty() && !bytes_.empty();
        isInDoubt_ = emptied && !isInDoubt_;
        if (!bytes || *bytes == bytes_ || isInDoubt_) {
            return {};
        }
        std::swap(bytes_, *bytes);
        return between(*bytes, bytes_);
    }

private:
    // None while the file is damaged, or being written by somebody who does not replace it: what was read before
    // stands until it can be read again. A global registry that is missing has no records; another file is waited for.
    std::optional<std::string> read() {
        try {
            if (!judgeFile(path_, "watch it", false)) {
                return absent();
            }
            std::string bytes = readFile(path_, "watch it");
            const SalvagedRegistry registry = isText(bytes) ? SalvagedRegistry() : takeApart(bytes, !named_);
            if (registry.isSound()) {
                refused_.clear();
                return bytes;
            }
            tellOnce("unreadable", damageText(registry) + "; see genreg dump");
        } catch (const Failure& failure) {
            if (failure.kind == "missing") {
                return absent();
            }
            tellOnce("unreadable", failure.message);
        }
        return std::nullopt;
    }

    std::optional<std::string> absent() {
        if (!named_) {
            return "";
        }
        tellOnce("missing", "there is no such file; it is waited for");
        return std::nullopt;
    }

    void tellOnce(const char* kind, const std::string& message) {
        if (message != refused_) {
            refused_ = message;
            output_.note(kind, path_, message);
        }
    }

    [[nodiscard]] bool isText(const std::string& bytes) const { return named_ && !isBinary(bytes); }
    [[nodiscard]] bool isOfVariables(const std::string& bytes) const {
        return named_ && isBinary(bytes) && takeApart(bytes, false).content == RegistryContent::VARIABLES;
    }
    [[nodiscard]] bool isOfRecords(const std::string& bytes) const { return !isText(bytes) && !isOfVariables(bytes); }

    // What is of one kind before and of another after is another file.
    [[nodiscard]] std::vector<ToldChange> between(const std::string& before, const std::string& after) const {
        const auto kind = [this](const std::string& bytes) { return isText(bytes) ? 0 : isOfVariables(bytes) ? 1 : 2; };
        if (!before.empty() && !after.empty() && kind(before) != kind(after)) {
            std::vector<ToldChange> changes = between(before, "");
            std::vector<ToldChange> added = between("", after);
            std::move(added.begin(), added.end(), std::back_inserter(changes));
            return changes;
        }
        const std::string& known = after.empty() ? before : after;
        if (isText(known)) {
            const EntrySchema* const schema = formOf(path_, known);
            return changesOfLines(schema != nullptr ? *schema : varValSchema(), before, after);
        }
        return isOfVariables(known) ? changesOfVariables(before, after) : changesOfRecords(before, after);
    }

    Output& output_;
    std::string path_;
    bool named_;
    std::string bytes_;
    std::string refused_;
    bool isInDoubt_ = false;
};

class Watcher {
public:
    Watcher(Context& context, const Arguments& arguments, WatchSignals& signals)
        : context_(context), arguments_(arguments), signals_(signals) {}

    // The news first, so that nothing falls between them and the first reading.
    void begin(const std::vector<std::string>& paths) {
        std::vector<std::string> places;
        for (const std::string& path : paths) {
            const std::vector<std::string> own = placesOf(path);
            places.insert(places.end(), own.begin(), own.end());
        }
        news_.emplace(places);
        for (const std::string& path : paths) {
            files_.push_back(std::make_unique<WatchedRegistry>(context_.output, path, !arguments_.files.empty()));
            context_.output.note(
                "watching", path,
                fmt::format("watching {}{}; ^C or SIGTERM ends it", files_.back()->contents(),
                            arguments_.isMonitor() ? fmt::format(" as the monitor, pid {}", processId()) : ""));
        }
        tellReady();
    }

    void run() {
        Output& output = context_.output;
        bool mended = true;
        bool read = true;
        bool inDoubt = false;
        while (!signals_.endAsked() && read) {
            read = news_->wait(signals_, output.descriptor(),
                               inDoubt  ? DOUBT_MILLISECONDS
                               : mended ? -1
                                        : MEND_MILLISECONDS);
            const bool concerned = news_->take();
            const bool look = signals_.takeLook();
            const bool wasMended = mended;
            mended = news_->mend();
            if (look) {
                tellServiceManager(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", monotonicMicroseconds()));
            }
            if (concerned || look || inDoubt || !wasMended) {
                inDoubt = false;
                for (const auto& file : files_) {
                    tellChanges(*file);
                    inDoubt = inDoubt || file->isInDoubt();
                }
                tellReady();
            }
        }
        tellServiceManager("STOPPING=1");
    }

private:
    void tellReady() const {
        if (!hasServiceManager()) {
            return;
        }
        std::string status;
        for (const auto& file : files_) {
            status += fmt::format("{}{}: {}", status.empty() ? "" : "; ", printable(file->path()), file->state());
        }
        tellServiceManager("READY=1\nSTATUS=" + status);
    }

    void tellChanges(WatchedRegistry& file) {
        Output& output = context_.output;
        for (const ToldChange& change : file.changes()) {
            Json object{{"time", now()}};
            object.update(changeObject(change, context_.operation, file.path(), false));
            if (output.style.json) {
                output.json(object);
            } else {
                output.line(fmt::format("{}  {}{:<7}  {}", object["time"].get<std::string>(),
                                        files_.size() > 1 ? printable(file.path()) + "  " : "", change.action(),
                                        change.text));
            }
            output.deliver();
            if (!arguments_.command.empty() && !signals_.endAsked()) {
                react(file.path(), change, object);
            }
        }
    }

    void react(const std::string& path, const ToldChange& change, const Json& object) {
        Json input{{"schema", 1}};
        input.update(object);
        std::vector<std::string> variables{fmt::format("GENREG_ACTION={}", change.action()),
                                           fmt::format("GENREG_TYPE={}", change.type),
                                           fmt::format("GENREG_PATH={}", path)};
        for (const auto& [name, value] : change.key.items()) {
            variables.push_back(fmt::format("GENREG_{}={}", variableName(name),
                                            value.is_string() ? value.get<std::string>() : value.dump()));
        }
        const Reaction reaction(context_, arguments_.command, variables, jsonText(input) + "\n");
        if (const int status = reaction.await(signals_); status != 0 && !signals_.endAsked()) {
            context_.output.note("command", path, fmt::format("\"{}\" ended with {}", arguments_.command, status));
        }
    }

    // SERVICE, VERSION, NAME, PROTOCOL, ID, LINE; with _b64 behind it where the value is no UTF-8 and so told in that
    // form.
    static std::string variableName(const std::string& field) {
        constexpr std::string_view BYTES = "Base64";
        const bool encoded = field.ends_with(BYTES);
        const std::string name = encoded ? field.substr(0, field.size() - BYTES.size()) : field;
        const std::string suffix = encoded ? "_b64" : "";
        for (const auto& [member, variable] :
             {std::pair("service", "SERVICE"), std::pair("versionCode", "VERSION"), std::pair("protocol", "PROTOCOL"),
              std::pair("id", "ID"), std::pair("line", "LINE")}) {
            if (name == member) {
                return variable + suffix;
            }
        }
        return "NAME" + suffix;
    }

    Context& context_;
    const Arguments& arguments_;
    WatchSignals& signals_;
    std::optional<WatchedFiles> news_;
    std::vector<std::unique_ptr<WatchedRegistry>> files_;
};

int watch(Context& context, const Arguments& arguments) {
    const std::vector<std::string> paths = arguments.files.empty() ? std::vector{globalFile(context)} : arguments.files;
    if (std::find(paths.begin(), paths.end(), "") != paths.end()) {
        throw usageFailure("FILE is empty", "genreg watch --help");
    }
    WatchSignals signals(arguments.isMonitor());
    std::optional<MonitorLock> lock;
    if (arguments.isMonitor()) {
        lock.emplace(context.output);
        makeFolder(context.output, folderOf(RegistryFile(paths.front()).registryPath()));
    }
    Watcher watcher(context, arguments, signals);
    watcher.begin(paths);
    watcher.run();
    return EXIT_DONE;
}

Action declareWatch(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.words("FILE", arguments->files,
                 "files of lines or records to look on; the global registry when there is none");
    parser.option("--exec", "CMD", arguments->command,
                  "run this for each change, which is on its standard input as JSON");
    parser.flag("--follow", arguments->follow, "only look on: no lock, no privilege; so it is with a FILE in any case");
    parser.footer(
        "Lines are told by what finds them (a name, a service and its protocol, an id); comments and other lines as\n"
        "they are. A FILE that is missing is waited for, and held against what was last read of it when it is back.");
    return [arguments](Context& context) { return watch(context, *arguments); };
}

}  // namespace

std::span<const Command> watchCommands() {
    static constexpr Command COMMANDS[] = {
        {"watch",
         "print each change of the global registry, as the monitor that writers wake unless --follow; or of files",
         USES_REGISTRY, declareWatch},
    };
    return COMMANDS;
}

}  // namespace tool

// Commands are data: a name, a sentence, the global options that mean something to it, and the function that declares
// its arguments. The parser is built from the list; a new command is an entry in it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Output.h"
#include "base/Parser.h"

namespace tool {

struct Options {
    std::optional<std::string> registry;
    bool defaultPath = false;
    bool dryRun = false;
    bool check = false;  // a dry run, too
    bool diff = false;
    double waitSeconds = 10;
    std::optional<std::string> ifValue;
    bool all = false;
    bool yes = false;
    bool parents = false;
    std::optional<std::string> config;
};

// What a command works with.
struct Context {
    Options options;
    Output output;
    std::string operation;     // the command's name
    unsigned int uses = 0;     // of the command: USES_*
    bool wouldChange = false;  // result of a dry run, which --check answers with
    int argumentCount = 0;     // the command line, as main got it
    char** arguments = nullptr;
};

// Answers the exit status; failures are thrown.
using Action = std::function<int(Context&)>;

// Global options that act; a command refuses those that it does not list, rather than to ignore them.
constexpr unsigned int USES_DRY_RUN = 0x1;
constexpr unsigned int USES_DIFF = 0x2;
constexpr unsigned int USES_IF_VALUE = 0x4;
constexpr unsigned int USES_ALL = 0x8;
constexpr unsigned int USES_REGISTRY = 0x10;
constexpr unsigned int USES_YES = 0x20;
constexpr unsigned int USES_PARENTS = 0x40;
constexpr unsigned int USES_CONFIG = 0x80;
constexpr unsigned int USES_UPDATE = USES_DRY_RUN | USES_DIFF;

struct Command {
    std::string_view name;  // "varval set": the words on the command line
    std::string_view summary;
    unsigned int uses;
    Action (*declare)(Parser& parser);
};

// Of any of them.
[[nodiscard]] unsigned int usesOf(std::span<const Command> commands);

struct CommandGroup {
    std::string_view name;
    std::string_view summary;
};

struct ToolParser;

// The command line. What the parser and the command keep of it lasts as long as this does.
class CommandLine {
public:
    CommandLine() noexcept;
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Parses the words that main got and runs what they ask for. Throws Failure; answers the exit status.
    int run(Context& context, std::span<const CommandGroup> groups, std::vector<Command> commands, int count,
            char** arguments);

private:
    void declare(Context& context, std::span<const Command> commands);
    [[nodiscard]] bool parseAlone(Context& context, const Command& command);

    std::span<const CommandGroup> groups_;
    std::vector<Command> commands_;
    std::unique_ptr<ToolParser> parser_;
};

}  // namespace tool

#include "base/Command.h"

#include <fmt/core.h>
#include <genreg/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "base/GlobalOptions.h"
#include "base/LockPatience.h"
#include "base/Program.h"
#include "base/Progress.h"
#include "base/Suggestions.h"
#include "base/Text.h"

namespace tool {

constexpr std::string_view VERSION = GENREG_VERSION_TEXT;

struct ToolParser {
    CLI::App app{std::string(program().description), std::string(program().name)};
    std::map<const CLI::App*, const Command*> commands;
    std::vector<std::string> helpWords;
    GivenOptions given{};
    const Command* chosen = nullptr;
    Action action;
    std::vector<std::pair<unsigned int, CLI::Option*>> acting;  // options that not every command takes
};

namespace {

// The help of a command lists the global options that it takes, too.
class HelpFormatter final : public CLI::Formatter {
public:
    explicit HelpFormatter(const ToolParser& parser) : parser_(parser) {}

    std::string make_footer(const CLI::App* app) const override {
        const auto command = parser_.commands.find(app);
        return (command == parser_.commands.end() ? "" : globalOptions(*command->second)) +
               CLI::Formatter::make_footer(app);
    }

private:
    [[nodiscard]] std::string globalOptions(const Command& command) const {
        std::string text = "Global options:\n";
        for (const CLI::Option* option : parser_.app.get_options()) {
            const auto acts = std::find_if(parser_.acting.begin(), parser_.acting.end(),
                                           [&](const auto& acting) { return acting.second == option; });
            const bool taken = acts == parser_.acting.end() || (command.uses & acts->first) != 0;
            const bool listed = option == parser_.app.get_help_ptr() || option == parser_.app.get_version_ptr();
            text += taken && !listed ? make_option(option, false) : "";
        }
        return text + "\n";
    }

    const ToolParser& parser_;
};

// What a command is given to declare its words to.
class CommandParser final : public Parser {
public:
    explicit CommandParser(CLI::App& app) : app_(app) {}

    void required(const std::string& name, std::string& word, const std::string& help) override {
        app_.add_option(name, word, help)->required();
    }
    void optional(const std::string& name, std::string& word, const std::string& help) override {
        app_.add_option(name, word, help);
    }
    void optionalFile(std::string& file, const std::string& help) override {
        app_.add_option("FILE", file, help)->check([](const std::string& text) {
            return text.empty() ? "the name is empty" : "";
        });
    }
    void handedOver(const std::string& name, bool isRequired, const std::function<void(const std::string& word)>& take,
                    const std::string& help) override {
        app_.add_option_function<std::string>(name, take, help)->required(isRequired);
    }
    void words(const std::string& name, std::vector<std::string>& all, const std::string& help) override {
        app_.add_option(name, all, help);
    }
    void oneWord(const std::string& name, std::vector<std::string>& none, const std::string& help) override {
        app_.add_option(name, none, help)->expected(0, 1);
    }
    void option(const std::string& name, const std::string& what, std::string& value,
                const std::string& help) override {
        app_.add_option(name, value, help)->type_name(what);
    }
    void option(const std::string& name, const std::string& what, std::optional<std::string>& value,
                const std::string& help) override {
        app_.add_option(name, value, help)->type_name(what);
    }
    void choice(const std::string& name, const std::string& what, const std::vector<std::string>& choices,
                std::string& chosen, const std::string& help) override {
        app_.add_option(name, chosen, help)->type_name(what)->check(CLI::IsMember(choices).description(""));
    }
    void flag(const std::string& name, bool& given, const std::string& help) override {
        app_.add_flag(name, given, help);
    }
    void footer(const std::string& text) override { app_.footer(text); }

private:
    CLI::App& app_;
};

// uses: of all commands.
void declareGlobals(ToolParser& parser, Context& context, unsigned int uses) {
    CLI::App& app = parser.app;
    app.set_version_flag("-V,--version", std::string(VERSION));
    parser.given.options = &context.options;
    parser.given.style = &context.output.style;
    CommandParser declared(app);
    for (const GlobalOption& option : globalOptions()) {
        if (option.uses != 0 && (option.uses & uses) == 0) {
            continue;  // of another program's commands
        }
        option.declare(declared, parser.given);
        if (option.uses != 0) {
            parser.acting.emplace_back(option.uses, app.get_option(std::string(option.name)));
        }
    }
    app.get_option("--wait")->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void declareCommand(CLI::App& above, const Command& command, const std::string& word, ToolParser& parser) {
    CLI::App* sub = above.add_subcommand(word, std::string(command.summary));
    CommandParser declared(*sub);
    const Action action = command.declare(declared);
    parser.commands[sub] = &command;
    sub->final_callback([&parser, &command, action] {
        parser.chosen = &command;
        parser.action = action;
    });
}

bool isIn(const Command& command, std::string_view group) {
    return command.name.starts_with(group) && command.name.substr(group.size()).starts_with(' ');
}

void declareCommands(ToolParser& parser, std::span<const CommandGroup> groups, std::span<const Command> commands) {
    std::map<std::string_view, CLI::App*> parents;
    for (const CommandGroup& group : groups) {
        if (std::none_of(commands.begin(), commands.end(),
                         [&](const Command& command) { return isIn(command, group.name); })) {
            continue;
        }
        CLI::App* parent = parser.app.add_subcommand(std::string(group.name), std::string(group.summary));
        parent->require_subcommand(1);
        parents[group.name] = parent;
    }
    for (const Command& command : commands) {
        const std::size_t blank = command.name.find(' ');
        CLI::App& above = blank == std::string_view::npos ? parser.app : *parents.at(command.name.substr(0, blank));
        declareCommand(above, command, std::string(command.name.substr(blank + 1)), parser);
    }
}

// The innermost command that was recognised.
const CLI::App& innermost(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : innermost(*chosen.front());
}

std::string fullName(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name() : fullName(*app.get_parent()) + " " + app.get_name();
}

// "varval set"; empty for the tool itself.
std::string operationOf(const CLI::App& app) {
    const std::string name = fullName(app);
    const std::size_t blank = name.find(' ');
    return blank == std::string::npos ? "" : name.substr(blank + 1);
}

// The same behind the program's name, which every message begins with.
std::string shortName(const CLI::App& app) {
    const std::string name = operationOf(app);
    return name.empty() ? "" : name + ": ";
}

std::vector<std::string> optionNames(const CLI::App& root, const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* app : {&root, &command}) {
        for (const CLI::Option* option : app->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(sub->get_name());
    }
    return names;
}

// The words behind "--", which are no options.
std::vector<std::string> behindSeparator(const Context& context) {
    char** const end = context.arguments + context.argumentCount;
    char** const separator =
        std::find_if(context.arguments, end, [](const char* word) { return std::string_view(word) == "--"; });
    return {separator == end ? end : separator + 1, end};
}

Failure oneTooMany(const CLI::App& command, const std::string& word, bool misplaced) {
    const std::string help = fmt::format("{} --help", fullName(command));
    return usageFailure(fmt::format("{}one argument too many: \"{}\"", shortName(command), printable(word)),
                        misplaced ? "options come before \"--\"; " + help : help);
}

// The parser takes a word behind "--" for an option all the same when the command has no place left for it.
void refuseOptionsBehindSeparator(const Context& context, const CLI::App& root) {
    const CLI::App& command = innermost(root);
    std::vector<std::string> taken = root.remaining(true);
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            taken.insert(taken.end(), option->results().begin(), option->results().end());
        }
    }
    for (const std::string& word : behindSeparator(context)) {
        if (word.starts_with('-') && word != "--" && std::find(taken.begin(), taken.end(), word) == taken.end()) {
            throw oneTooMany(command, word, true);
        }
    }
}

// Answers a word that nothing takes with the one that was probably meant.
Failure unknownWord(const Context& context, const CLI::App& root, const CLI::App& command, const std::string& word) {
    const std::vector<std::string> behind = behindSeparator(context);
    const bool misplaced =
        std::any_of(behind.begin(), behind.end(), [](const std::string& each) { return each.starts_with('-'); });
    const bool isOption =
        word.size() > 1 && word[0] == '-' && std::find(behind.begin(), behind.end(), word) == behind.end();
    const std::vector<std::string> known = isOption ? optionNames(root, command) : commandNames(command);
    const std::string help = fmt::format("{} --help", fullName(command));
    const std::string shown = printable(word);
    if (!isOption && known.empty()) {
        return oneTooMany(command, word, misplaced);
    }
    std::string hint = isOption ? suggestedOption(known, word) : suggestedCommand(fullName(command), known, word);
    if (isOption && hint.empty()) {
        hint = help + "; a value that begins with \"-\" stands behind \"--\"";
    }
    return usageFailure(fmt::format("there is no {} \"{}\"", isOption ? "option" : "command", shown),
                        hint.empty() ? help : hint);
}

// The option that is there more often than it may be; null when none is.
const CLI::Option* repeatedOption(const CLI::App& root, const CLI::App& command) {
    for (const CLI::App* app : {&root, &command}) {
        for (const CLI::Option* option : app->get_options()) {
            if (option->count() > 1 && option->get_expected_max() == 1 && !option->get_positional() &&
                option->get_multi_option_policy() == CLI::MultiOptionPolicy::Throw) {
                return option;
            }
        }
    }
    return nullptr;
}

Failure parseFailure(const Context& context, const CLI::App& root, const CLI::ParseError& error) {
    const CLI::App& command = innermost(root);
    for (const std::string& word : root.remaining(true)) {
        if (word != "--") {
            return unknownWord(context, root, command, word);
        }
    }
    const std::string help = fmt::format("{} --help", fullName(command));
    if (!commandNames(command).empty()) {
        std::string list;
        for (const std::string& name : commandNames(command)) {
            list += (list.empty() ? "" : ", ") + name;
        }
        return usageFailure(fmt::format("{}which command? {}", shortName(command), list), help);
    }
    if (const CLI::Option* option = repeatedOption(root, command)) {
        return usageFailure(fmt::format("{}{} is given twice", shortName(command), option->get_name()), help);
    }
    return usageFailure(fmt::format("{}{}", shortName(command), printable(error.what())), help);
}

void printHelp(Output& output, const CLI::App& command) {
    std::string text = command.get_formatter()->make_help(&command, fullName(command), CLI::AppFormatMode::Normal);
    text.erase(text.find_last_not_of('\n') + 1);
    output.line(text);
}

void printVersion(Output& output) {
    if (output.style.json) {
        output.json({{"version", VERSION}});
    } else {
        output.line(fmt::format("{} {}", program().name, VERSION));
    }
}

// The help of the command that the words name.
int help(Context& context, const ToolParser& parser) {
    const CLI::App* command = &parser.app;
    for (const std::string& word : parser.helpWords) {
        const auto known = command->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == word; });
        if (known.empty()) {
            throw unknownWord(context, parser.app, *command, word);
        }
        command = known.front();
    }
    printHelp(context.output, *command);
    return EXIT_DONE;
}

void declareHelp(ToolParser& parser) {
    static constexpr Command HELP = {"help", "the help of the tool or a command", 0, nullptr};
    CLI::App* sub = parser.app.add_subcommand(std::string(HELP.name), std::string(HELP.summary));
    sub->add_option("COMMAND", parser.helpWords, "the words of the command");
    sub->final_callback([&parser] {
        parser.chosen = &HELP;
        parser.action = [&parser](Context& context) { return help(context, parser); };
    });
}

void refuseIdleOptions(const ToolParser& parser) {
    for (const auto& [use, option] : parser.acting) {
        if (option->count() != 0 && (parser.chosen->uses & use) == 0) {
            throw usageFailure(
                fmt::format("{} means nothing to \"{} {}\"", option->get_name(), program().name, parser.chosen->name),
                fmt::format("{} {} --help", program().name, parser.chosen->name));
        }
    }
}

// The command whose words the command line has; null when that cannot be told before it is parsed.
const Command* askedCommand(std::span<const Command> commands, const Context& context) {
    std::string_view group;
    for (int i = 1; i < context.argumentCount; ++i) {
        const std::string_view word = context.arguments[i];
        const auto asked = std::find_if(commands.begin(), commands.end(), [&](const Command& command) {
            return group.empty() ? command.name == word
                                 : isIn(command, group) && command.name.substr(group.size() + 1) == word;
        });
        if (asked != commands.end()) {
            return &*asked;
        }
        if (group.empty() && std::any_of(commands.begin(), commands.end(),
                                         [&](const Command& command) { return isIn(command, word); })) {
            group = word;
        }
    }
    return nullptr;
}

}  // namespace

unsigned int usesOf(std::span<const Command> commands) {
    unsigned int uses = 0;
    for (const Command& command : commands) {
        uses |= command.uses;
    }
    return uses;
}

CommandLine::CommandLine() noexcept = default;
CommandLine::~CommandLine() = default;

// Begins anew: nothing stays of what an earlier attempt has parsed.
void CommandLine::declare(Context& context, std::span<const Command> commands) {
    context.options = {};
    context.output.style = {};
    parser_ = std::make_unique<ToolParser>();
    CLI::App& app = parser_->app;
    app.formatter(std::make_shared<HelpFormatter>(*parser_));
    app.fallthrough();
    app.require_subcommand(1);
    app.footer(std::string(program().footer));
    declareGlobals(*parser_, context, usesOf(commands_));
    declareCommands(*parser_, groups_, commands);
    // A command line that cannot be parsed is answered in the form asked for all the same.
    for (int i = 1; i < context.argumentCount && std::string_view(context.arguments[i]) != "--"; ++i) {
        context.output.style.json = context.output.style.json || std::string_view(context.arguments[i]) == "--json";
    }
}

// With no other command declared, since declaring all of them takes as long as the rest of a start. What this parses
// means the same beside the others: a word in front of the command that named another one would be one too many here.
// False where it does not parse, and where help is asked for.
bool CommandLine::parseAlone(Context& context, const Command& command) {
    declare(context, {&command, 1});
    try {
        parser_->app.parse(context.argumentCount, context.arguments);
    } catch (const CLI::ParseError&) {
        return false;
    }
    return true;
}

int CommandLine::run(Context& context, std::span<const CommandGroup> groups, std::vector<Command> commands, int count,
                     char** arguments) {
    groups_ = groups;
    commands_ = std::move(commands);
    context.argumentCount = count;
    context.arguments = arguments;
    const Command* const asked = askedCommand(commands_, context);
    if (asked == nullptr || !parseAlone(context, *asked)) {
        declare(context, commands_);
        declareHelp(*parser_);
        try {
            parser_->app.parse(count, arguments);
        } catch (const CLI::CallForHelp&) {
            printHelp(context.output, innermost(parser_->app));
            return EXIT_DONE;
        } catch (const CLI::CallForVersion&) {
            printVersion(context.output);
            return EXIT_DONE;
        } catch (const CLI::ParseError& error) {
            chooseColor(parser_->given.color, context.output);
            context.operation = operationOf(innermost(parser_->app));
            throw parseFailure(context, parser_->app, error);
        }
    }
    chooseColor(parser_->given.color, context.output);
    context.operation = parser_->chosen->name;
    refuseOptionsBehindSeparator(context, parser_->app);
    context.uses = parser_->chosen->uses;
    refuseIdleOptions(*parser_);
    if (parser_->chosen->declare != nullptr) {  // help has no lock to wait for
        context.options.waitSeconds = secondsToWait(parser_->given.wait, context.operation);
    }
    context.options.dryRun = context.options.dryRun || context.options.check;
    setPatience(context);
    allowProgress(context.output);
    const int status = parser_->action(context);
    return status == EXIT_DONE && context.options.check && context.wouldChange ? EXIT_NEGATIVE : status;
}

}  // namespace tool

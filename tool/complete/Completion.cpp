#include "complete/Completion.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <set>

#include "base/Description.h"
#include "base/LockPatience.h"
#include "base/Text.h"

namespace tool {
namespace {

// A command line as far as it is typed.
class TypedLine {
public:
    TypedLine(std::span<const CommandGroup> groups, std::span<const Command> commands, NamesFor* namesFor,
              const std::vector<std::string>& words)
        : groups_(groups),
          commands_(commands),
          namesFor_(namesFor),
          current_(words.empty() ? std::string() : words.back()) {
        for (std::size_t i = 0; i + 1 < words.size(); ++i) {
            take(words[i]);
        }
        // The help of a command is asked for by its words.
        if (command_ && command_->name == "help") {
            const std::vector<std::string> named = std::move(before_);
            helps_ = true;
            command_.reset();
            before_.clear();
            for (const std::string& word : named) {
                take(word);
            }
        }
    }

    Names candidates(Context& context) const {
        Names names;
        if (valueOf_) {
            names = valuesOf(context, *valueOf_);
        } else if (!operandsOnly_ && current_.starts_with('-')) {
            names = optionsAt(context);
        } else if (!command_) {
            names = commandsAt();
        } else if (!helps_) {
            names = operandAt(context);
        }
        std::erase_if(names.found, [&](const Names::Name& name) {
            return !name.word.starts_with(current_) || printable(name.word) != name.word;
        });
        return names;
    }

    // --registry is heeded while the names are looked for.
    void apply(Options& options) const {
        options.registry = registry_;
        options.defaultPath = defaultPath_;
        options.config = config_;
    }

private:
    [[nodiscard]] std::vector<DescribedOption> options() const {
        std::vector<DescribedOption> all = describeGlobalOptions(command_ ? command_->uses : usesOf(commands_));
        if (command_) {
            all.insert(all.begin(), command_->options.begin(), command_->options.end());
        }
        return all;
    }

    [[nodiscard]] std::optional<DescribedOption> option(std::string_view name) const {
        for (const DescribedOption& each : options()) {
            if (each.isCalled(name)) {
                return each;
            }
        }
        return std::nullopt;
    }

    void take(const std::string& word) {
        if (valueOf_) {
            keep(*valueOf_, word);
            valueOf_.reset();
        } else if (!operandsOnly_ && word == "--") {
            operandsOnly_ = true;
        } else if (!operandsOnly_ && word.size() > 1 && word.starts_with('-')) {
            takeOption(word);
        } else if (command_) {
            before_.push_back(word);
        } else {
            takeCommand(word);
        }
    }

    void takeOption(const std::string& word) {
        const std::size_t sign = word.find('=');
        const auto named = option(word.substr(0, sign));
        if (!named) {
            return;
        }
        if (named->isCalled("--default-path")) {
            defaultPath_ = true;
        } else if (sign != std::string::npos) {
            keep(*named, word.substr(sign + 1));
        } else if (!named->what.empty()) {
            valueOf_ = named;
        }
    }

    void keep(const DescribedOption& option, const std::string& value) {
        if (option.isCalled("--registry")) {
            registry_ = value;
        } else if (option.isCalled("--config")) {
            config_ = value;
        }
    }

    void takeCommand(const std::string& word) {
        const std::string name = group_.empty() ? word : group_ + " " + word;
        const auto named = std::ranges::find(commands_, name, &Command::name);
        if (named != commands_.end()) {
            command_ = describe(*named);
        } else if (name == "help") {
            command_ = describeHelp();
        } else {
            group_ = name;
        }
    }

    [[nodiscard]] Names valuesOf(Context& context, const DescribedOption& option) const {
        Names names;
        for (const std::string& choice : option.choices) {
            names.found.push_back({choice, ""});
        }
        return option.choices.empty() ? namesFor_(context, command_ ? command_->name : "", option.what, before_)
                                      : names;
    }

    [[nodiscard]] Names optionsAt(Context& context) const {
        Names names;
        const std::size_t sign = current_.find('=');
        if (sign != std::string::npos) {
            const auto named = option(current_.substr(0, sign));
            names = named && !named->what.empty() ? valuesOf(context, *named) : Names();
            names.files = false;  // of which the shell sees no beginning here
            for (Names::Name& name : names.found) {
                name.word = current_.substr(0, sign + 1) + name.word;
            }
            return names;
        }
        for (const DescribedOption& each : options()) {
            for (const std::string& name : each.names) {
                names.found.push_back({name, each.help});
            }
        }
        return names;
    }

    [[nodiscard]] Names commandsAt() const {
        Names names;
        for (const CommandGroup& group : groups_) {
            if (group_.empty()) {
                names.found.push_back({std::string(group.name), std::string(group.summary)});
            }
        }
        for (const Command& command : commands_) {
            const std::size_t blank = command.name.find(' ');
            const bool inGroup = blank != std::string_view::npos;
            if (inGroup ? command.name.substr(0, blank) == group_ : group_.empty()) {
                names.found.push_back({std::string(command.name.substr(blank + 1)), std::string(command.summary)});
            }
        }
        if (group_.empty() && !helps_) {
            names.found.push_back({"help", describeHelp().summary});
        }
        return names;
    }

    [[nodiscard]] Names operandAt(Context& context) const {
        const std::vector<DescribedWord>& words = command_->words;
        if (words.empty() || (before_.size() >= words.size() && !words.back().many)) {
            return {};
        }
        return namesFor_(context, command_->name, words[std::min(before_.size(), words.size() - 1)].name, before_);
    }

    std::span<const CommandGroup> groups_;
    std::span<const Command> commands_;
    NamesFor* namesFor_;
    std::string current_;
    std::string group_;
    std::optional<DescribedCommand> command_;
    std::vector<std::string> before_;  // the operands
    std::optional<DescribedOption> valueOf_;
    std::optional<std::string> registry_;
    std::optional<std::string> config_;
    bool defaultPath_ = false;
    bool operandsOnly_ = false;
    bool helps_ = false;
};

}  // namespace

void printCandidates(Context& context, std::span<const CommandGroup> groups, std::span<const Command> commands,
                     NamesFor* namesFor, const std::vector<std::string>& words) {
    const TypedLine line(groups, commands, namesFor, words);
    line.apply(context.options);
    context.options.waitSeconds = 0;
    context.output.style.quiet = true;
    setPatience(context);
    Names names;
    try {
        names = line.candidates(context);
    } catch (const Failure&) {
        names = {};  // nobody asked for what cannot be read
    }
    if (names.files) {
        context.output.line(":files");
    }
    std::set<std::string> told;
    for (const Names::Name& name : names.found) {
        if (told.insert(name.word).second) {
            context.output.line(name.help.empty() ? name.word : fmt::format("{}\t{}", name.word, printable(name.help)));
        }
    }
}

}  // namespace tool

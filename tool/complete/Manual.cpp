#include "complete/Manual.h"

#include <fmt/core.h>

#include "base/Description.h"
#include "base/Program.h"

namespace tool {
namespace {

// A line of text as mdoc takes it.
std::string escaped(std::string_view text) {
    std::string line;
    for (const char c : text) {
        line += c == '\\' ? "\\e" : std::string(1, c);
    }
    return line.starts_with('.') || line.starts_with('\'') ? "\\&" + line : line;
}

// Words of an argument that a macro would take for more than a word.
std::string argument(std::string_view text) {
    std::string word;
    for (const char c : text) {
        word += c == '\\' ? "\\e" : std::string(1, c);
    }
    return word.size() <= 3 ? "\\&" + word : word;
}

// A paragraph, a sentence a line, none of them long.
std::string paragraph(std::string_view text) {
    constexpr std::size_t LONGEST = 76;
    std::string lines;
    std::string line;
    const auto end = [&] {
        lines += line.empty() ? "" : escaped(line) + "\n";
        line.clear();
    };
    while (!text.empty()) {
        const std::size_t blank = std::min(text.find_first_of(" \n"), text.size());
        const std::string_view word = text.substr(0, blank);
        text.remove_prefix(std::min(blank + 1, text.size()));
        if (word.empty()) {
            continue;
        }
        if (line.size() + 1 + word.size() > LONGEST) {
            end();
        }
        line += (line.empty() ? "" : " ") + std::string(word);
        if (word.ends_with('.') && !word.ends_with("..")) {
            end();
        }
    }
    end();
    return lines;
}

std::string sentence(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') {
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    }
    return paragraph(text.ends_with('.') ? text : text + ".");
}

// "Fl -comment Ar TEXT", of every name.
std::string optionItem(const DescribedOption& option) {
    std::string item;
    for (const std::string& name : option.names) {
        item += fmt::format("{}Fl {}", item.empty() ? "" : " , ", name.substr(1));
    }
    return option.what.empty() ? item : fmt::format("{} Ar {}", item, argument(option.what));
}

std::string optionList(const std::vector<DescribedOption>& options) {
    std::string text;
    for (const DescribedOption& option : options) {
        text += fmt::format(".It {}\n{}", optionItem(option), sentence(option.help));
    }
    return text;
}

std::string wordsOf(const DescribedCommand& command) {
    std::string text;
    for (const DescribedWord& word : command.words) {
        text += fmt::format("{}Ar {}{}\n", word.required ? "." : ".Op ", argument(word.name), word.many ? " ..." : "");
    }
    return text;
}

std::string commandItem(const DescribedCommand& command) {
    std::string text = fmt::format(".It Xo\n.Cm {}\n", command.name);
    text += command.options.empty() ? "" : ".Op Ar options\n";
    text += wordsOf(command) + ".Xc\n" + sentence(command.summary);
    if (!command.footer.empty()) {
        text += sentence(command.footer);
    }
    std::string list;
    for (const DescribedWord& word : command.words) {
        list += fmt::format(".It Ar {}\n{}", argument(word.name), sentence(word.help));
    }
    list += optionList(command.options);
    if (!list.empty()) {
        text += ".Pp\n.Bl -tag -width Ds -compact\n" + list + ".El\n";
    }
    std::string taken;
    for (const DescribedOption& option : describeGlobalOptions(command.uses)) {
        bool always = false;
        for (const DescribedOption& plain : describeGlobalOptions(0)) {
            always = always || plain.names == option.names;
        }
        taken += always
                     ? ""
                     : fmt::format("{}Fl {}", taken.empty() ? ".Pp\nTakes\n." : " ,\n.", option.names.back().substr(1));
    }
    return text + (taken.empty() ? "" : taken + " .\n");
}

std::string commandList(std::span<const CommandGroup> groups, std::span<const Command> commands) {
    const auto section = [](std::string_view name, std::string_view summary, const std::string& items) {
        return items.empty()
                   ? std::string()
                   : fmt::format(".Ss {}\n{}.Bl -tag -width Ds\n{}.El\n", name, sentence(std::string(summary)), items);
    };
    std::string all;
    for (const CommandGroup& group : groups) {
        std::string items;
        for (const Command& command : commands) {
            const bool own =
                command.name.substr(0, std::min(command.name.find(' '), command.name.size())) == group.name;
            items += own && command.name != group.name ? commandItem(describe(command)) : "";
        }
        all += section(group.name, group.summary, items);
    }
    std::string items;
    for (const Command& command : commands) {
        items += command.name.find(' ') == std::string_view::npos ? commandItem(describe(command)) : "";
    }
    return section("Commands of one word", program().wordSummary, items + commandItem(describeHelp())) + all;
}

void replaceLine(std::string& text, const std::string& line, const std::string& by) {
    const std::size_t at = text.find(line);
    if (at != std::string::npos) {
        text.replace(at, line.size(), by);
    }
}

}  // namespace

std::string manualOf(const std::string& text, std::span<const CommandGroup> groups, std::span<const Command> commands) {
    std::string page = text;
    replaceLine(page, ".\\\" COMMANDS\n", commandList(groups, commands));
    replaceLine(page, ".\\\" OPTIONS\n",
                ".Bl -tag -width Ds\n" + optionList(describeGlobalOptions(usesOf(commands))) + ".El\n");
    return page;
}

}  // namespace tool

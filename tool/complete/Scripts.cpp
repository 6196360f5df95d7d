// What a shell has to know: how it asks the tool, which knows all the rest.
#include <fmt/core.h>

#include <algorithm>
#include <memory>

#include "base/Program.h"
#include "base/Text.h"
#include "complete/Completion.h"

namespace tool {
namespace {

// It takes words apart at "=" and ":"; they are put together again, and answers begin behind the last of these.
constexpr char BASH[] = R"script(# bash completion for @NAME@
@FUNCTION@() {
    local IFS=$'\n' line=$COMP_LINE rest word cut reply raw quote files='' i
    local -a words=()
    for ((i = 0; i <= COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        rest=${line#"${line%%[![:blank:]]*}"}
        if ((i > 1)) && [[ $rest == "$line" && -n $word$line ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
        line=${rest#"$word"}
    done
    raw=${words[-1]}
    for i in "${!words[@]}"; do
        word=${words[i]}
        quote=${word:0:1}
        case $quote in
            \' | \") word=${word:1} word=${word%"$quote"} ;;
            \~) [[ $word == '~/'* ]] && word=$HOME/${word#'~/'} ;;
        esac
        [[ $quote == \' ]] || word=${word//\\/}
        words[i]=$word
    done
    word=${words[-1]}
    cut=${word%"${word##*[=:]}"}
    COMPREPLY=()
    while IFS=$'\t' read -r reply _; do
        if [[ $reply == :files ]]; then
            files=1
        elif [[ ${raw:0:1} == [\'\"] ]]; then
            COMPREPLY+=("$reply")
        else
            printf -v reply %q "${reply#"$cut"}"
            COMPREPLY+=("$reply")
        fi
    done < <(command "$1" __complete -- "${words[@]:1}" 2>/dev/null)
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        COMPREPLY+=($(compgen -f -- "$word"))
    elif [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
        compopt -o nospace 2>/dev/null
    fi
}
complete -F @FUNCTION@ @NAME@
)script";

constexpr char ZSH[] = R"script(#compdef @NAME@
@FUNCTION@() {
    local line word help files=
    local -a asked found shown fields foundFields
    for word in "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}"; do
        [[ $word == '~/'* ]] && word=$HOME/${word#'~/'}
        asked+=("$word")
    done
    for line in ${(f)"$(command ${(Q)words[1]} __complete -- "${asked[@]}" 2>/dev/null)"}; do
        word=${line%%$'\t'*}
        help=${${line#$word}#$'\t'}
        if [[ $word == :files ]]; then
            files=1
        elif [[ $word == *= ]]; then
            fields+=("$word")
        else
            found+=("$word")
            shown+=("$word${help:+  -- $help}")
        fi
    done
    [[ -n $files ]] && _files
    (($#fields)) && compadd -S '' -a fields
    (($#found)) && compadd -l -d shown -a found
}
if [[ ${zsh_eval_context[-1]} == loadautofunc ]]; then
    @FUNCTION@ "$@"
else
    compdef @FUNCTION@ @NAME@
fi
)script";

constexpr char FISH[] = R"script(# fish completion for @NAME@
function @FUNCTION@_names
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    for line in (command $words[1] __complete -- $words[2..-1] "$current" 2>/dev/null)
        if test "$line" = :files
            __fish_complete_path "$current"
        else
            echo $line
        end
    end
end
complete -c @NAME@ -f -a '(@FUNCTION@_names)'
)script";

void replaceAll(std::string& text, std::string_view word, const std::string& by) {
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + by.size())) {
        text.replace(at, word.size(), by);
    }
}

int print(Context& context, const std::string& shell) {
    const char* const script = shell == "bash" ? BASH : shell == "zsh" ? ZSH : shell == "fish" ? FISH : nullptr;
    if (script == nullptr) {
        throw usageFailure(fmt::format("there is no completion for {}", cell(shell)), "bash, zsh or fish");
    }
    std::string text = script;
    text.pop_back();
    std::string function = "_" + std::string(program().name);
    std::ranges::replace(function, '-', '_');
    replaceAll(text, "@FUNCTION@", function);
    replaceAll(text, "@NAME@", std::string(program().name));
    context.output.line(text);
    return EXIT_DONE;
}

}  // namespace

std::span<const Command> completionCommands() {
    static constexpr Command COMMANDS[] = {
        {"completion", "what a shell needs to complete commands, options and real names", 0,
         [](Parser& parser) -> Action {
             auto shell = std::make_shared<std::string>();
             parser.required("SHELL", *shell, "bash, zsh or fish");
             parser.footer(fmt::format(
                 "In bash: eval \"$({0} completion bash)\"; in zsh, behind compinit: eval \"$({0} completion "
                 "zsh)\";\nin fish: {0} completion fish | source.",
                 program().name));
             return [shell](Context& context) { return print(context, *shell); };
         }},
    };
    return COMMANDS;
}

}  // namespace tool

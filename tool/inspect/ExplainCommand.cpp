#include <fmt/core.h>
#include <genreg/Codes.h>
#include <osse/Errors.h>

#include <charconv>
#include <memory>

#include "base/CodeClasses.h"
#include "base/Text.h"
#include "inspect/InspectCommands.h"

namespace tool {
namespace {

std::vector<unsigned int> allCodes() {
    std::vector<unsigned int> codes;
    while (const unsigned int code = genregCodeAt(codes.size())) {
        codes.push_back(code);
    }
    return codes;
}

std::optional<unsigned int> number(std::string_view text, int base) {
    unsigned int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size() && !text.empty() ? std::optional(value)
                                                                                     : std::nullopt;
}

bool isKnown(unsigned int code) {
    int systemError = 0;
    return isSystemError(code, &systemError) || std::string_view(genregCodeName(code)) != "UNKNOWN";
}

// 0x900001f6, 900001f6, 2415919606 or REG_NOT_FOUND.
unsigned int codeOf(std::string_view word) {
    std::vector<std::string> names;
    for (const unsigned int code : allCodes()) {
        names.emplace_back(genregCodeName(code));
        if (names.back() == word) {
            return code;
        }
    }
    const bool prefixed = word.starts_with("0x") || word.starts_with("0X");
    for (const auto code : {number(prefixed ? word.substr(2) : word, 16), number(word, 10)}) {
        if (code && isKnown(*code)) {
            return *code;
        }
    }
    const std::string meant = nearest(word, names);
    throw usageFailure(fmt::format("\"{}\" is no code of the library", printable(word)),
                       meant.empty() ? "genreg explain lists them all" : "genreg explain " + meant);
}

Json explanation(unsigned int code) {
    const CodeClass& meaning = classOf(code);
    int systemError = 0;
    const bool system = isSystemError(code, &systemError);
    Json object{{"code", hexCode(code)}, {"name", genregCodeName(code)}};
    object["text"] =
        system ? fmt::format("An error of the operating system ({}): {}.", systemError, systemWords(systemError))
               : std::string(genregCodeText(code));
    object["kind"] = meaning.kind;
    object["operations"] = meaning.operations;
    const std::string advice = system ? systemAdvice(systemError) : std::string();
    object["advice"] = advice.empty() ? std::string(meaning.advice) : advice;
    object["exit"] = meaning.exitStatus;
    object["innerDecides"] = meaning.wrapper;
    constexpr const char* FILES[] = {nullptr, "kept", "replaced", "unknown"};
    const char* const file = FILES[static_cast<std::size_t>(meaning.file)];
    object["file"] = file == nullptr ? Json(nullptr) : Json(file);
    return object;
}

void print(Output& output, const Json& object) {
    const auto text = [&](const char* key) { return object[key].get<std::string>(); };
    output.line(fmt::format("{}  {}", text("code"), text("name")));
    output.line("  " + text("text"));
    output.line("  answered by  " + text("operations"));
    output.line("  what to do   " + text("advice"));
    output.line(
        fmt::format("  genreg exits {} ({}){}", object["exit"].dump(), text("kind"),
                    object["innerDecides"].get<bool>() ? ", or as the failure behind it asks for (see -v)" : ""));
}

int explain(Context& context, const std::string& word) {
    Output& output = context.output;
    const std::vector<unsigned int> codes = word.empty() ? allCodes() : std::vector{codeOf(word)};
    if (output.style.json) {
        for (const unsigned int code : codes) {
            output.json(explanation(code));
        }
    } else if (!word.empty()) {
        print(output, explanation(codes.front()));
    } else {
        Table table({"CODE", "NAME", "EXIT", "MEANING"});
        for (const unsigned int code : codes) {
            table.row(
                {hexCode(code), genregCodeName(code), std::to_string(classOf(code).exitStatus), genregCodeText(code)});
        }
        table.print(output);
    }
    return EXIT_DONE;
}

Action declareExplain(Parser& parser) {
    auto word = std::make_shared<std::string>();
    parser.optional("CODE", *word, "0x900001f6, 900001f6 or REG_NOT_FOUND; without one, all are listed");
    return [word](Context& context) { return explain(context, *word); };
}

}  // namespace

std::span<const Command> explainCommands() {
    static constexpr Command COMMANDS[] = {
        {"explain", "what a code of the library means and what to do about it", 0, declareExplain},
    };
    return COMMANDS;
}

}  // namespace tool

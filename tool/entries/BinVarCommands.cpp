#include <fmt/core.h>

#include <charconv>

#include "base/Answers.h"
#include "base/Text.h"
#include "entries/BinVarFile.h"
#include "entries/EntryCommands.h"

namespace tool {
namespace {

std::unique_ptr<EntryFile> openBinVar(const std::string& path, bool severalAllowed) {
    return std::make_unique<BinVarFile>(path, severalAllowed);
}

const EntryForm& form() {
    static const EntryForm FORM{
        "binvar", "variable", "record",    {"NAME", "VALUE", "COMMENT"}, BINVARVAL_MATCH_VALUE, "",
        "",       openBinVar, binVarLines,
    };
    return FORM;
}

struct Arguments {
    std::string file;
    std::string name;
    std::string value;
    std::optional<std::string> comment;
};

void checkText(std::string_view what, const std::string& text) {
    refuseControl(what, text);
    constexpr std::size_t MOST = BINVAR_TEXT_SIZE - 1;
    if (text.size() > MOST) {
        throw invalid(REG_BUFFER_TOO_SMALL,
                      fmt::format("the {} has {} bytes; a record has room for {}", what, text.size(), MOST),
                      fmt::format("shorten the {}", what));
    }
}

int checkedValue(const std::string& text) {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc::result_out_of_range) {
        throw invalid(REG_RECORD_REFUSED, fmt::format("{} does not fit into 32 bits", printable(text)),
                      "values are -2147483648 to 2147483647");
    }
    if (error != std::errc() || stop != end) {
        throw invalid(REG_RECORD_REFUSED, fmt::format("\"{}\" is no whole number", printable(text)),
                      "values are -2147483648 to 2147483647");
    }
    return value;
}

EntryRequest requestOf(const Arguments& arguments) {
    EntryRequest request;
    request.file = arguments.file;
    request.name = arguments.name;
    request.mask = BINVARVAL_MATCH_VARIABLE;
    request.concerns = [name = arguments.name](const Entry& entry) { return entry.name == name; };
    putText(request.result, "name", arguments.name);
    return request;
}

EntryRequest editOf(const Arguments& arguments, const char* verb) {
    const std::string doing = fmt::format("{} {}", verb, printable(arguments.name));
    const BinVar wanted = refusingFor(arguments.file, doing, [&] {
        checkText("name", arguments.name);
        checkText("comment", arguments.comment.value_or(""));
        if (arguments.name.empty()) {
            throw invalid(REG_NAME_MISSING, "the name is empty", "name the variable");
        }
        return BinVar{arguments.name, checkedValue(arguments.value), arguments.comment};
    });
    EntryRequest request = requestOf(arguments);
    request.edit.rewrite = [wanted](std::string_view record) { return wanted.rewrite(record); };
    request.addWords = fmt::format("{} {}", shellWord(arguments.name), shellWord(arguments.value));
    request.result["value"] = wanted.value;
    return request;
}

std::shared_ptr<Arguments> declareFile(CLI::App& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.add_option("FILE", arguments->file, "the binary variable/value file")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareName(CLI::App& parser) {
    auto arguments = declareFile(parser);
    parser.add_option("NAME", arguments->name, "the variable")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareValue(CLI::App& parser) {
    auto arguments = declareName(parser);
    parser.add_option("VALUE", arguments->value, "a whole number of 32 bits")->required();
    parser.add_option("--comment", arguments->comment, "the comment of the record; empty: none")->type_name("TEXT");
    return arguments;
}

Action declareList(CLI::App& parser) {
    return
        [arguments = declareFile(parser)](Context& context) { return listEntries(context, form(), arguments->file); };
}

Action declareGet(CLI::App& parser) {
    return [arguments = declareName(parser)](Context& context) {
        return getEntries(context, form(), requestOf(*arguments), false);
    };
}

Action declareGetAll(CLI::App& parser) {
    return [arguments = declareName(parser)](Context& context) {
        return getEntries(context, form(), requestOf(*arguments), true);
    };
}

Action declareSet(CLI::App& parser) {
    return [arguments = declareValue(parser)](Context& context) {
        return setEntry(context, form(), editOf(*arguments, "set"));
    };
}

Action declareAdd(CLI::App& parser) {
    return [arguments = declareValue(parser)](Context& context) {
        return addEntry(context, form(), editOf(*arguments, "add"));
    };
}

Action declareDelete(CLI::App& parser) {
    return [arguments = declareName(parser)](Context& context) {
        return deleteEntry(context, form(), requestOf(*arguments));
    };
}

constexpr Command COMMANDS[] = {
    {"binvar list", "all variables, with their comments", 0, declareList},
    {"binvar get", "the value of a variable, the first of its records", 0, declareGet},
    {"binvar get-all", "the values of every record of a variable", 0, declareGetAll},
    {"binvar set", "change a value; the record keeps its place and comment", USES_UPDATE | USES_IF_VALUE | USES_ALL,
     declareSet},
    {"binvar add", "append a record for a new variable", USES_UPDATE | USES_PARENTS | USES_ALL, declareAdd},
    {"binvar delete", "remove the record of a variable", USES_UPDATE | USES_IF_VALUE | USES_ALL | USES_YES,
     declareDelete},
};

}  // namespace

std::span<const Command> binVarCommands() {
    return COMMANDS;
}

}  // namespace tool

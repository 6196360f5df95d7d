#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/LockPatience.h"
#include "base/Text.h"
#include "base/Update.h"
#include "entries/Entries.h"
#include "entries/EntryCommands.h"
#include "entries/EntryLine.h"
#include "entries/Remarks.h"
#include "entries/VarValFile.h"
#include "entries/VarValLine.h"

namespace tool {
namespace {

constexpr const char* LOOK = "genreg varval get";

struct Arguments {
    std::string file;
    std::string name;
    std::string value;
    std::optional<std::string> comment;
    std::string type;
};

std::shared_ptr<Arguments> declareFile(CLI::App& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.add_option("FILE", arguments->file, "the registry file")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareName(CLI::App& parser) {
    auto arguments = declareFile(parser);
    parser.add_option("NAME", arguments->name, "the variable")->required();
    return arguments;
}

std::shared_ptr<Arguments> declareValue(CLI::App& parser) {
    auto arguments = declareName(parser);
    parser.add_option("VALUE", arguments->value, "the value; quoted where its blanks need it")->required();
    parser.add_option("--comment", arguments->comment, "the comment of the line; empty: none")->type_name("TEXT");
    return arguments;
}

Failure notFound(const std::string& path, const std::string& name, const VarValContents& contents,
                 const std::string& otherwise) {
    std::vector<std::string> names;
    for (const VarValEntry& entry : contents.pairs) {
        names.push_back(entry.variable);
    }
    const std::size_t refusedAt = refusedLine(varValForm(), path, name);
    if (refusedAt != 0) {
        return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path,
                      fmt::format("no line of {} is a pair", printable(name)), fmt::format("mend line {}", refusedAt));
    }
    const std::string meant = nearest(name, names);
    return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path,
                  fmt::format("there is no variable {}", printable(name)),
                  meant.empty() ? otherwise : fmt::format("{}, or {}", printable(meant), otherwise));
}

Failure severalMatch(const std::string& path, const std::string& name, const std::vector<VarValEntry>& matches) {
    std::string lines;
    for (const VarValEntry& entry : matches) {
        lines += fmt::format("{}{}", lines.empty() ? "" : ", ", entry.line);
    }
    return answer("several", EXIT_CONFLICT, REG_SEVERAL_MATCH, path,
                  fmt::format("{} stands on several lines: {}; nothing was changed", printable(name), lines),
                  "--all for every one of them");
}

std::vector<VarValEntry> named(const VarValContents& contents, const std::string& name) {
    std::vector<VarValEntry> matches;
    std::copy_if(contents.pairs.begin(), contents.pairs.end(), std::back_inserter(matches),
                 [&](const VarValEntry& entry) { return entry.variable == name; });
    return matches;
}

// The lines that an update concerns: of that name and, with --if-value, of that value. Refuses what the options do not
// allow.
std::vector<VarValEntry> concerned(const Context& context, const std::string& path, const std::string& name,
                                   const VarValContents& contents, const std::string& otherwise) {
    std::vector<VarValEntry> matches = named(contents, name);
    if (matches.empty()) {
        throw notFound(path, name, contents, otherwise);
    }
    if (matches.size() > 1 && !context.options.all) {
        throw severalMatch(path, name, matches);
    }
    if (!context.options.ifValue) {
        return matches;
    }
    const std::string& expected = *context.options.ifValue;
    const std::string found = matches.front().value;
    const auto differs = [&](const VarValEntry& entry) {
        return entry.value != expected && entry.value != fmt::format("\"{}\"", expected);
    };
    matches.erase(std::remove_if(matches.begin(), matches.end(), differs), matches.end());
    if (matches.empty()) {
        throw otherValue(path, name, cell(found), cell(expected), LOOK);
    }
    return matches;
}

void pairMembers(Json& object, const VarValEntry& entry) {
    object["line"] = entry.line;
    putText(object, "name", entry.variable);
    putText(object, "value", entry.value);
    putComment(object, entry.comment);
}

VarValContents contentsOf(const std::string& path, const std::string& doing) {
    needFile(path, doing);
    return VarValFile(path, true).read(doing);
}

int list(Context& context, const Arguments& arguments) {
    const VarValContents contents = contentsOf(arguments.file, "list");
    Table table({"NAME", "VALUE", "COMMENT"});
    for (const VarValEntry& entry : contents.pairs) {
        if (context.output.style.json) {
            Json object;
            pairMembers(object, entry);
            context.output.json(object);
        } else {
            table.row({cell(entry.variable), cell(entry.value), commentCell(entry.comment)});
        }
    }
    if (!context.output.style.json && !contents.pairs.empty()) {
        table.print(context.output);
    }
    remarkOnFile(context, varValForm(), arguments.file);
    return EXIT_DONE;
}

// The library's getters look a variable up and convert what they find first. Here they find the lines of one value
// only.
class LinesOfValue final : public GenRegVarVal {
public:
    LinesOfValue(const std::string& path, const std::string& value, unsigned int* code)
        : GenRegVarVal(path.c_str(), code) {
        wanted = &value;
        matchRecord = match;
    }

private:
    static unsigned int match(unsigned long mask, void* record, void* key) {
        const char* const value = static_cast<GenRegVarValRecord*>(record)->value;
        return MatchRecord(mask, record, key) != 0 && value != nullptr && *wanted == value ? 1 : 0;
    }

    static inline const std::string* wanted = nullptr;
};

Json convert(const Arguments& arguments, const VarValEntry& entry) {
    unsigned int code = 0;
    LinesOfValue file(arguments.file, entry.value, &code);
    waitPatiently(file, arguments.file);
    const char* name = arguments.name.c_str();
    bool truth = false;
    double real = 0;
    long number = 0;
    unsigned long natural = 0;
    if (arguments.type == "bool" && file.GetBooleanValue(name, &truth)) {
        return truth;
    }
    if (arguments.type == "double" && file.GetDoubleValue(name, &real)) {
        // JSON has no number for those that are none.
        return std::isfinite(real) ? Json(real) : Json(fmt::format("{}", real));
    }
    if (arguments.type == "int" && file.GetSint64Value(name, &number)) {
        return number;
    }
    // The conversion behind it takes a sign and wraps around.
    if (arguments.type == "uint" && !entry.value.starts_with('-') && file.GetUint64Value(name, &natural)) {
        return natural;
    }
    throw answer("invalid", EXIT_INVALID, 0, arguments.file,
                 fmt::format("{} is {} in line {}, which is no {}", printable(arguments.name), cell(entry.value),
                             entry.line, arguments.type),
                 "read it as text, without --type");
}

std::string typedText(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    return value.is_number_float() ? fmt::format("{}", value.get<double>()) : value.dump();
}

int get(Context& context, const Arguments& arguments, bool every) {
    const std::string doing = "get " + printable(arguments.name);
    remarkOnName(context, varValForm(), arguments.file, arguments.name);
    const VarValContents contents = contentsOf(arguments.file, doing);
    std::vector<VarValEntry> matches = named(contents, arguments.name);
    if (matches.empty()) {
        throw notFound(arguments.file, arguments.name, contents, "genreg varval list " + shellWord(arguments.file));
    }
    matches.resize(every ? matches.size() : 1);
    const bool typed = !arguments.type.empty() && arguments.type != "string";
    std::vector<Json> values;  // all of them, before any is told
    std::transform(matches.begin(), matches.end(), std::back_inserter(values),
                   [&](const VarValEntry& entry) { return typed ? convert(arguments, entry) : Json(); });
    for (std::size_t i = 0; i < matches.size(); ++i) {
        if (context.output.style.json) {
            Json object;
            pairMembers(object, matches[i]);
            if (typed) {
                object["value"] = values[i];
            }
            context.output.json(object);
        } else {
            const std::string text = typed ? typedText(values[i]) : matches[i].value;
            context.output.line(context.output.isTerminal() ? printable(text) : text);
        }
    }
    return EXIT_DONE;
}

Json resultOf(const Arguments& arguments, const VarValEdit* edit) {
    Json result = Json::object();
    putText(result, "name", arguments.name);
    if (edit != nullptr) {
        putText(result, "value", edit->value);
    }
    return result;
}

Failure refused(unsigned int code, const std::string& path, const std::string& doing, const VarValEdit& edit) {
    Failure failure = libraryFailure(code, path, doing);
    if (edit.doesNotFit) {
        failure.kind = "invalid";
        failure.exitStatus = EXIT_INVALID;
        failure.message = fmt::format("{}: cannot {}: with its comment the line would be longer than {} bytes",
                                      printable(path), doing, REG_LINE_SIZE - 2);
        failure.hint = "shorten the value or the comment";
    }
    return failure;
}

void refuseHiddenBytes(const std::string& path, const std::string& doing, const std::vector<VarValEntry>& matches) {
    for (const VarValEntry& entry : matches) {
        if (entry.ended) {
            continue;
        }
        const std::string bytes = readFile(path, doing);
        const std::vector<FileLine> lines = fileLines(bytes, false);
        if (entry.line <= lines.size() && lines[entry.line - 1].bytes.find('\0') != std::string_view::npos) {
            throw hiddenBytes(path, doing, entry.line);
        }
    }
}

bool change(Context& context, const std::string& path, const std::string& doing, VarValEdit edit) {
    needFile(path, doing);
    const bool all = context.options.all;
    VarValFile file(path, all);
    const VarValContents contents = file.read(doing);
    const std::string otherwise = fmt::format("add it: genreg varval add {} {} {}", shellWord(path),
                                              shellWord(edit.variable), shellWord(edit.value));
    const std::vector<VarValEntry> matches = concerned(context, path, edit.variable, contents, otherwise);
    refuseHiddenBytes(path, doing, matches);
    const std::string found = matches.front().value;
    const bool byValue = all && context.options.ifValue;
    if (!all) {
        edit.expected = found;
    }
    const unsigned int code = file.change(VARVAL_MATCH_VARIABLE | (byValue ? VARVAL_MATCH_VALUE : 0), found, edit);
    if (code == REG_UNCHANGED || (code == REG_NOT_FOUND && all && (!byValue || found == edit.value))) {
        return false;
    }
    if (code == REG_NOT_FOUND || edit.changedMeanwhile) {
        throw changedMeanwhile(path, edit.variable, LOOK);
    }
    if (code != 0) {
        throw refused(code, path, doing, edit);
    }
    return true;
}

// Judges the words of the command line before any file is looked at.
VarValEdit editOf(const Arguments& arguments, const std::string& doing) {
    return refusingFor(arguments.file, doing, [&] {
        checkVariable(arguments.name);
        checkComment(arguments.comment.value_or(""));
        VarValEdit edit;
        edit.variable = arguments.name;
        edit.value = writtenValue(arguments.value);
        edit.comment = arguments.comment;
        return edit;
    });
}

int set(Context& context, const Arguments& arguments) {
    const std::string doing = "set " + printable(arguments.name);
    const VarValEdit edit = editOf(arguments, doing);
    remarkOnName(context, varValForm(), arguments.file, arguments.name);
    return carryOutOnText(context, {arguments.file, doing, resultOf(arguments, &edit),
                                    [&](const std::string& path) { return change(context, path, doing, edit); }});
}

// New lines look like the last pair of the file.
std::string layoutFor(const VarValContents& contents) {
    return newLine(contents.pairs.empty() ? std::string_view() : contents.pairs.back().raw);
}

bool append(Context& context, const std::string& path, const std::string& doing, VarValEdit edit) {
    const bool exists = judgeFile(path, doing, false);
    VarValFile file(path, context.options.all);
    const VarValContents contents = exists ? file.read(doing) : VarValContents{};
    edit.layout = layoutFor(contents);
    const unsigned int code = file.add(edit);
    if (code == REG_DUPLICATE) {
        const auto matches = named(contents, edit.variable);
        const std::string where = matches.empty() ? "" : fmt::format(" (line {})", matches.front().line);
        throw answer("exists", EXIT_CONFLICT, code, path,
                     fmt::format("{} is there already{}; nothing was changed", printable(edit.variable), where),
                     "genreg varval set, or --all for one more line of the name");
    }
    if (code != 0) {
        throw refused(code, path, doing, edit);
    }
    return true;
}

int add(Context& context, const Arguments& arguments) {
    const std::string doing = "add " + printable(arguments.name);
    const VarValEdit edit = editOf(arguments, doing);
    remarkOnName(context, varValForm(), arguments.file, arguments.name);
    return carryOutOnText(context, {arguments.file, doing, resultOf(arguments, &edit),
                                    [&](const std::string& path) { return append(context, path, doing, edit); }});
}

bool remove(Context& context, const std::string& path, const std::string& name, const std::string& doing) {
    needFile(path, doing);
    VarValFile file(path, context.options.all);
    const VarValContents contents = file.read(doing);
    const std::string otherwise = "genreg varval list " + shellWord(path);
    const std::string found = concerned(context, path, name, contents, otherwise).front().value;
    const bool byValue = context.options.ifValue.has_value();
    const unsigned int code = file.remove(VARVAL_MATCH_VARIABLE | (byValue ? VARVAL_MATCH_VALUE : 0), name, found);
    if (code == REG_NOT_FOUND) {
        throw changedMeanwhile(path, name, LOOK);
    }
    if (code != 0) {
        throw libraryFailure(code, path, doing);
    }
    return true;
}

void askBeforeDeleting(const Context& context, const Arguments& arguments, const std::string& doing) {
    const VarValContents contents = contentsOf(arguments.file, doing);
    const std::string otherwise = "genreg varval list " + shellWord(arguments.file);
    const std::size_t count = concerned(context, arguments.file, arguments.name, contents, otherwise).size();
    if (count > 1) {
        confirm(arguments.file, fmt::format("delete {} lines of {}", count, printable(arguments.name)));
    }
}

int erase(Context& context, const Arguments& arguments) {
    const std::string doing = "delete " + printable(arguments.name);
    remarkOnName(context, varValForm(), arguments.file, arguments.name);
    if (context.options.all && !context.options.yes && !context.options.dryRun) {
        askBeforeDeleting(context, arguments, doing);
    }
    return carryOutOnText(context, {arguments.file, doing, resultOf(arguments, nullptr), [&](const std::string& path) {
                                        return remove(context, path, arguments.name, doing);
                                    }});
}

Action declareList(CLI::App& parser) {
    return [arguments = declareFile(parser)](Context& context) { return list(context, *arguments); };
}

template <bool EVERY>
Action declareGet(CLI::App& parser) {
    auto arguments = declareName(parser);
    parser.add_option("--type", arguments->type, "convert the value: bool, int, uint, double; string leaves it")
        ->type_name("TYPE")
        ->check(CLI::IsMember({"bool", "int", "uint", "double", "string"}));
    return [arguments](Context& context) { return get(context, *arguments, EVERY); };
}

Action declareSet(CLI::App& parser) {
    return [arguments = declareValue(parser)](Context& context) { return set(context, *arguments); };
}

Action declareAdd(CLI::App& parser) {
    return [arguments = declareValue(parser)](Context& context) { return add(context, *arguments); };
}

Action declareDelete(CLI::App& parser) {
    return [arguments = declareName(parser)](Context& context) { return erase(context, *arguments); };
}

constexpr Command COMMANDS[] = {
    {"varval list", "all pairs, with their comments", 0, declareList},
    {"varval get", "the value of a variable, the first of its lines", 0, declareGet<false>},
    {"varval get-all", "the values of every line of a variable", 0, declareGet<true>},
    {"varval set", "change a value; the line keeps its layout and comment", USES_UPDATE | USES_IF_VALUE | USES_ALL,
     declareSet},
    {"varval add", "append a line for a new variable", USES_UPDATE | USES_PARENTS | USES_ALL, declareAdd},
    {"varval delete", "remove the line of a variable", USES_UPDATE | USES_IF_VALUE | USES_ALL | USES_YES,
     declareDelete},
};

}  // namespace

std::span<const Command> varValCommands() {
    return COMMANDS;
}

}  // namespace tool

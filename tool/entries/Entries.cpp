#include "entries/Entries.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "records/RecordDiff.h"
#include "records/RegistryBytes.h"

namespace tool {
namespace {

// The commands over one form, with what they were asked.
class EntryCommand {
public:
    EntryCommand(Context& context, const EntryForm& form, const EntryRequest& request, std::string doing)
        : context_(context), form_(form), request_(request), doing_(std::move(doing)) {}

    int get(bool every) const;
    int update(bool (EntryCommand::*make)(const std::string& path) const) const;
    bool set(const std::string& path) const;
    bool add(const std::string& path) const;
    bool remove(const std::string& path) const;
    void askBeforeDeleting() const;

private:
    void remark() const;
    [[nodiscard]] std::string hint(const std::string& command, const std::string& path) const {
        return fmt::format("genreg {} {} {}", form_.group, command, shellWord(path));
    }
    [[nodiscard]] std::string look() const { return fmt::format("genreg {} get", form_.group); }

    [[nodiscard]] Failure notFound(const std::string& path, const std::vector<Entry>& entries,
                                   const std::string& otherwise) const;
    [[nodiscard]] Failure severalMatch(const std::string& path, const std::vector<Entry>& matches) const;
    [[nodiscard]] Failure refused(unsigned int code, const std::string& path, const EntryEdit& edit) const;
    [[nodiscard]] std::vector<Entry> named(const std::vector<Entry>& entries) const;
    [[nodiscard]] std::vector<Entry> concerned(const std::string& path, const std::vector<Entry>& entries,
                                               const std::string& otherwise) const;
    [[nodiscard]] EntryKey key() const {
        const bool byValue = context_.options.all && context_.options.ifValue;
        return {request_.mask | (byValue ? form_.valueMask : 0), !context_.options.all};
    }

    Context& context_;
    const EntryForm& form_;
    const EntryRequest& request_;
    std::string doing_;
};

Failure EntryCommand::notFound(const std::string& path, const std::vector<Entry>& entries,
                               const std::string& otherwise) const {
    std::vector<std::string> names;
    for (const Entry& entry : entries) {
        names.push_back(entry.name);
    }
    const std::size_t refusedAt = form_.lines != nullptr ? refusedLine(*form_.lines, path, request_.name) : 0;
    if (refusedAt != 0) {
        return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path,
                      fmt::format("no line of {} is a {}", printable(request_.name), form_.noun),
                      fmt::format("mend line {}", refusedAt));
    }
    const std::string meant = nearest(request_.name, names);
    return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path,
                  fmt::format("there is no {} {}", form_.noun, printable(request_.name)),
                  meant.empty() ? otherwise : fmt::format("{}, or {}", printable(meant), otherwise));
}

Failure EntryCommand::severalMatch(const std::string& path, const std::vector<Entry>& matches) const {
    std::string places;
    for (const Entry& entry : matches) {
        places += fmt::format("{}{}", places.empty() ? "" : ", ", entry.number);
    }
    return answer("several", EXIT_CONFLICT, REG_SEVERAL_MATCH, path,
                  fmt::format("{} stands {} several {}s: {}; nothing was changed", printable(request_.name),
                              std::string_view(form_.place) == "line" ? "on" : "in", form_.place, places),
                  "--all for every one of them");
}

Failure EntryCommand::refused(unsigned int code, const std::string& path, const EntryEdit& edit) const {
    Failure failure = libraryFailure(code, path, doing_);
    if (edit.doesNotFit) {
        failure.kind = "invalid";
        failure.exitStatus = EXIT_INVALID;
        failure.message = fmt::format("{}: cannot {}: {}", printable(path), doing_, form_.tooLong);
        failure.hint = form_.shorten;
    }
    return failure;
}

std::vector<Entry> EntryCommand::named(const std::vector<Entry>& entries) const {
    std::vector<Entry> matches;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(matches), request_.concerns);
    return matches;
}

// The entries that an update concerns: of that name and, with --if-value, of that value. Refuses what the options do
// not allow.
std::vector<Entry> EntryCommand::concerned(const std::string& path, const std::vector<Entry>& entries,
                                           const std::string& otherwise) const {
    std::vector<Entry> matches = named(entries);
    if (matches.empty()) {
        throw notFound(path, entries, otherwise);
    }
    if (!context_.options.all) {
        if (request_.tellApart) {
            request_.tellApart(matches);
        }
        if (matches.size() > 1) {
            throw severalMatch(path, matches);
        }
    }
    if (!context_.options.ifValue) {
        return matches;
    }
    const std::string& expected = *context_.options.ifValue;
    const std::string found = matches.front().value;
    std::erase_if(matches, [&](const Entry& entry) { return entry.value != expected; });
    if (matches.empty()) {
        throw otherValue(path, request_.name, cell(found), cell(expected), look());
    }
    return matches;
}

void EntryCommand::remark() const {
    if (form_.lines != nullptr) {
        remarkOnName(context_, *form_.lines, request_.file, request_.name);
    }
}

int EntryCommand::get(bool every) const {
    remark();
    const std::vector<Entry> entries = entriesOf(form_, request_.file, doing_);
    std::vector<Entry> matches = named(entries);
    if (matches.empty()) {
        throw notFound(request_.file, entries, hint("list", request_.file));
    }
    if (!every && request_.tellApart) {
        request_.tellApart(matches);
    }
    matches.resize(every ? matches.size() : 1);
    for (const Entry& entry : matches) {
        if (context_.output.style.json) {
            context_.output.json(entry.members);
        } else {
            context_.output.line(context_.output.isTerminal() ? printable(entry.value) : entry.value);
        }
    }
    return EXIT_DONE;
}

int EntryCommand::update(bool (EntryCommand::*make)(const std::string& path) const) const {
    remark();
    Change change{request_.file, doing_, request_.result, [&](const std::string& path) { return (this->*make)(path); }};
    if (form_.shown == nullptr) {
        return carryOutOnText(context_, change);
    }
    const auto asText = [shown = form_.shown](const Difference& difference) {
        return Difference{difference.oldName, difference.newName, shown(difference.before), shown(difference.after)};
    };
    change.print = [asText](Output& output, const Difference& difference) {
        printDifference(output, asText(difference));
    };
    change.objects = [asText](const Difference& difference) { return differenceObjects(asText(difference)); };
    return carryOut(context_, change);
}

bool EntryCommand::set(const std::string& path) const {
    needFile(path, doing_);
    const auto file = form_.open(path, context_.options.all);
    const std::string otherwise = fmt::format("add it: {} {}", hint("add", path), request_.addWords);
    const std::vector<Entry> matches = concerned(path, file->read(doing_), otherwise);
    for (const Entry& entry : matches) {
        if (entry.hidesBytes) {
            throw hiddenBytes(path, doing_, entry.number);
        }
    }
    EntryEdit edit = request_.edit;
    const bool asAsked =
        std::all_of(matches.begin(), matches.end(), [&](const Entry& entry) { return edit.isAsAsked(entry.raw); });
    const unsigned int code = file->change(key(), matches.front(), edit);
    if (code == REG_UNCHANGED || (code == REG_NOT_FOUND && asAsked)) {
        return false;
    }
    if (code == REG_NOT_FOUND) {
        throw changedMeanwhile(path, request_.name, look());
    }
    if (code != 0) {
        throw refused(code, path, edit);
    }
    return true;
}

bool EntryCommand::add(const std::string& path) const {
    const bool exists = judgeFile(path, doing_, false);
    const auto file = form_.open(path, context_.options.all);
    EntryEdit edit = request_.edit;
    const unsigned int code = file->add(request_.mask, edit);
    if (code == REG_DUPLICATE) {
        const auto matches = exists ? named(file->read(doing_)) : std::vector<Entry>();
        const std::string where = matches.empty() ? "" : fmt::format(" ({} {})", form_.place, matches.front().number);
        throw answer("exists", EXIT_CONFLICT, code, path,
                     fmt::format("{} is there already{}; nothing was changed", printable(request_.name), where),
                     fmt::format("genreg {} set, or --all for one more {} of the name", form_.group, form_.place));
    }
    if (code != 0) {
        throw refused(code, path, edit);
    }
    return true;
}

bool EntryCommand::remove(const std::string& path) const {
    needFile(path, doing_);
    const auto file = form_.open(path, context_.options.all);
    const std::vector<Entry> matches = concerned(path, file->read(doing_), hint("list", path));
    const unsigned int code = file->remove(key(), matches.front());
    if (code == REG_NOT_FOUND) {
        throw changedMeanwhile(path, request_.name, look());
    }
    if (code != 0) {
        throw libraryFailure(code, path, doing_);
    }
    return true;
}

void EntryCommand::askBeforeDeleting() const {
    const auto entries = entriesOf(form_, request_.file, doing_);
    const std::size_t count = concerned(request_.file, entries, hint("list", request_.file)).size();
    if (count > 1) {
        confirm(request_.file, fmt::format("delete {} {}s of {}", count, form_.place, printable(request_.name)));
    }
}

}  // namespace

void Entry::setNumber(const char* what, std::size_t counted) {
    number = counted;
    Json numbered{{what, counted}};
    numbered.update(members);
    members = std::move(numbered);
}

std::vector<Entry> entriesOf(const EntryForm& form, const std::string& file, const std::string& doing) {
    needFile(file, doing);
    return form.open(file, true)->read(doing);
}

int listEntries(Context& context, const EntryForm& form, const std::string& file) {
    const std::vector<Entry> entries = entriesOf(form, file, "list");
    Table table(form.heading);
    for (const Entry& entry : entries) {
        if (context.output.style.json) {
            context.output.json(entry.members);
        } else {
            table.row(entry.cells);
        }
    }
    if (!context.output.style.json && !entries.empty()) {
        table.print(context.output);
    }
    if (form.lines != nullptr) {
        remarkOnFile(context, *form.lines, file);
    }
    return EXIT_DONE;
}

int getEntries(Context& context, const EntryForm& form, const EntryRequest& request, bool every) {
    return EntryCommand(context, form, request, "get " + printable(request.name)).get(every);
}

int setEntry(Context& context, const EntryForm& form, const EntryRequest& request) {
    return EntryCommand(context, form, request, "set " + printable(request.name)).update(&EntryCommand::set);
}

int addEntry(Context& context, const EntryForm& form, const EntryRequest& request) {
    return EntryCommand(context, form, request, "add " + printable(request.name)).update(&EntryCommand::add);
}

int deleteEntry(Context& context, const EntryForm& form, const EntryRequest& request) {
    const EntryCommand command(context, form, request, "delete " + printable(request.name));
    if (context.options.all && !context.options.yes && !context.options.dryRun) {
        command.askBeforeDeleting();
    }
    return command.update(&EntryCommand::remove);
}

int carryOutOnText(Context& context, const Change& change) {
    if (judgeFile(change.path, change.doing, false)) {
        const std::string bytes = readFile(change.path, change.doing);
        const RegistryBytes parts = isBinary(bytes) ? takeApart(bytes, false) : RegistryBytes();
        if (parts.content != RegistryContent::OTHER && parts.isSound()) {
            const bool global = parts.content == RegistryContent::GLOBAL;
            throw answer("invalid", EXIT_INVALID, 0, change.path,
                         fmt::format("cannot {}: it is a binary registry, and a line would damage it", change.doing),
                         global
                             ? fmt::format("genreg --registry {} instance, service or variable", shellWord(change.path))
                             : "genreg binvar");
        }
    }
    return carryOut(context, change);
}

}  // namespace tool

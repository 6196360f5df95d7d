#include "entries/EntryEditor.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "entries/EntryChanges.h"
#include "entries/Remarks.h"
#include "records/Salvage.h"
#include "system/System.h"

namespace tool {
namespace {

std::string textOf(const Json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    return value.is_number_float() ? fmt::format("{}", value.get<double>()) : value.dump();
}

// A pattern may be about the whole name, or about what stands for it alone: "http", of http/tcp.
bool fitsName(const EntrySchema& schema, const Entry& entry, const std::string& pattern) {
    return pattern.empty() || fitsPattern(pattern, entry.name) ||
           (schema.nameEnd != 0 && fitsPattern(pattern, entry.name.substr(0, entry.name.find(schema.nameEnd))));
}

// The commands over one schema, with what they were asked.
class EntryEditor {
public:
    EntryEditor(Context& context, const EntrySchema& schema, const EntryRequest& request, const char* verb)
        : context_(context),
          schema_(schema),
          request_(request),
          doing_(fmt::format("{} {}", verb, printable(request.name))) {}

    int get(bool every, const std::string& type) const;
    int update(bool (EntryEditor::*make)(const std::string& path) const) const;
    bool set(const std::string& path) const;
    bool add(const std::string& path) const;
    bool remove(const std::string& path) const;

private:
    void remark() const;
    void askBeforeDeleting() const;
    [[nodiscard]] std::optional<bool> attemptSet(const std::string& path, std::optional<Entry>& first) const;
    [[nodiscard]] std::optional<bool> addMissing(const std::string& path) const;
    [[nodiscard]] bool isAbsent(const std::string& path) const;
    [[nodiscard]] unsigned int addTo(EntryFile& file, const std::vector<Entry>& entries, EntryEdit& edit) const;
    void noteAdded(const std::string& path, const EntryEdit& edit) const;
    [[nodiscard]] std::vector<ToldChange> told() const;
    void refuseContradiction(const std::string& path, const Entry& first, const Entry& now) const;
    [[nodiscard]] std::string hint(const std::string& command, const std::string& path) const {
        return fmt::format("genreg {} {} {}", schema_.group, command, shellWord(path));
    }
    [[nodiscard]] std::string look() const { return fmt::format("genreg {} get", schema_.group); }

    [[nodiscard]] Failure notFound(const std::string& path, const std::vector<Entry>& entries,
                                   const std::string& otherwise) const;
    [[nodiscard]] Failure severalMatch(const std::string& path, const std::vector<Entry>& matches) const;
    [[nodiscard]] Failure refused(unsigned int code, const std::string& path, const EntryEdit& edit) const;
    [[nodiscard]] std::vector<Entry> named(const std::vector<Entry>& entries) const;
    [[nodiscard]] std::vector<Entry> concerned(const std::string& path, const std::vector<Entry>& entries,
                                               const std::string& otherwise) const;
    [[nodiscard]] EntryKey key() const {
        const bool byValue = context_.options.all && context_.options.ifValue;
        return {request_.mask | (byValue ? schema_.valueMask : 0), !context_.options.all};
    }

    Context& context_;
    const EntrySchema& schema_;
    const EntryRequest& request_;
    std::string doing_;
    mutable std::vector<MadeEntry> made_;  // the last time that it was
};

Failure EntryEditor::notFound(const std::string& path, const std::vector<Entry>& entries,
                              const std::string& otherwise) const {
    std::vector<std::string> names;
    for (const Entry& entry : entries) {
        names.push_back(entry.name);
    }
    const std::size_t refusedAt = schema_.hasLines() ? refusedLine(schema_, path, request_.name) : 0;
    if (refusedAt != 0) {
        return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path,
                      fmt::format("no line of {} is a {}", printable(request_.name), schema_.lineNoun()),
                      fmt::format("mend line {}", refusedAt));
    }
    const std::string meant = nearest(request_.name, names);
    return answer("not-found", EXIT_NEGATIVE, REG_NOT_FOUND, path,
                  fmt::format("there is no {} {}", schema_.noun, printable(request_.name)),
                  meant.empty() ? otherwise : fmt::format("{}, or {}", printable(meant), otherwise));
}

Failure EntryEditor::severalMatch(const std::string& path, const std::vector<Entry>& matches) const {
    std::string places;
    for (const Entry& entry : matches) {
        places += fmt::format("{}{}", places.empty() ? "" : ", ", entry.number);
    }
    return answer("several", EXIT_CONFLICT, REG_SEVERAL_MATCH, path,
                  fmt::format("{} stands {} several {}s: {}; nothing was changed", printable(request_.name),
                              std::string_view(schema_.place) == "line" ? "on" : "in", schema_.place, places),
                  "--all for every one of them");
}

Failure EntryEditor::refused(unsigned int code, const std::string& path, const EntryEdit& edit) const {
    Failure failure = libraryFailure(code, path, doing_);
    if (edit.doesNotFit) {
        failure.kind = "invalid";
        failure.exitStatus = EXIT_INVALID;
        failure.message = fmt::format("{}: cannot {}: {}", printable(path), doing_, schema_.tooLong);
        failure.hint = schema_.shorten;
    }
    return failure;
}

std::vector<Entry> EntryEditor::named(const std::vector<Entry>& entries) const {
    std::vector<Entry> matches;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(matches), [&](const Entry& entry) {
        return request_.concerns ? request_.concerns(entry) : entry.name == request_.name;
    });
    return matches;
}

// The entries that an update concerns: of that name and, with --if-value, of that value. Refuses what the options do
// not allow.
std::vector<Entry> EntryEditor::concerned(const std::string& path, const std::vector<Entry>& entries,
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
    const auto fits = [&](const Entry& entry) {
        return entry.value == expected || (schema_.quotes && entry.value == fmt::format("\"{}\"", expected));
    };
    const auto first = std::find_if(matches.begin(), matches.end(), fits);
    if (first == matches.end()) {
        throw otherValue(path, request_.name, cell(matches.front().value), cell(expected), look());
    }
    const std::string value = first->value;  // of the key: one of the two ways to write it
    std::erase_if(matches, [&](const Entry& entry) { return entry.value != value; });
    return matches;
}

void EntryEditor::remark() const {
    if (schema_.hasLines()) {
        remarkOnName(context_, schema_, request_.file, request_.name);
    }
}

int EntryEditor::get(bool every, const std::string& type) const {
    remark();
    const std::vector<Entry> entries = entriesOf(schema_, request_.file, doing_);
    std::vector<Entry> matches = named(entries);
    if (matches.empty()) {
        throw notFound(request_.file, entries, hint("list", request_.file));
    }
    if (!every && request_.tellApart) {
        request_.tellApart(matches);
    }
    matches.resize(every ? matches.size() : 1);
    if (!type.empty() && type != "string") {
        for (Entry& entry : matches) {  // all of them, before any is told
            entry.members["value"] = schema_.convert(request_.file, entry, type);
            entry.value = textOf(entry.members["value"]);
        }
    }
    for (Entry& entry : matches) {
        if (request_.unquoted && entry.value.size() > 1 && entry.value.starts_with('"') && entry.value.ends_with('"')) {
            entry.value = entry.value.substr(1, entry.value.size() - 2);
            putText(entry.members, "value", entry.value);
        }
        const std::string& answer = request_.showsName ? entry.name : entry.value;
        if (context_.output.style.json) {
            context_.output.json(entry.members);
        } else {
            context_.output.line(context_.output.isTerminal() ? printable(answer) : answer);
        }
    }
    return EXIT_DONE;
}

int EntryEditor::update(bool (EntryEditor::*make)(const std::string& path) const) const {
    remark();
    askBeforeDeleting();
    Change change = changeOfEntries(schema_, request_.file, doing_);
    change.make = [&](const std::string& path) {
        made_.clear();
        return (this->*make)(path);
    };
    change.told = [&] { return told(); };
    return schema_.shown == nullptr ? carryOutOnText(context_, change) : carryOut(context_, change);
}

// What is not there, and need not be, is told by the name alone.
std::vector<ToldChange> EntryEditor::told() const {
    std::vector<ToldChange> all;
    for (const MadeEntry& each : made_) {
        all.push_back(toldEntry(schema_, each));
    }
    if (all.empty()) {
        const std::size_t end = schema_.nameEnd == 0 ? std::string::npos : request_.name.find(schema_.nameEnd);
        ToldChange absent = unchanged(schema_.group);
        putText(absent.key, schema_.keyMembers.front(), request_.name.substr(0, end));
        if (end != std::string::npos) {
            putText(absent.key, schema_.keyMembers.back(), request_.name.substr(end + 1));
        }
        all.push_back(std::move(absent));
    }
    return all;
}

// A new one stands last, unless somebody was quick; its bytes tell.
void EntryEditor::noteAdded(const std::string& path, const EntryEdit& edit) const {
    const std::string raw = edit.rewrite(edit.layout);
    const auto file = schema_.open(path, true);
    MadeEntry made{{}, file->describe(raw), true};
    if (context_.output.style.json) {
        const std::vector<Entry> entries = file->read(doing_);
        const auto last = std::find_if(entries.rbegin(), entries.rend(), [&](const Entry& e) { return e.raw == raw; });
        made.after = last != entries.rend() ? *last : std::move(made.after);
    }
    made_.push_back(std::move(made));
}

bool EntryEditor::set(const std::string& path) const {
    std::optional<Entry> first;
    return attemptPatiently(context_, path, printable(request_.name), [&] { return attemptSet(path, first); });
}

// Whether a set that adds what is missing has to. An entry that must have a value must be there.
bool EntryEditor::isAbsent(const std::string& path) const {
    return !judgeFile(path, doing_, false) || named(schema_.open(path, true)->read(doing_)).empty();
}

// None when somebody else added it meanwhile.
std::optional<bool> EntryEditor::addMissing(const std::string& path) const {
    const bool exists = judgeFile(path, doing_, false);
    const auto file = schema_.open(path, false);
    EntryEdit edit = request_.edit;
    const unsigned int code = addTo(*file, exists ? file->read(doing_) : std::vector<Entry>(), edit);
    if (code == REG_DUPLICATE) {
        return std::nullopt;
    }
    if (code != 0) {
        throw refused(code, path, edit);
    }
    noteAdded(path, edit);
    return true;
}

// None when somebody else changed the entry between the reading and the writing.
std::optional<bool> EntryEditor::attemptSet(const std::string& path, std::optional<Entry>& first) const {
    if (request_.addMissing && !first && !context_.options.ifValue && !request_.addWords.empty() && isAbsent(path)) {
        return addMissing(path);
    }
    needFile(path, doing_);
    const bool single = !context_.options.all;
    const auto file = schema_.open(path, !single);
    const std::vector<Entry> entries = file->read(doing_);
    if (first && named(entries).empty()) {
        throw changedMeanwhile(path, request_.name, look());
    }
    const std::string otherwise = request_.addWords.empty()
                                      ? hint("list", path)
                                      : fmt::format("add it: {} {}", hint("add", path), request_.addWords);
    const std::vector<Entry> matches = concerned(path, entries, otherwise);
    for (const Entry& entry : matches) {
        if (entry.hidesBytes) {
            throw hiddenBytes(path, doing_, entry.number);
        }
    }
    if (first) {
        refuseContradiction(path, *first, matches.front());
    } else {
        first = matches.front();
    }
    EntryEdit edit = request_.edit;
    const unsigned int code = file->change(key(), matches.front(), edit);
    if (code == REG_NOT_FOUND) {
        if (single && !context_.options.ifValue) {
            return std::nullopt;
        }
        // Those that are as asked already are no matches where several are allowed.
        if (single || !std::ranges::all_of(matches, [&](const Entry& entry) { return edit.isAsAsked(entry.raw); })) {
            throw changedMeanwhile(path, request_.name, look());
        }
    }
    const bool unchanged = code == REG_UNCHANGED || code == REG_NOT_FOUND;
    if (code != 0 && !unchanged) {
        throw refused(code, path, edit);
    }
    for (const Entry& entry : matches) {
        made_.push_back({entry, file->rewritten(entry, edit), !unchanged && !edit.isAsAsked(entry.raw)});
    }
    return !unchanged;
}

// What others may have done to the entry since it was read first: anything but to give a field that is asked for a
// value that is neither the old one nor the wanted one.
void EntryEditor::refuseContradiction(const std::string& path, const Entry& first, const Entry& now) const {
    const auto& wanted = request_.edit.cells;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i] && now.cells[i] != first.cells[i] && now.cells[i] != *wanted[i]) {
            throw changedMeanwhile(path, request_.name, look());
        }
    }
}

// A new one looks like the last of those that there are.
unsigned int EntryEditor::addTo(EntryFile& file, const std::vector<Entry>& entries, EntryEdit& edit) const {
    if (schema_.layoutLike != nullptr) {
        edit.layout = schema_.layoutLike(entries.empty() ? std::string_view() : entries.back().raw);
    }
    return file.add(request_.mask, edit);
}

bool EntryEditor::add(const std::string& path) const {
    const bool exists = judgeFile(path, doing_, false);
    const auto file = schema_.open(path, context_.options.all);
    EntryEdit edit = request_.edit;
    const bool looks = exists && schema_.layoutLike != nullptr;
    const unsigned int code = addTo(*file, looks ? file->read(doing_) : std::vector<Entry>(), edit);
    if (code == REG_DUPLICATE) {
        const auto matches = exists ? named(file->read(doing_)) : std::vector<Entry>();
        const std::string where = matches.empty() ? "" : fmt::format(" ({} {})", schema_.place, matches.front().number);
        throw answer("exists", EXIT_CONFLICT, code, path,
                     fmt::format("{} is there already{}; nothing was changed", printable(request_.name), where),
                     fmt::format("genreg {} set, or --all for one more {} of the name", schema_.group, schema_.place));
    }
    if (code != 0) {
        throw refused(code, path, edit);
    }
    noteAdded(path, edit);
    return true;
}

bool EntryEditor::remove(const std::string& path) const {
    needFile(path, doing_);
    const auto file = schema_.open(path, context_.options.all);
    const std::vector<Entry> entries = file->read(doing_);
    if (request_.ifPresent && named(entries).empty()) {
        return false;
    }
    const std::vector<Entry> matches = concerned(path, entries, hint("list", path));
    const unsigned int code = file->remove(key(), matches.front());
    if (code == REG_NOT_FOUND) {
        if (request_.ifPresent && named(file->read(doing_)).empty()) {
            return false;
        }
        throw changedMeanwhile(path, request_.name, look());
    }
    if (code != 0) {
        throw libraryFailure(code, path, doing_);
    }
    for (const Entry& entry : matches) {
        made_.push_back({entry, {}, true});
    }
    return true;
}

// Where several are to go.
void EntryEditor::askBeforeDeleting() const {
    const Options& options = context_.options;
    if ((context_.uses & USES_YES) == 0 || !options.all || options.yes || options.dryRun) {
        return;
    }
    const auto entries = entriesOf(schema_, request_.file, doing_);
    if (request_.ifPresent && named(entries).empty()) {
        return;
    }
    const std::size_t count = concerned(request_.file, entries, hint("list", request_.file)).size();
    if (count > 1) {
        confirm(request_.file, fmt::format("delete {} {}s of {}", count, schema_.place, printable(request_.name)));
    }
}

}  // namespace

Entry EntryFile::rewritten(const Entry& found, const EntryEdit& edit) const {
    Entry entry = describe(edit.rewrite(found.raw));
    entry.number = found.number;
    return entry;
}

void Entry::setNumber(const char* what, std::size_t counted) {
    number = counted;
    Json numbered{{what, counted}};
    numbered.update(members);
    members = std::move(numbered);
}

bool EntryEdit::isShownBy(const Entry& entry) const {
    return std::equal(cells.begin(), cells.end(), entry.cells.begin(), entry.cells.end(),
                      [](const auto& wanted, const std::string& shown) { return !wanted || *wanted == shown; });
}

std::vector<Entry> entriesOf(const EntrySchema& schema, const std::string& file, const std::string& doing) {
    needFile(file, doing);
    return schema.open(file, true)->read(doing);
}

int listEntries(Context& context, const EntrySchema& schema, const std::string& file, const std::string& pattern) {
    std::vector<Entry> entries = entriesOf(schema, file, "list");
    std::erase_if(entries, [&](const Entry& entry) { return !fitsName(schema, entry, pattern); });
    Table table(schema.heading);
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
    if (schema.hasLines()) {
        remarkOnFile(context, schema, file);
    }
    return EXIT_DONE;
}

int getEntries(Context& context, const EntrySchema& schema, const EntryRequest& request, bool every,
               const std::string& type) {
    return EntryEditor(context, schema, request, "get").get(every, type);
}

int setEntry(Context& context, const EntrySchema& schema, const EntryRequest& request) {
    if (context.options.parents && !request.addMissing) {
        throw usageFailure("--parents means nothing to a set without --add", "genreg help " + context.operation);
    }
    // Of a set that adds nothing a missing file is the failure, and not its folder.
    context.uses &= request.addMissing ? ~0U : ~USES_PARENTS;
    return EntryEditor(context, schema, request, "set").update(&EntryEditor::set);
}

int addEntry(Context& context, const EntrySchema& schema, const EntryRequest& request) {
    return EntryEditor(context, schema, request, "add").update(&EntryEditor::add);
}

int deleteEntry(Context& context, const EntrySchema& schema, const EntryRequest& request) {
    return EntryEditor(context, schema, request, "delete").update(&EntryEditor::remove);
}

Change changeOfEntries(const EntrySchema& schema, const std::string& file, const std::string& doing) {
    Change change{file, doing, {}, {}};
    if (schema.shown != nullptr) {
        change.print = [shown = schema.shown](Output& output, const Difference& difference) {
            printDifference(
                output, {difference.oldName, difference.newName, shown(difference.before), shown(difference.after)});
        };
    }
    return change;
}

int carryOutOnText(Context& context, const Change& change) {
    if (judgeFile(change.path, change.doing, false)) {
        const std::string bytes = readFile(change.path, change.doing);
        const SalvagedRegistry parts = isBinary(bytes) ? takeApart(bytes, false) : SalvagedRegistry();
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

#include <fmt/core.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "entries/EntryChanges.h"
#include "entries/Remarks.h"
#include "inspect/CheckedFile.h"
#include "inspect/InspectCommands.h"
#include "inspect/Replacement.h"
#include "system/System.h"

namespace tool {
namespace {

constexpr char DOING[] = "edit";
constexpr int EXIT_BY_SIGNAL = 128;

struct Arguments {
    std::string file;
    std::string form;
};

// What the editor works on: a copy for this user alone, in a folder of its own. It goes with the object unless it holds
// an edit that nobody gave up.
class EditedCopy {
public:
    EditedCopy(const std::string& path, const std::string& bytes) {
        std::error_code error;
        const auto parent = std::filesystem::temp_directory_path(error);
        folder_ = (error ? std::filesystem::path("/tmp") : parent) / "genreg.XXXXXX";
        if (const int systemError = makePrivateFolder(folder_)) {
            throw systemFailure(systemError, folder_, "make a folder for the copy");
        }
        path_ = std::filesystem::path(folder_) / std::filesystem::path(path).filename();
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(path_.c_str(), "wbxe"), std::fclose);
        if (stream == nullptr || setPermissions(stream.get(), 0600) != 0 ||
            std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) != bytes.size() ||
            std::fflush(stream.get()) != 0) {
            const int systemError = errno;
            drop();
            throw systemFailure(systemError, path_, "copy the file for the editor");
        }
    }
    ~EditedCopy() {
        if (!kept_) {
            drop();
        }
    }
    EditedCopy(const EditedCopy&) = delete;
    EditedCopy& operator=(const EditedCopy&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool isKept() const { return kept_; }
    void keep(bool kept) { kept_ = kept; }

private:
    void drop() const {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string folder_;
    std::string path_;
    bool kept_ = false;
};

std::string editorOfUser() {
    for (const char* name : {"VISUAL", "EDITOR"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "vi";
}

bool somebodyCanBeAsked() {
    return isTerminal(stdin) && isTerminal(stderr);
}

class Editing {
public:
    Editing(Context& context, const CheckedFile& file)
        : context_(context), path_(file.path), schema_(*file.schema), before_(file.bytes), copy_(path_, before_) {}

    int run() {
        try {
            return attempt();
        } catch (Failure& failure) {
            if (copy_.isKept()) {
                failure.message += fmt::format("; the edit is kept in {}", printable(copy_.path()));
                const std::string look = fmt::format("genreg diff {} {}", shellWord(path_), shellWord(copy_.path()));
                failure.hint = failure.hint.empty() || failure.kind == "changed"
                                   ? look + " shows what it would change"
                                   : fmt::format("{}; {}", failure.hint, look);
            }
            throw;
        }
    }

private:
    enum class Wish { COMMIT, EDIT, DROP, KEEP };

    int attempt() {
        for (;;) {
            runEditor();
            const std::vector<OddLine> refused = refusedLines();
            const bool quiet = context_.options.yes || context_.options.dryRun;
            if (refused.empty() && (quiet || after_ == before_)) {
                return commit(true);
            }
            if (!refused.empty()) {
                tell(refused);
            } else {
                printDifference(context_.output, {path_, path_, before_, after_});
                context_.output.deliver();
            }
            const Wish wish = ask(refused.empty());
            if (wish == Wish::COMMIT) {
                return commit(false);
            }
            if (wish != Wish::EDIT) {
                copy_.keep(wish == Wish::KEEP);
                throw refused.empty() || wish == Wish::DROP
                    ? answer("refused", EXIT_NEGATIVE, 0, path_, "nothing was changed", "")
                    : refusal(refused);
            }
        }
    }

    // The shell takes it apart: "code --wait" is an editor, too.
    void runEditor() {
        const std::string editor = editorOfUser();
        ChildSetup setup;
        setup.words = {"/bin/sh", "-c", editor + " \"$@\"", editor, copy_.path()};
        setup.environment = inheritedEnvironment();
        setup.output = context_.output.descriptor();
        int status = 0;
        if (const int error = runInForeground(setup, &status)) {
            throw systemFailure(error, editor, "run the editor");
        }
        std::error_code error;
        const bool there = std::filesystem::is_regular_file(copy_.path(), error);
        after_ = there ? readFile(copy_.path(), "read what the editor left") : before_;
        copy_.keep(after_ != before_);
        if (status != 0 || !there) {
            const std::string how = status > EXIT_BY_SIGNAL ? fmt::format("signal {}", status - EXIT_BY_SIGNAL)
                                    : status != 0           ? fmt::format("status {}", status)
                                                            : "no file left";
            throw answer("editor", EXIT_NEGATIVE, 0, path_,
                         fmt::format("the editor ({}) ended with {}; nothing was changed", printable(editor), how),
                         "VISUAL or EDITOR names the editor");
        }
    }

    // Those of the edit: what stood there before may stay.
    [[nodiscard]] std::vector<OddLine> refusedLines() const {
        std::multiset<std::string_view> known;
        for (const auto& [line, text] : unreadable(before_)) {
            known.insert(text);
        }
        std::vector<OddLine> refused;
        for (const auto& [line, text] : unreadable(after_)) {
            const auto same = known.find(text);
            if (same == known.end()) {
                refused.push_back(line);
            } else {
                known.erase(same);
            }
        }
        return refused;
    }

    [[nodiscard]] std::vector<std::pair<OddLine, std::string_view>> unreadable(const std::string& bytes) const {
        const std::vector<std::string_view> lines = splitLines(bytes);
        std::vector<std::pair<OddLine, std::string_view>> found;
        for (OddLine& line : oddLines(schema_, bytes)) {
            const std::string_view kind = line.kind;
            if ((kind == "other-form" || kind == "hidden") && line.number <= lines.size()) {
                const std::string_view text = lines[line.number - 1];
                found.emplace_back(std::move(line), text);
            }
        }
        return found;
    }

    void tell(const std::vector<OddLine>& refused) const {
        const std::vector<std::string_view> lines = splitLines(after_);
        for (const OddLine& line : refused) {
            std::string_view text = lines[line.number - 1];
            text = text.substr(0, text.find('\n'));
            context_.output.note(line.kind, path_,
                                 fmt::format("line {} of the edit: {}: {}", line.number, line.why, printable(text)));
        }
    }

    [[nodiscard]] Failure refusal(const std::vector<OddLine>& refused) const {
        return answer("invalid", EXIT_INVALID, 0, path_,
                      fmt::format("{} of the edit {} no {}, the first is line {}; nothing was changed",
                                  counted(refused.size(), "line"), refused.size() == 1 ? "is" : "are",
                                  schema_.lineNoun(), refused.front().number),
                      "");
    }

    [[nodiscard]] Wish ask(bool committable) const {
        if (!somebodyCanBeAsked()) {
            return Wish::KEEP;
        }
        const std::string question = fmt::format("genreg: {}: {}[e]dit again, [d]rop the edit, [K]eep it aside? ",
                                                 printable(path_), committable ? "[y]es, commit this, " : "");
        const std::string reply = lineFromTerminal([&] { toStandardError(question); }).value_or("");
        const char letter = reply.empty() ? 'k' : reply.front();
        return letter == 'y' && committable ? Wish::COMMIT
               : letter == 'e'              ? Wish::EDIT
               : letter == 'd'              ? Wish::DROP
                                            : Wish::KEEP;
    }

    int commit(bool shows) {
        context_.options.diff = shows;
        Change change{path_, DOING, {}, {}};
        change.make = [this](const std::string& path) {
            if (after_ == before_) {
                return false;
            }
            Replacement(path, DOING).put(after_, &before_);
            return true;
        };
        change.told = [this] {
            auto told = changesOfLines(schema_, before_, after_);
            return told.empty() ? std::vector{unchanged(schema_.group)} : told;
        };
        const int status = carryOut(context_, change);
        copy_.keep(false);
        return status;
    }

    Context& context_;
    const std::string& path_;
    const EntrySchema& schema_;
    const std::string& before_;
    std::string after_;
    EditedCopy copy_;
};

int edit(Context& context, const Arguments& arguments) {
    needFile(arguments.file, DOING);
    CheckedFile file;
    look(file, context, arguments.file, arguments.form, DOING);
    if (file.binary || isBinary(file.bytes)) {
        throw usageFailure(
            fmt::format("{}: it is a binary registry, which is no text to edit", printable(file.path)),
            fmt::format(
                "genreg export {} > records.json, edit those, genreg --registry {} import records.json --replace",
                shellWord(file.path), shellWord(file.path)));
    }
    if (file.schema == nullptr) {
        throw usageFailure(fmt::format("{}: its name and lines do not tell its form", printable(file.path)),
                           "--form varval, services or inittab");
    }
    if (!context.options.yes && !context.options.dryRun && !somebodyCanBeAsked()) {
        throw usageFailure(
            fmt::format("{}: there is nobody to ask whether the edit is to be committed", printable(file.path)),
            "-y commits it without asking");
    }
    return Editing(context, file).run();
}

Action declareEdit(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.required("FILE", arguments->file, "the registry file, of lines");
    parser.choice("--form", "FORM", {"varval", "services", "inittab"}, arguments->form,
                  "what the file is, where name and contents do not tell: varval, services or inittab");
    parser.footer(
        "The editor is $VISUAL, else $EDITOR, else vi. It works on a private copy; the file is locked for the commit\n"
        "alone, and an edit of a file that somebody else changed meanwhile exits 5. What could not be committed is "
        "kept\n"
        "in a file that the message names.");
    return [arguments](Context& context) { return edit(context, *arguments); };
}

}  // namespace

std::span<const Command> editCommands() {
    static constexpr Command COMMANDS[] = {
        {"edit", "an editor on a copy of a file of lines; checked, shown as a difference, committed",
         USES_DRY_RUN | USES_YES, declareEdit},
    };
    return COMMANDS;
}

}  // namespace tool

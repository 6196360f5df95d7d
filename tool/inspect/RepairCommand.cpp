#include <fmt/core.h>
#include <genreg/GlobalReg.h>

#include <memory>

#include "base/Answers.h"
#include "base/DiskFiles.h"
#include "base/Text.h"
#include "base/Update.h"
#include "inspect/CheckedFile.h"
#include "inspect/InspectCommands.h"
#include "inspect/Replacement.h"

namespace tool {
namespace {

constexpr std::size_t MOST_SHOWN = 20;

struct Arguments {
    std::string file;
    std::optional<std::string> into;
};

struct Lost {
    std::size_t offset;
    std::size_t length;
    std::string why;
};

class Repair {
public:
    Repair(Context& context, const Arguments& arguments) : context_(context), into_(arguments.into.value_or("")) {
        look(file_, context, arguments.file, "", "repair it");
        if (arguments.into) {
            refuseTarget();
        }
    }

    int run() {
        if (!file_.bytes.empty() && !file_.binary) {
            throw usageFailure(fmt::format("{}: it is a file of lines; repair is for records", printable(file_.path)),
                               fmt::format("genreg check --deep {} names the lines that are wrong, for an editor",
                                           shellWord(file_.path)));
        }
        if (file_.records.isSound()) {
            context_.output.note("sound", file_.path, "it is sound; there is nothing to repair");
            tell("", false);
            return EXIT_DONE;
        }
        kept_ = file_.records.sound().size();
        if (kept_ == 0) {
            throw answer("damaged", EXIT_DAMAGED, file_.records.damages().front().code, file_.path,
                         "there is no sound record in it; nothing was written",
                         "put a saved copy in its place, or a .bkp or .cor that genreg status names");
        }
        rescued_ = file_.records.rescued(file_.bytes);
        refuseMisreading();
        const std::vector<Lost> lost = losses();
        if (!context_.output.style.json) {
            print(lost);
        }
        warnOfValues();
        if (context_.options.dryRun) {
            context_.wouldChange = true;
            context_.output.note("dry-run", file_.path, "nothing was written");
            tell("", true);
            return EXIT_DONE;
        }
        return into_.empty() ? repairInPlace() : repairInto();
    }

private:
    void refuseTarget() const {
        if (into_.empty()) {
            throw usageFailure("--into: the name is empty", "genreg repair --help");
        }
        const bool there = judgeFile(into_, "write it", false);
        if (isSameFile(into_, file_.path)) {
            throw usageFailure(fmt::format("{}: it is the damaged file itself", printable(into_)),
                               "another name; without --into the file is repaired, and the old one kept beside it");
        }
        if (there && !context_.options.yes && !context_.options.dryRun) {
            throw answer("exists", EXIT_CONFLICT, 0, into_, "the file is there already; nothing was written",
                         "name another file");
        }
        if (const std::string folder = folderOf(into_); !there && !isFolder(folder)) {
            Failure failure = missingFolder(folder, into_, "write it");
            failure.hint = "check the path, or make the folder first";
            throw failure;
        }
    }

    // What is to be written must be read as what it was taken for.
    void refuseMisreading() const {
        const SalvagedRegistry again = salvage(rescued_, file_.records.content);
        if (!again.isSound() || again.content != file_.records.content || again.sound().size() != kept_) {
            throw answer("damaged", EXIT_DAMAGED, 0, file_.path,
                         "what is left of it would not be read as these records; nothing was written",
                         fmt::format("genreg dump --raw {} shows them", shellWord(file_.path)));
        }
    }

    [[nodiscard]] std::vector<Lost> losses() const {
        std::vector<Lost> all;
        for (const RegistryPart& part : file_.records.parts) {
            if (!part.damage.empty()) {
                all.push_back({part.offset, part.size, part.damage});
            }
        }
        return all;
    }

    void print(const std::vector<Lost>& lost) const {
        Output& output = context_.output;
        std::size_t bytes = 0;
        for (const Lost& each : lost) {
            bytes += each.length;
        }
        const char* const would = context_.options.dryRun ? "would be" : "to be";
        output.line(fmt::format("{}: {} {} kept; {}", printable(file_.path), counted(kept_, "sound record"), would,
                                lost.empty() ? "none is lost"
                                             : fmt::format("{} in {} {} lost", counted(bytes, "byte"),
                                                           counted(lost.size(), "place"), would)));
        for (std::size_t i = 0; i < std::min(lost.size(), MOST_SHOWN); ++i) {
            output.line(fmt::format("  offset {}, {}: {}", lost[i].offset, counted(lost[i].length, "byte"),
                                    printable(lost[i].why)));
        }
        if (lost.size() > MOST_SHOWN) {
            output.line(fmt::format("  ... and {} more; --json tells of each", lost.size() - MOST_SHOWN));
        }
        output.deliver();
    }

    // A checksum does not say which record is wrong, and a fresh one would hide that any is.
    void warnOfValues() const {
        if (!file_.records.headerFits) {
            context_.output.note(
                "unsure", file_.path,
                "the checksum did not fit: a record that is kept may hold a wrong value; compare them with "
                "a saved copy (genreg diff)");
        } else if (file_.records.content == RegistryContent::OTHER) {
            context_.output.note(
                "unsure", file_.path,
                "the records are of a kind not known here: nothing but their lengths tells that they are "
                "sound");
        }
    }

    int repairInPlace() {
        if (!context_.options.yes) {
            confirm(file_.path,
                    fmt::format("replace it by {}, and keep it as it is beside that", counted(kept_, "sound record")));
        }
        warnOfOtherNames(context_, file_.path);
        context_.output.changed = false;
        const Belongings before = belongingsOf(file_.path);
        Replacement replacement(file_.path, "repair it");
        replacement.keepOld();
        replacement.put(rescued_, &file_.bytes);
        context_.output.changed = true;
        announce();
        tellOfLost(context_, file_.path, before);
        if (!context_.output.style.json) {
            context_.output.line(fmt::format("{}: repaired; the damaged file is {}", printable(file_.path),
                                             printable(replacement.keptAs())));
        }
        tell(replacement.keptAs(), true);
        return EXIT_DONE;
    }

    int repairInto() {
        context_.output.changed = false;
        Replacement replacement(into_, "write it");
        // What the damaged file keeps from others is not for them here either.
        replacement.givePermissions(belongingsOf(file_.path).permissions & 0777U);
        replacement.put(rescued_, nullptr);
        context_.output.changed = true;
        if (!context_.output.style.json) {
            context_.output.line(fmt::format("{}: written; {} is as it was", printable(into_), printable(file_.path)));
        }
        tell("", true);
        return EXIT_DONE;
    }

    // The monitor hears of every commit of the global registry.
    void announce() const {
        if (file_.records.content == RegistryContent::GLOBAL && GlobalReg::Notify() != 0) {
            context_.output.note("not-notified", file_.path, "the monitor could not be told of it");
        }
    }

    void tell(const std::string& original, bool changes) const {
        if (!context_.output.style.json) {
            return;
        }
        const auto put = [](Json& object, const char* key, const std::string& path) {
            if (path.empty()) {
                object[key] = nullptr;
            } else {
                putText(object, key, path);
            }
        };
        Json object{{"operation", context_.operation}};
        putText(object, "path", file_.path);
        object["kept"] = file_.records.sound().size();
        object["lost"] = Json::array();
        for (const Lost& lost : losses()) {
            object["lost"].push_back({{"offset", lost.offset}, {"length", lost.length}, {"message", lost.why}});
        }
        put(object, "original", original);
        put(object, "into", changes ? into_ : "");
        object["changed"] = changes;
        object["dryRun"] = context_.options.dryRun;
        context_.output.json(object);
    }

    Context& context_;
    std::string into_;
    CheckedFile file_;
    std::size_t kept_ = 0;
    std::string rescued_;
};

Action declareRepair(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.optionalFile(arguments->file, "the binary registry; the global registry when there is none");
    parser.option("--into", "OTHER", arguments->into, "write the sound records there, and leave FILE alone");
    parser.footer(
        "Keeps every record that is sound, with junk before, between and behind them, and says what is lost. The "
        "damaged\n"
        "file stays beside the new one as FILE.damaged-TIME. Asks at a terminal; elsewhere it takes -y.");
    return [arguments](Context& context) { return Repair(context, *arguments).run(); };
}

}  // namespace

std::span<const Command> repairCommands() {
    static constexpr Command COMMANDS[] = {
        {"repair", "keep the sound records of a damaged binary registry, and the damaged file beside them",
         USES_REGISTRY | USES_DRY_RUN | USES_YES, declareRepair},
    };
    return COMMANDS;
}

}  // namespace tool

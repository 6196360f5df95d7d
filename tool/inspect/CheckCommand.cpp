#include <fmt/core.h>

#include <algorithm>
#include <memory>

#include "base/DiskFiles.h"
#include "base/Progress.h"
#include "inspect/CheckedFile.h"
#include "inspect/ContentCheck.h"
#include "inspect/InspectCommands.h"
#include "inspect/PlaceCheck.h"

namespace tool {
namespace {

struct Arguments {
    std::string file;
    std::string form;
    bool deep = false;
};

std::string soundness(const CheckedFile& file, bool deep) {
    if (deep) {
        return fmt::format("sound: {}; a commit was rehearsed beside it", contentText(file));
    }
    return file.binary ? "sound: " + contentText(file)
                       : fmt::format("sound as far as looked; --deep reads the {}", contentText(file));
}

// How many records or lines are looked at.
std::size_t stepsOf(const CheckedFile& file) {
    return file.binary ? file.records.sound().size()
                       : static_cast<std::size_t>(std::count(file.bytes.begin(), file.bytes.end(), '\n'));
}

int check(Context& context, const Arguments& arguments) {
    CheckedFile file;
    Findings findings;
    {
        const Progress progress("reading the file");
        look(file, context, arguments.file, arguments.form, "check it");
    }
    {
        const Progress progress("checking " + file.path, stepsOf(file));
        checkContent(findings, file, arguments.deep);
    }
    {
        const Progress progress("checking where it lies");
        checkPlace(findings, file, arguments.deep);
    }
    findings.tell(context.output, file.path, soundness(file, arguments.deep));
    return findings.exitStatus();
}

Action declareCheck(Parser& parser) {
    auto arguments = std::make_shared<Arguments>();
    parser.optionalFile(arguments->file, "the registry file; the global registry when there is none");
    parser.flag("--deep", arguments->deep,
                "records and lines against each other, each record packed again, a commit rehearsed beside the file");
    parser.choice("--form", "FORM", fileForms(), arguments->form,
                  "what the file is, where name and contents do not tell: varval, services, inittab or binvar");
    parser.footer(
        "Changes nothing. Exits 7 for damage, 1 for any other error or a warning, 0 when there are at most notes.");
    return [arguments](Context& context) { return check(context, *arguments); };
}

}  // namespace

std::span<const Command> checkCommands() {
    static constexpr Command COMMANDS[] = {
        {"check", "whether a registry is sound, and whether an update will work where it lies", USES_REGISTRY,
         declareCheck},
    };
    return COMMANDS;
}

}  // namespace tool

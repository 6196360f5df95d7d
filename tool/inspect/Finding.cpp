#include "inspect/Finding.h"

#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <string_view>

#include "base/Text.h"

namespace tool {
namespace {

constexpr std::size_t MOST_OF_A_KIND = 20;

const char* word(Severity severity) {
    switch (severity) {
        case Severity::FAULT:
            return "error";
        case Severity::WARNING:
            return "warning";
        default:
            return "note";
    }
}

Json objectOf(const Finding& finding) {
    const auto number = [](const std::optional<std::size_t>& place) { return place ? Json(*place) : Json(nullptr); };
    Json object{{"severity", word(finding.severity)}, {"kind", finding.kind}};
    putText(object, "path", finding.path);
    object["offset"] = number(finding.offset);
    object["length"] = number(finding.length);
    object["line"] = number(finding.line);
    putText(object, "message", finding.message);
    putText(object, "hint", finding.hint);
    return object;
}

std::string placeOf(const Finding& finding) {
    if (finding.line) {
        return fmt::format(", line {}", *finding.line);
    }
    if (!finding.offset) {
        return "";
    }
    return fmt::format(", offset {}{}", *finding.offset,
                       finding.length ? fmt::format(" ({})", counted(*finding.length, "byte")) : "");
}

void print(Output& output, const Finding& finding) {
    output.line(fmt::format("{:<8} {}{}: {}", word(finding.severity), printable(finding.path), placeOf(finding),
                            printable(finding.message)));
    if (!finding.hint.empty()) {
        output.line("  try: " + printable(finding.hint));
    }
}

}  // namespace

std::size_t Findings::count(Severity severity) const {
    return static_cast<std::size_t>(
        std::count_if(all_.begin(), all_.end(), [&](const Finding& finding) { return finding.severity == severity; }));
}

int Findings::exitStatus() const {
    const bool damaged = std::any_of(all_.begin(), all_.end(),
                                     [](const Finding& finding) { return finding.kind == std::string_view(DAMAGE); });
    if (damaged) {
        return EXIT_DAMAGED;
    }
    return count(Severity::NOTE) == all_.size() ? EXIT_DONE : EXIT_NEGATIVE;
}

void Findings::tell(Output& output, const std::string& path, const std::string& soundness) const {
    if (output.style.json) {
        for (const Finding& finding : all_) {
            output.json(objectOf(finding));
        }
        return;
    }
    std::map<std::string_view, std::size_t> seen;
    for (const Finding& finding : all_) {
        if (++seen[finding.kind] <= MOST_OF_A_KIND) {
            print(output, finding);
        }
    }
    for (const auto& [kind, number] : seen) {
        if (number > MOST_OF_A_KIND) {
            output.line(
                fmt::format("... and {} more of the kind \"{}\"; --json tells all", number - MOST_OF_A_KIND, kind));
        }
    }
    std::string sum;
    for (const Severity severity : {Severity::FAULT, Severity::WARNING, Severity::NOTE}) {
        if (const std::size_t number = count(severity); number != 0) {
            sum += (sum.empty() ? "" : ", ") + counted(number, word(severity));
        }
    }
    const bool sound = exitStatus() == EXIT_DONE;
    sum = exitStatus() == EXIT_DAMAGED ? "damaged: " + sum : sum;
    output.line(fmt::format("{}: {}{}", printable(path), sound ? soundness : sum,
                            sound && !sum.empty() ? " (" + sum + ")" : ""));
}

}  // namespace tool

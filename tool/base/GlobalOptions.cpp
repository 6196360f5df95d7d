#include "base/GlobalOptions.h"

#include <fmt/core.h>

#include <cstdlib>

#include "base/Program.h"
#include "base/Text.h"
#include "system/System.h"

namespace tool {
namespace {

constexpr double MOST_SECONDS = 1e6;
constexpr char WAIT_VARIABLE[] = "GENREG_WAIT";

constexpr GlobalOption OPTIONS[] = {
    {"--registry", USES_REGISTRY,
     [](Parser& parser, GivenOptions& given) {
         parser.option("--registry", "PATH", given.options->registry,
                       "the registry to work on, where FILE is not given");
     }},
    {"--default-path", USES_REGISTRY,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("--default-path", given.options->defaultPath, "the global registry in its default place");
     }},
    {"--config", USES_CONFIG,
     [](Parser& parser, GivenOptions& given) {
         parser.option("--config", "FILE", given.options->config, "the settings to go by");
     }},
    {"--json", 0,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("--json", given.style->json, "one JSON object per line, for programs");
     }},
    {"--dry-run", USES_DRY_RUN,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("-n,--dry-run", given.options->dryRun, "change nothing; show what would change");
     }},
    {"--check", USES_DRY_RUN,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("--check", given.options->check, "change nothing; exit 1 where something would change, else 0");
     }},
    {"--diff", USES_DIFF,
     [](Parser& parser, GivenOptions& given) { parser.flag("--diff", given.options->diff, "show what was changed"); }},
    {"--wait", 0,
     [](Parser& parser, GivenOptions& given) {
         parser.option("--wait", "SECONDS", given.wait, std::string(program().waitHelp));
     }},
    {"--if-value", USES_IF_VALUE,
     [](Parser& parser, GivenOptions& given) {
         parser.option("--if-value", "V", given.options->ifValue, "only if this is the value now");
     }},
    {"--all", USES_ALL,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("--all", given.options->all, "every record that matches, not just a single one");
     }},
    {"--yes", USES_YES,
     [](Parser& parser, GivenOptions& given) { parser.flag("-y,--yes", given.options->yes, "do not ask"); }},
    {"--parents", USES_PARENTS,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("--parents", given.options->parents, "make the folder of a file that is new");
     }},
    {"-q", 0,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("-q", given.style->quiet, "no remarks on standard error");
     }},
    {"-v", 0,
     [](Parser& parser, GivenOptions& given) {
         parser.flag("-v", given.style->verbose, "say more on standard error");
     }},
    {"--color", 0,
     [](Parser& parser, GivenOptions& given) {
         parser.choice("--color", "WHEN", {"auto", "always", "never"}, given.color,
                       "auto, always or never (auto heeds NO_COLOR and TERM=dumb)");
     }},
};

// NaN, which compares with nothing, is out of the range as well.
std::optional<double> secondsOf(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const bool whole = !text.empty() && end == text.c_str() + text.size();
    return whole && seconds >= 0 && seconds <= MOST_SECONDS ? std::optional(seconds) : std::nullopt;
}

}  // namespace

std::span<const GlobalOption> globalOptions() {
    return OPTIONS;
}

double secondsToWait(const std::optional<std::string>& given, const std::string& operation) {
    const char* const variable = std::getenv(WAIT_VARIABLE);
    const std::string standing = variable != nullptr ? variable : "";
    const bool fromVariable = !given && !standing.empty();
    if (!given && !fromVariable) {
        return Options().waitSeconds;
    }
    const std::string text = given.value_or(standing);
    const auto seconds = secondsOf(text);
    if (!seconds) {
        throw usageFailure(
            fmt::format("{}: {} is no number of seconds from 0 to {}", fromVariable ? WAIT_VARIABLE : "--wait",
                        cell(text), MOST_SECONDS),
            fromVariable ? "set it to a number, or unset it" : fmt::format("{} {} --help", program().name, operation));
    }
    return *seconds;
}

void chooseColor(const std::string& when, Output& output) {
    const char* noColor = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool wanted =
        (noColor == nullptr || *noColor == '\0') && (terminal == nullptr || std::string_view(terminal) != "dumb");
    output.style.color = when == "always" || (when == "auto" && wanted && output.isTerminal());
    output.style.errorColor = when == "always" || (when == "auto" && wanted && isTerminal(stderr));
}

}  // namespace tool

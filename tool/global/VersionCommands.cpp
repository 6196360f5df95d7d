#include <fmt/core.h>
#include <genreg/VersionCodes.h>

#include <charconv>
#include <memory>
#include <optional>

#include "base/Text.h"
#include "global/GlobalCommands.h"
#include "records/RecordFields.h"

namespace tool {
namespace {

constexpr unsigned int PARTS = 4;
constexpr unsigned int PART_BITS = 16;
constexpr unsigned long MOST_IN_PART = 0xffff;
constexpr unsigned long MOST_IN_LEVEL_PART = 99;
constexpr unsigned long MOST_LEVEL = 99999999;

Failure invalid(const std::string& text, const std::string& why, const std::string& hint) {
    Failure failure;
    failure.kind = "invalid";
    failure.exitStatus = EXIT_INVALID;
    failure.code = REG_VERSION_INVALID;
    failure.message = fmt::format("\"{}\" {}", printable(text), why);
    failure.hint = hint;
    return failure;
}

// All of the text, or nothing.
std::optional<unsigned long> number(std::string_view text, int base) {
    unsigned long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// The library takes an empty part for 0 and cuts one that is too large; here both are refused.
unsigned long codeOfVersion(const std::string& text) {
    std::string_view rest = text;
    unsigned int parts = 0;
    while (true) {
        const std::size_t dot = rest.find('.');
        const auto part = number(rest.substr(0, dot), 10);
        if (!part || *part > MOST_IN_PART || ++parts > PARTS) {
            throw invalid(text, "is no version", "one to four numbers of 0 to 65535 with dots between, as in 9.7.0.2");
        }
        if (dot == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(dot + 1);
    }
    unsigned long code = 0;
    if (const unsigned int result = ossVersionStringToCode(text.c_str(), &code); result != 0) {
        throw libraryFailure(result, text, "encode the version");
    }
    return code;
}

unsigned long codeOf(const std::string& text) {
    const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
    const auto code = prefixed ? number(std::string_view(text).substr(2), 16) : number(text, 10);
    if (!code) {
        throw invalid(text, "is no version code", "0x and up to 16 hexadecimal digits, or a decimal number");
    }
    return *code;
}

bool hasLevel(unsigned long code) {
    for (unsigned int part = 0; part < PARTS; ++part) {
        if (((code >> (PART_BITS * part)) & MOST_IN_PART) > MOST_IN_LEVEL_PART) {
            return false;
        }
    }
    return true;
}

std::string hexVersion(unsigned long code) {
    return fmt::format("{:#018x}", code);
}

int answer(Context& context, unsigned long code, const std::string& text) {
    if (context.output.style.json) {
        Json object{{"version", versionText(code)}, {"code", hexVersion(code)}, {"level", nullptr}};
        if (hasLevel(code)) {
            object["level"] = ossVersionCodeServiceToRVN(code);
        }
        context.output.json(object);
    } else {
        context.output.line(text);
    }
    return EXIT_DONE;
}

int encode(Context& context, const std::string& text) {
    const unsigned long code = codeOfVersion(text);
    return answer(context, code, hexVersion(code));
}

int decode(Context& context, const std::string& text) {
    const unsigned long code = codeOf(text);
    return answer(context, code, versionText(code));
}

int toLevel(Context& context, const std::string& text) {
    const bool coded = text.starts_with("0x") || text.starts_with("0X");
    const unsigned long code = coded ? codeOf(text) : codeOfVersion(text);
    if (!hasLevel(code)) {
        throw invalid(text, "has no level number", "each part of a level number has two digits: 99 at most");
    }
    return answer(context, code, std::to_string(ossVersionCodeServiceToRVN(code)));
}

int fromLevel(Context& context, const std::string& text) {
    const auto level = number(text, 10);
    if (!level || *level > MOST_LEVEL) {
        throw invalid(text, "is no level number", "up to eight digits, as in 9070002");
    }
    const unsigned long code = ossVersionCodeRVNToService(static_cast<unsigned int>(*level));
    return answer(context, code, versionText(code));
}

template <int (*Run)(Context&, const std::string&)>
Action declare(Parser& parser, const char* name, const char* help) {
    auto text = std::make_shared<std::string>();
    parser.required(name, *text, help);
    return [text](Context& context) { return Run(context, *text); };
}

}  // namespace

std::span<const Command> versionCommands() {
    static constexpr Command COMMANDS[] = {
        {"version encode", "the code of a dotted version", 0,
         [](Parser& parser) { return declare<encode>(parser, "VERSION", "as in 9.7.0.2; missing parts are 0"); }},
        {"version decode", "the dotted version of a code", 0,
         [](Parser& parser) { return declare<decode>(parser, "CODE", "as in 0x0009000700000002, or decimal"); }},
        {"version to-level", "the level number of a version", 0,
         [](Parser& parser) { return declare<toLevel>(parser, "VERSION", "as in 9.7.0.2, or its code"); }},
        {"version from-level", "the dotted version of a level number", 0,
         [](Parser& parser) { return declare<fromLevel>(parser, "LEVEL", "as in 9070002"); }},
    };
    return COMMANDS;
}

}  // namespace tool

#include "entries/Remarks.h"

#include <fmt/core.h>
#include <genreg/GenRegText.h>

#include <algorithm>
#include <vector>

#include "base/DiskFiles.h"
#include "base/Progress.h"
#include "base/Text.h"
#include "records/Salvage.h"

namespace tool {
namespace {

constexpr std::string_view BLANKS = " \t\r";
constexpr std::size_t MOST_NUMBERS = 5;

using Kind = JudgedLine::Kind;

// A line of the file with what is odd about it.
struct Seen {
    std::size_t number = 0;
    std::string text;
    JudgedLine judged;
    bool cut = false;        // "#" stands right behind the value
    bool backslash = false;  // the value ends in one
    bool hidden = false;     // a NUL byte hides the rest
};

Seen lookAt(const EntrySchema& schema, const FileLine& line) {
    Seen seen{line.number, lineText(line, schema.continued), {}};
    seen.hidden = line.bytes.find('\0') != std::string_view::npos;
    if (line.bytes.size() >= REG_LINE_SIZE) {
        seen.judged = {Kind::REFUSED, "", fmt::format("it is longer than {} bytes", REG_LINE_SIZE - 2)};
        return seen;
    }
    seen.judged = schema.judge(seen.text);
    if (seen.judged.kind != Kind::ENTRY) {
        return seen;
    }
    const std::size_t sign = seen.text.find('#');
    const std::string_view body = std::string_view(seen.text).substr(0, sign);
    seen.cut = sign != std::string::npos && !body.empty() && BLANKS.find(body.back()) == std::string_view::npos &&
               body.back() != '=' && body.back() != ':';
    const std::size_t last = body.find_last_not_of(BLANKS);
    seen.backslash = !schema.continued && last != std::string_view::npos && body[last] == '\\';
    return seen;
}

std::vector<Seen> lookAtAll(const EntrySchema& schema, const std::string& bytes) {
    std::vector<Seen> all;
    for (const FileLine& line : fileLines(bytes, schema.continued)) {
        all.push_back(lookAt(schema, line));
        Progress::step();
    }
    return all;
}

// The bytes of the file; none where the command itself will say why not.
std::string bytesOf(const std::string& path) {
    try {
        return judgeFile(path, "read", false) ? readFile(path, "read") : std::string();
    } catch (const Failure&) {
        return {};
    }
}

// "http/tcp" is http in the line.
std::string_view nameIn(const EntrySchema& schema, std::string_view name) {
    return schema.nameEnd == 0 ? name : name.substr(0, name.find(schema.nameEnd));
}

bool beginsWith(const Seen& line, std::string_view name) {
    std::string_view text = line.text;
    text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
    return !name.empty() && line.judged.kind == Kind::REFUSED && text.starts_with(name) &&
           (text.size() == name.size() ||
            std::string_view(" \t\r=:#\"").find(text[name.size()]) != std::string_view::npos);
}

// "3 lines: 4, 7, 9", and "..." where there are too many to name.
template <typename Take>
std::string places(const std::vector<Seen>& lines, const Take& take) {
    std::string numbers;
    std::size_t count = 0;
    for (const Seen& line : lines) {
        if (take(line) && ++count <= MOST_NUMBERS) {
            numbers += fmt::format("{}{}", numbers.empty() ? "" : ", ", line.number);
        }
    }
    return count == 0 ? ""
                      : fmt::format("{}: {}{}", counted(count, "line"), numbers, count > MOST_NUMBERS ? ", ..." : "");
}

std::size_t entriesIn(const EntrySchema& schema, const std::string& bytes) {
    return countLines(schema, bytes)[Kind::ENTRY];
}

// Null where no line is of any but the one left out.
const EntrySchema* mostLinesAreOf(const std::string& bytes, const EntrySchema* leftOut) {
    const EntrySchema* best = nullptr;
    std::size_t most = 0;
    for (const EntrySchema* schema : {&servicesSchema(), &initTabSchema(), &varValSchema()}) {
        const std::size_t found = schema != leftOut ? entriesIn(*schema, bytes) : 0;
        if (found > most) {
            best = schema;
            most = found;
        }
    }
    return best;
}

// Why a file without an entry of the schema has none; empty when it just has none.
std::string otherKind(const EntrySchema& schema, const std::string& path, const std::string& bytes) {
    if (isBinary(bytes)) {
        const bool global = takeApart(bytes, false).content == RegistryContent::GLOBAL;
        return fmt::format("it is no file of lines but a binary one; try genreg {} {}",
                           global ? "status" : "binvar list", shellWord(path));
    }
    const EntrySchema* const best = mostLinesAreOf(bytes, &schema);
    return best == nullptr
               ? ""
               : fmt::format("its lines are of another form; try genreg {} list {}", best->group, shellWord(path));
}

}  // namespace

std::string lineText(const FileLine& line, bool continued) {
    std::string text(line.bytes.substr(0, std::min(line.bytes.find('\0'), std::size_t{REG_LINE_SIZE})));
    for (std::size_t at = 0; continued && (at = text.find("\\\n", at)) != std::string::npos;) {
        text.erase(at, 2);
    }
    return text.substr(0, text.find('\n'));
}

void remarkOnFile(Context& context, const EntrySchema& schema, const std::string& path) {
    const std::string bytes = bytesOf(path);
    const std::vector<Seen> lines = lookAtAll(schema, bytes);
    if (entriesIn(schema, bytes) == 0) {
        const std::string why = otherKind(schema, path, bytes);
        if (!why.empty()) {
            context.output.note("other-kind", path, fmt::format("there is no {} in it: {}", schema.lineNoun(), why));
            return;
        }
    }
    const auto tell = [&](const char* kind, const std::string& where, const std::string& what) {
        if (!where.empty()) {
            context.output.note(kind, path, what + where);
        }
    };
    tell("other-form", places(lines, [](const Seen& line) { return line.judged.kind == Kind::REFUSED; }),
         "of another form, and not shown, ");
    tell("cut", places(lines, [](const Seen& line) { return line.cut; }),
         "\"#\" without a blank before it ends the value on ");
    tell("backslash", places(lines, [](const Seen& line) { return line.backslash; }),
         "a backslash, which continues no line, ends the value on ");
}

void remarkOnName(Context& context, const EntrySchema& schema, const std::string& path, std::string_view wanted) {
    const std::string_view name = nameIn(schema, wanted);
    for (const Seen& line : lookAtAll(schema, bytesOf(path))) {
        if (beginsWith(line, name)) {
            context.output.note("refused-line", path,
                                fmt::format("line {} begins with {}, but is no {}: {}", line.number, printable(name),
                                            schema.lineNoun(), line.judged.why));
        }
        if (line.judged.kind != Kind::ENTRY || line.judged.name != name) {
            continue;
        }
        if (line.cut) {
            context.output.note("cut", path,
                                fmt::format("line {}: \"#\" without a blank before it ends the value", line.number));
        }
        if (line.backslash) {
            context.output.note(
                "backslash", path,
                fmt::format("line {}: the value ends in a backslash, which continues no line", line.number));
        }
    }
}

std::size_t refusedLine(const EntrySchema& schema, const std::string& path, std::string_view name) {
    for (const Seen& line : lookAtAll(schema, bytesOf(path))) {
        if (beginsWith(line, nameIn(schema, name))) {
            return line.number;
        }
    }
    return 0;
}

const EntrySchema* formOf(const std::string& path, const std::string& bytes) {
    const std::string_view name = std::string_view(path).substr(path.rfind('/') + 1);
    for (const EntrySchema* schema : {&servicesSchema(), &initTabSchema()}) {
        if (name == schema->group && entriesIn(*schema, bytes) != 0) {
            return schema;
        }
    }
    return mostLinesAreOf(bytes, nullptr);
}

std::vector<OddLine> oddLines(const EntrySchema& schema, const std::string& bytes) {
    std::vector<OddLine> odd;
    for (const Seen& line : lookAtAll(schema, bytes)) {
        if (line.hidden) {
            odd.push_back({line.number, "hidden", "a NUL byte ends it for every reader, and hides what follows"});
        }
        if (line.judged.kind == Kind::REFUSED) {
            odd.push_back({line.number, "other-form",
                           fmt::format("no {}, and skipped by readers: {}", schema.lineNoun(), line.judged.why)});
        }
        if (line.cut) {
            odd.push_back({line.number, "cut", "\"#\" without a blank before it ends the value"});
        }
        if (line.backslash) {
            odd.push_back({line.number, "backslash", "the value ends in a backslash, which continues no line"});
        }
    }
    return odd;
}

std::map<JudgedLine::Kind, std::size_t> countLines(const EntrySchema& schema, const std::string& bytes) {
    std::map<JudgedLine::Kind, std::size_t> counts;
    for (const Seen& line : lookAtAll(schema, bytes)) {
        ++counts[line.judged.kind];
    }
    return counts;
}

}  // namespace tool

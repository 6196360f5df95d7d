#include "global/ChangeLogLine.h"

#include <charconv>

namespace tool {
namespace {

// Takes what stands in front of the text off the rest, and the text with it.
std::optional<std::string> upTo(std::string_view& rest, std::string_view text) {
    const std::size_t at = rest.find(text);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    std::string taken(rest.substr(0, at));
    rest.remove_prefix(at + text.size());
    return taken;
}

bool skip(std::string_view& rest, std::string_view text) {
    if (!rest.starts_with(text)) {
        return false;
    }
    rest.remove_prefix(text.size());
    return true;
}

std::optional<long> number(const std::optional<std::string>& text) {
    long value = 0;
    if (!text || text->empty()) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    return error == std::errc() && end == text->data() + text->size() ? std::optional(value) : std::nullopt;
}

unsigned int typeOfLetter(char letter) {
    return letter == 'I'   ? GLOBALREG_INSTANCE
           : letter == 'S' ? GLOBALREG_SERVICE
           : letter == 'V' ? GLOBALREG_VARIABLE
                           : 0;
}

std::optional<LoggedRecord> parseRecord(std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    LoggedRecord record;
    record.type = typeOfLetter(text[0]);
    text.remove_prefix(1);
    unsigned long count = 0;
    const GlobalRegField* fields = globalRegFields(record.type, &count);
    for (unsigned long i = 0; i < count; ++i) {
        if (!fields[i].logged) {
            continue;
        }
        if (!skip(text, ",")) {
            return std::nullopt;
        }
        const std::string_view value = text.substr(0, text.find(','));
        record.fields.emplace_back(&fields[i], value.empty() ? std::nullopt : std::optional<std::string>(value));
        text.remove_prefix(value.size());
    }
    return text.empty() && !record.fields.empty() ? std::optional(std::move(record)) : std::nullopt;
}

// Both records of a change, if there is just one way to part them.
void parseChange(ChangeLogLine& line) {
    const std::string_view text = line.recordText;
    int ways = 0;
    for (std::size_t at = text.find('!'); at != std::string_view::npos; at = text.find('!', at + 1)) {
        auto key = parseRecord(text.substr(0, at));
        auto next = parseRecord(text.substr(at + 1));
        if (key && next) {
            ++ways;
            line.record = std::move(key);
            line.newRecord = std::move(next);
        }
    }
    if (ways != 1) {
        line.record.reset();
        line.newRecord.reset();
    }
}

// The command line ends where the record begins; quotes stand around it unless there is none.
bool parseCommandLine(std::string_view& rest, ChangeLogLine& line) {
    if (skip(rest, "N/A;REC=")) {
        return true;
    }
    if (!skip(rest, "\"")) {
        return false;
    }
    line.commandLine = upTo(rest, "\";REC=");
    return line.commandLine.has_value();
}

}  // namespace

std::optional<ChangeLogLine> parseChangeLogLine(std::string_view rest) {
    if (!skip(rest, "TS=\"")) {
        return std::nullopt;
    }
    const auto time = upTo(rest, "\";CALLER=");
    const auto caller = upTo(rest, ";PID=");
    const auto pid = number(upTo(rest, ";U="));
    const auto user = number(upTo(rest, ";BL="));
    const auto level = upTo(rest, ";FP=");
    const auto fixpack = upTo(rest, ";PATH=");
    const auto path = upTo(rest, ";ACT=");
    const auto action = upTo(rest, ";CL=");
    if (!time || !caller || !pid || !user || !level || !fixpack || !path || !action) {
        return std::nullopt;
    }
    ChangeLogLine line{*time, *caller, *pid, *user, *level, *fixpack, *path, *action, {}, {}, {}, {}};
    if (!parseCommandLine(rest, line)) {
        return std::nullopt;
    }
    line.recordText = rest;
    if (line.action == "Change") {
        parseChange(line);
    } else {
        line.record = parseRecord(rest);
    }
    return line;
}

}  // namespace tool

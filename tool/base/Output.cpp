#include "base/Output.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <utility>

#include "base/Program.h"
#include "base/Text.h"
#include "system/System.h"

namespace tool {
namespace {

constexpr int SCHEMA = 1;
constexpr std::size_t GAP = 2;  // between columns

// Takes from the widest columns what they have too much together.
void narrow(std::vector<std::size_t>& widths, std::size_t columns) {
    constexpr std::size_t NARROWEST = 8;
    std::size_t total = GAP * (widths.size() - 1);
    for (const std::size_t width : widths) {
        total += width;
    }
    for (; total > columns; --total) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest <= NARROWEST) {
            return;
        }
        --*widest;
    }
}

// How many bytes of the text fit into a line, with the blank that ends it where there is one.
std::size_t fitting(std::string_view text, std::size_t columns) {
    std::size_t taken = 0;
    std::size_t blank = 0;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t next = at + 1;
        while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xc0U) == 0x80U) {
            ++next;
        }
        taken += width(text.substr(at, next - at));
        if (taken > columns && at > 0) {
            return blank > 0 ? blank : at;
        }
        blank = text[at] == ' ' ? next : blank;
        at = next;
    }
    return text.size();
}

// A row, on as many lines as its longest cell needs. The last column ends a line without blanks behind it.
void printRow(Output& output, const std::vector<std::string>& row, const std::vector<std::size_t>& widths) {
    std::vector<std::string_view> rest(row.begin(), row.end());
    bool more = true;
    while (more) {
        std::string text;
        std::size_t filled = 0;
        more = false;
        for (std::size_t i = 0; i < rest.size(); ++i) {
            const bool fits = width(rest[i]) <= widths[i];
            const std::string_view part = rest[i].substr(0, fits ? rest[i].size() : fitting(rest[i], widths[i]));
            text += part.empty() ? "" : std::string(filled, ' ') + std::string(part);
            filled = (part.empty() ? filled : 0) + widths[i] + GAP - std::min(width(part), widths[i]);
            rest[i].remove_prefix(part.size());
            more = more || !rest[i].empty();
        }
        output.line(text);
    }
}

std::mutex statusMutex;
bool statusShown = false;

void say(std::string_view text, bool isStatus) noexcept {
    const std::lock_guard lock(statusMutex);
    if (std::exchange(statusShown, isStatus)) {
        (void)std::fwrite(STATUS_ERASER.data(), 1, STATUS_ERASER.size(), stderr);
    }
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

void toStandardError(std::string_view text) noexcept {
    say(text, false);
}

void showStatus(std::string_view text) noexcept {
    say(text, true);
}

void eraseStatus() noexcept {
    say("", false);
}

Output::Output() noexcept : stream_(takeStandardOutput()) {}

Output::~Output() noexcept {
    if (stream_ != nullptr) {
        (void)std::fclose(stream_);
    }
}

int Output::descriptor() const noexcept {
    return stream_ == nullptr ? -1 : fileno(stream_);
}

bool Output::isTerminal() const noexcept {
    return stream_ != nullptr && tool::isTerminal(stream_);
}

std::size_t Output::columns() const noexcept {
    return stream_ == nullptr ? 0 : terminalColumns(stream_);
}

void Output::line(std::string_view text) {
    if (error_ != 0) {
        return;
    }
    if (stream_ == nullptr) {
        error_ = EBADF;
    } else if (std::fwrite(text.data(), 1, text.size(), stream_) != text.size() || std::fputc('\n', stream_) == EOF) {
        error_ = errno;
    }
}

void Output::json(const Json& members) {
    Json object{{"schema", SCHEMA}};
    object.update(members);
    line(jsonText(object));
}

void Output::flush() {
    if (error_ == 0 && stream_ != nullptr && std::fflush(stream_) != 0) {
        error_ = errno;
    }
}

void Output::finish() {
    flush();
    // Some file systems tell of a full disk no earlier than here.
    if (error_ == 0 && stream_ != nullptr && std::fclose(std::exchange(stream_, nullptr)) != 0) {
        error_ = errno;
    }
    refuseFailure();
}

void Output::deliver() {
    flush();
    refuseFailure();
}

void Output::refuseFailure() {
    if (error_ == 0) {
        return;
    }
    const int failed = std::exchange(error_, 0);
    if (failed == EPIPE) {
        (void)std::signal(SIGPIPE, SIG_DFL);
        (void)std::raise(SIGPIPE);
    }
    Failure failure = systemFailure(failed, "standard output", "write the result");
    failure.kind = "output";
    failure.exitStatus = EXIT_WRITE_FAILED;
    if (changed) {
        failure.message += *changed ? "; the change itself stands" : "; nothing was changed";
    }
    if (changed.value_or(false)) {
        failure.hint = "do not repeat the change";
    }
    throw failure;
}

std::string Output::noteText(std::string_view kind, const std::string& path, const std::string& message) const {
    if (!style.json) {
        return fmt::format("{}: {}: {}\n", program().name, printable(path), message);
    }
    Json object{{"schema", SCHEMA}, {"kind", kind}};
    putText(object, "path", path);
    object["message"] = message;
    return jsonText(object) + "\n";
}

void Output::note(std::string_view kind, const std::string& path, const std::string& message) {
    if (!style.quiet) {
        toStandardError(noteText(kind, path, message));
    }
}

void Output::detail(const std::string& message) {
    if (style.verbose && !style.json) {
        toStandardError(fmt::format("{}: {}\n", program().name, message));
    }
}

void Output::report(const Failure& failure) {
    if (style.json) {
        Json object{{"schema", SCHEMA}, {"kind", failure.kind}, {"exit", failure.exitStatus}};
        object["code"] = failure.code == 0 ? Json(nullptr) : Json(hexCode(failure.code));
        object["operation"] = failure.operation;
        putText(object, "path", failure.path);
        object["message"] = failure.message;
        object["hint"] = failure.hint;
        toStandardError(jsonText(object) + "\n");
        return;
    }
    const std::string_view red = style.errorColor ? "\x1b[31m" : "";
    const std::string_view plain = style.errorColor ? "\x1b[0m" : "";
    const std::string code = failure.code == 0 ? "" : fmt::format("   [{}]", hexCode(failure.code));
    std::string text = fmt::format("{}{}:{} {}", red, program().name, plain, failure.message);
    text += failure.hint.empty() ? code + "\n" : fmt::format("\n  try: {}{}\n", failure.hint, code);
    toStandardError(text);
    if (style.verbose && !failure.detail.empty()) {
        toStandardError(fmt::format("  {}\n", failure.detail));
    }
}

std::string jsonText(const Json& object) {
    return printableJson(object.dump());
}

void putText(Json& members, const std::string& key, std::string_view bytes) {
    if (isUtf8(bytes)) {
        members[key] = bytes;
    } else {
        members[key + "Base64"] = base64(bytes);
    }
}

std::string hexCode(unsigned int code) {
    return fmt::format("{:#010x}", code);
}

std::string cell(std::string_view text) {
    if (text.empty()) {
        return "\"\"";
    }
    return text == ABSENT ? "\"-\"" : printable(text);
}

Table::Table(std::vector<std::string> heading) : rows_{std::move(heading)} {}

void Table::row(std::vector<std::string> cells) {
    rows_.push_back(std::move(cells));
}

void Table::print(Output& output) const {
    std::vector<std::size_t> widths(rows_.front().size());
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], width(row[i]));
        }
    }
    if (const std::size_t columns = output.columns(); columns != 0) {
        narrow(widths, columns);
    }
    for (const auto& row : rows_) {
        printRow(output, row, widths);
    }
}

}  // namespace tool

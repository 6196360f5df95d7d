// Standard output and standard error of the tool.
//
// The library may print diagnostics on descriptor 1. The tool therefore moves its own output to a descriptor of its own
// before anything else happens, and leaves the null device in place of the old one. What cannot be written is a
// failure: finish() must be called last and throws. What cannot be said on standard error is lost, and that is all.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "base/Json.h"

namespace tool {

struct OutputStyle {
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool color = false;       // on standard output
    bool errorColor = false;  // on standard error
};

// Never fails: it runs inside the library's callbacks, and where a failure is being reported. A status goes first.
void toStandardError(std::string_view text) noexcept;

// What stands at the bottom of the terminal that standard error is, until something else is said: in the place of the
// one before. Any thread may say it.
void showStatus(std::string_view text) noexcept;
void eraseStatus() noexcept;
inline constexpr std::string_view STATUS_ERASER = "\r\x1b[K";

class Output {
public:
    Output() noexcept;
    ~Output() noexcept;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    OutputStyle style;
    // Whether an update changed its file, once that is known: a result that cannot be written must not hide it.
    std::optional<bool> changed;

    // The descriptor that standard output was; -1 when there is none.
    [[nodiscard]] int descriptor() const noexcept;
    [[nodiscard]] bool isTerminal() const noexcept;
    // Of the terminal; 0 where there is none, or it does not tell.
    [[nodiscard]] std::size_t columns() const noexcept;

    // A line of the result. A newline is added.
    void line(std::string_view text);
    // One object on one line, "schema" first.
    void json(const Json& members);
    void flush();
    // Writes out what there is, and throws as finish() does; more may follow.
    void deliver();
    // Writes out what is left. Throws a Failure when standard output did not take everything; a reader that went away
    // ends the process like any other program of a pipeline.
    void finish();

    // A remark as it is said, with its line break.
    [[nodiscard]] std::string noteText(std::string_view kind, const std::string& path,
                                       const std::string& message) const;
    // A remark on standard error, unless -q.
    void note(std::string_view kind, const std::string& path, const std::string& message);
    // With -v only.
    void detail(const std::string& message);
    void report(const Failure& failure);

private:
    void refuseFailure();

    std::FILE* stream_ = nullptr;
    int error_ = 0;
};

// On one line, safe on any terminal.
[[nodiscard]] std::string jsonText(const Json& object);

// Sets members[key] to the text, or members[keyBase64] when its bytes are no UTF-8.
void putText(Json& members, const std::string& key, std::string_view bytes);

// A code or mask as programs read it: "0x900001f6".
[[nodiscard]] std::string hexCode(unsigned int code);

// Rows of cells under a heading, aligned. An empty optional is shown as "-", an empty text as "". On a terminal that is
// narrower than they are, the longest cells go on below.
class Table {
public:
    explicit Table(std::vector<std::string> heading);
    void row(std::vector<std::string> cells);
    void print(Output& output) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

// A cell: printable, and told apart from an absent one ("-").
[[nodiscard]] std::string cell(std::string_view text);
inline constexpr std::string_view ABSENT = "-";

}  // namespace tool

#include "base/Diff.h"

#include <fmt/core.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "base/Text.h"

namespace tool {
namespace {

using Lines = std::vector<std::string_view>;

struct Span {
    std::size_t oldBegin, oldEnd, newBegin, newEnd;
};

using Pair = std::pair<std::size_t, std::size_t>;

// Compares two sequences by their longest common subsequence; where that would take too much memory, by the lines that
// occur once on each side.
class Comparison {
public:
    Comparison(const Lines& before, const Lines& after) : before_(before), after_(after) {}

    std::vector<Pair> common() {
        compare({0, before_.size(), 0, after_.size()});
        return std::move(pairs_);
    }

private:
    static constexpr std::size_t TABLE_LIMIT = 4'000'000;

    void compare(Span s) {
        while (s.oldBegin < s.oldEnd && s.newBegin < s.newEnd && before_[s.oldBegin] == after_[s.newBegin]) {
            pairs_.emplace_back(s.oldBegin++, s.newBegin++);
        }
        std::size_t tail = 0;
        while (s.oldBegin < s.oldEnd && s.newBegin < s.newEnd && before_[s.oldEnd - 1] == after_[s.newEnd - 1]) {
            --s.oldEnd;
            --s.newEnd;
            ++tail;
        }
        const std::size_t rows = s.oldEnd - s.oldBegin;
        const std::size_t columns = s.newEnd - s.newBegin;
        if (rows != 0 && columns != 0) {
            (rows + 1) * (columns + 1) <= TABLE_LIMIT ? byTable(s) : byUniqueLines(s);
        }
        for (std::size_t i = 0; i < tail; ++i) {
            pairs_.emplace_back(s.oldEnd + i, s.newEnd + i);
        }
    }

    void byTable(const Span& s) {
        const std::size_t rows = s.oldEnd - s.oldBegin;
        const std::size_t columns = s.newEnd - s.newBegin;
        std::vector<std::uint32_t> longest((rows + 1) * (columns + 1));
        const auto at = [&](std::size_t i, std::size_t j) -> std::uint32_t& { return longest[i * (columns + 1) + j]; };
        for (std::size_t i = rows; i-- > 0;) {
            for (std::size_t j = columns; j-- > 0;) {
                at(i, j) = before_[s.oldBegin + i] == after_[s.newBegin + j] ? at(i + 1, j + 1) + 1
                                                                             : std::max(at(i + 1, j), at(i, j + 1));
            }
        }
        for (std::size_t i = 0, j = 0; i < rows && j < columns;) {
            if (before_[s.oldBegin + i] == after_[s.newBegin + j]) {
                pairs_.emplace_back(s.oldBegin + i++, s.newBegin + j++);
            } else {
                at(i + 1, j) >= at(i, j + 1) ? ++i : ++j;
            }
        }
    }

    void byUniqueLines(const Span& s) {
        Span rest = s;
        for (const auto& [oldLine, newLine] : increasing(uniquePairs(s))) {
            if (oldLine < rest.oldBegin || newLine < rest.newBegin) {
                continue;
            }
            compare({rest.oldBegin, oldLine, rest.newBegin, newLine});
            pairs_.emplace_back(oldLine, newLine);
            rest.oldBegin = oldLine + 1;
            rest.newBegin = newLine + 1;
        }
        // Without any such line the span counts as replaced.
        if (rest.oldBegin != s.oldBegin) {
            compare(rest);
        }
    }

    // Lines that occur once on either side, in the order of the old side.
    std::vector<Pair> uniquePairs(const Span& s) const {
        struct Count {
            std::size_t old = 0, now = 0, place = 0;
        };
        std::unordered_map<std::string_view, Count> counts;
        for (std::size_t i = s.oldBegin; i < s.oldEnd; ++i) {
            ++counts[before_[i]].old;
        }
        for (std::size_t j = s.newBegin; j < s.newEnd; ++j) {
            Count& count = counts[after_[j]];
            ++count.now;
            count.place = j;
        }
        std::vector<Pair> result;
        for (std::size_t i = s.oldBegin; i < s.oldEnd; ++i) {
            const Count& count = counts[before_[i]];
            if (count.old == 1 && count.now == 1) {
                result.emplace_back(i, count.place);
            }
        }
        return result;
    }

    // The longest run of pairs that ascends on the new side too.
    static std::vector<Pair> increasing(const std::vector<Pair>& pairs) {
        std::vector<std::size_t> ends;
        std::vector<std::size_t> previous(pairs.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            const auto place = std::lower_bound(ends.begin(), ends.end(), pairs[i].second,
                                                [&](std::size_t e, std::size_t v) { return pairs[e].second < v; });
            previous[i] = place == ends.begin() ? pairs.size() : *(place - 1);
            if (place == ends.end()) {
                ends.push_back(i);
            } else {
                *place = i;
            }
        }
        std::vector<Pair> result;
        for (std::size_t i = ends.empty() ? pairs.size() : ends.back(); i < pairs.size(); i = previous[i]) {
            result.push_back(pairs[i]);
        }
        std::reverse(result.begin(), result.end());
        return result;
    }

    const Lines& before_;
    const Lines& after_;
    std::vector<Pair> pairs_;
};

std::string_view withoutNewline(std::string_view line) {
    return !line.empty() && line.back() == '\n' ? line.substr(0, line.size() - 1) : line;
}

void printEdit(Output& output, const Edit& edit, std::string_view line) {
    static constexpr char SIGNS[] = {' ', '-', '+'};
    static constexpr std::string_view COLORS[] = {"", "\x1b[31m", "\x1b[32m"};
    const auto kind = static_cast<std::size_t>(edit.kind);
    const std::string_view text = withoutNewline(line);
    // A program gets the bytes; a terminal must not be steered by them.
    const std::string shown = output.isTerminal() ? printable(text) : std::string(text);
    const bool colored = output.style.color && edit.kind != Edit::Kind::KEEP;
    output.line(fmt::format("{}{}{}{}", colored ? COLORS[kind] : "", SIGNS[kind], shown, colored ? "\x1b[0m" : ""));
    if (text.size() == line.size()) {
        output.line("\\ No newline at end of file");
    }
}

// A side of a hunk's heading: the first line, counted from 1, and how many.
std::string rangeText(std::size_t begin, std::size_t length) {
    const std::size_t first = length == 0 ? begin : begin + 1;
    return length == 1 ? fmt::format("{}", first) : fmt::format("{},{}", first, length);
}

void printHunk(Output& output, const std::vector<Edit>& edits, std::size_t begin, std::size_t end, const Lines& before,
               const Lines& after) {
    std::size_t oldLines = 0;
    std::size_t newLines = 0;
    for (std::size_t i = begin; i < end; ++i) {
        oldLines += edits[i].kind != Edit::Kind::INSERT ? 1 : 0;
        newLines += edits[i].kind != Edit::Kind::REMOVE ? 1 : 0;
    }
    const std::string heading = fmt::format("@@ -{} +{} @@", rangeText(edits[begin].oldLine, oldLines),
                                            rangeText(edits[begin].newLine, newLines));
    output.line(output.style.color ? "\x1b[36m" + heading + "\x1b[0m" : heading);
    for (std::size_t i = begin; i < end; ++i) {
        const Edit& edit = edits[i];
        printEdit(output, edit, edit.kind == Edit::Kind::INSERT ? after[edit.newLine] : before[edit.oldLine]);
    }
}

}  // namespace

std::vector<std::string_view> splitLines(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return lines;
}

std::vector<Edit> compareLines(const Lines& before, const Lines& after) {
    std::vector<Pair> pairs = Comparison(before, after).common();
    pairs.emplace_back(before.size(), after.size());
    std::vector<Edit> edits;
    std::size_t oldLine = 0;
    std::size_t newLine = 0;
    for (const auto& [oldNext, newNext] : pairs) {
        for (; oldLine < oldNext; ++oldLine) {
            edits.push_back({Edit::Kind::REMOVE, oldLine, newLine});
        }
        for (; newLine < newNext; ++newLine) {
            edits.push_back({Edit::Kind::INSERT, oldLine, newLine});
        }
        if (oldNext < before.size()) {
            edits.push_back({Edit::Kind::KEEP, oldLine++, newLine++});
        }
    }
    return edits;
}

void printDifference(Output& output, const Difference& difference) {
    constexpr std::size_t SURROUNDINGS = 3;
    const Lines before = splitLines(difference.before);
    const Lines after = splitLines(difference.after);
    const std::vector<Edit> edits = compareLines(before, after);
    bool first = true;
    for (std::size_t i = 0; i < edits.size();) {
        if (edits[i].kind == Edit::Kind::KEEP) {
            ++i;
            continue;
        }
        std::size_t end = i;
        for (std::size_t j = i; j < edits.size() && j - end <= 2 * SURROUNDINGS; ++j) {
            end = edits[j].kind == Edit::Kind::KEEP ? end : j + 1;
        }
        if (std::exchange(first, false)) {
            output.line("--- " + printable(difference.oldName));
            output.line("+++ " + printable(difference.newName));
        }
        printHunk(output, edits, i - std::min(i, SURROUNDINGS), std::min(end + SURROUNDINGS, edits.size()), before,
                  after);
        i = end;
    }
}

}  // namespace tool

// A batch: changes as JSON, an object a line, read and checked whole before anything is done.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Output.h"
#include "base/ToldChange.h"

namespace tool {

enum class BatchOp { Set, Add, Delete };

// The object of a line. Members are taken out one by one; those that are left over are refused.
class BatchItem {
public:
    // Throws a Failure (invalid) that names the line.
    BatchItem(const std::string& source, std::size_t line, std::string_view text);
    // Of an object that was read already.
    BatchItem(const std::string& source, std::size_t line, Json object);

    [[nodiscard]] std::size_t line() const { return line_; }
    [[nodiscard]] BatchOp op() const { return op_; }

    // The member under that name, or its bytes under NAMEBase64; a number or a truth as its text. None: it is not
    // there, or null, which *isNull tells.
    [[nodiscard]] std::optional<std::string> takeText(const std::string& name, bool* isNull = nullptr);
    // The same of what must be there, and not empty.
    [[nodiscard]] std::string takeName(const std::string& name);
    // null is none, told as an empty text.
    [[nodiscard]] std::optional<std::string> takeOrNone(const std::string& name);
    [[nodiscard]] std::optional<Json> take(const std::string& name);
    // Of an object within: its members as takeText() gives them.
    [[nodiscard]] std::vector<std::pair<std::string, std::optional<std::string>>> takeTexts(const std::string& name);
    // Refuses what nobody took, with the nearest of the names.
    void refuseRest(const std::vector<std::string>& known) const;

    // A failure of this item.
    [[nodiscard]] Failure failure(const std::string& message, const std::string& hint) const;
    // Runs it; what it throws is told with the line.
    template <typename Work>
    auto naming(Work work) const {
        try {
            return work();
        } catch (Failure& failed) {
            name(failed);
            throw;
        }
    }

private:
    void name(Failure& failed) const;
    void takeOp();
    // Of the member NAMEBase64.
    [[nodiscard]] std::string bytesOf(const std::string& name, const Json& encoded) const;
    [[nodiscard]] std::optional<std::string> textOf(const std::string& name, const Json& value) const;

    const std::string& source_;
    std::size_t line_;
    Json members_;
    BatchOp op_ = BatchOp::Set;
};

// The items of a file, "-" or "" being standard input, each given to `take` in its order; empty lines are none. The
// source's name must outlive them.
void readBatch(const std::string& source, const std::function<void(BatchItem item)>& take);

[[nodiscard]] std::string_view nameOf(BatchOp op);

// What became of the items, one by one: counted for people, told to programs.
struct BatchTally {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t deleted = 0;
    std::size_t unchanged = 0;
    std::vector<ToldChange> told{};

    // made: with "before" and "after", where there are such, and "changed".
    void count(const auto& made) {
        ++(!made.changed ? unchanged : !made.before ? added : !made.after ? deleted : changed);
    }
    // "3 added, 2 changed, 1 deleted, 4 as they were".
    [[nodiscard]] std::string summary() const;
};

}  // namespace tool

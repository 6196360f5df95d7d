#include "records/RecordTable.h"

#include <utility>

namespace tool {

RecordTable::RecordTable(const RecordKind& kind, std::vector<std::string> front)
    : kind_(kind), front_(std::move(front)), shown_(kind.keyFields) {}

void RecordTable::row(const FoundRecord& record, std::vector<std::string> front) {
    shown_ |= record.fieldMask;
    later_.insert(record.later.begin(), record.later.end());
    Row made{std::move(front), record.later};
    for (const GlobalRegField& field : kind_.fields) {
        made.cells.push_back(valueCell(record, field));
    }
    rows_.push_back(std::move(made));
}

void RecordTable::print(Output& output) const {
    const auto isShown = [this](const GlobalRegField& field) { return (shown_ & field.bit) != 0; };
    std::vector<std::string> heading = front_;
    for (const GlobalRegField& field : kind_.fields) {
        if (isShown(field)) {
            heading.emplace_back(field.name);
        }
    }
    for (const auto& [bit, ignored] : later_) {
        heading.push_back(laterName(bit));
    }
    Table table(heading);
    for (const Row& row : rows_) {
        const auto fields = row.cells.begin() + static_cast<std::ptrdiff_t>(front_.size());
        std::vector<std::string> cells(row.cells.begin(), fields);
        for (std::size_t i = 0; i < kind_.fields.size(); ++i) {
            if (isShown(kind_.fields[i])) {
                cells.push_back(fields[static_cast<std::ptrdiff_t>(i)]);
            }
        }
        for (const auto& [bit, ignored] : later_) {
            cells.push_back(laterCell(row.later, bit));
        }
        table.row(std::move(cells));
    }
    table.print(output);
}

}  // namespace tool

// Records of one kind as a table for people: the key's columns, and those that any of the records has something in.
#pragma once

#include <string>
#include <vector>

#include "base/Output.h"
#include "records/RecordFields.h"

namespace tool {

class RecordTable {
public:
    // front: the headings of columns in front of a record's own.
    explicit RecordTable(const RecordKind& kind, std::vector<std::string> front = {});

    // front: the cells of those.
    void row(const FoundRecord& record, std::vector<std::string> front = {});
    [[nodiscard]] bool empty() const { return rows_.empty(); }
    void print(Output& output) const;

private:
    struct Row {
        std::vector<std::string> cells;  // the front's, and one for each field
        LaterItems later;
    };

    const RecordKind& kind_;
    std::vector<std::string> front_;
    unsigned long shown_;
    LaterItems later_;  // of any of them
    std::vector<Row> rows_;
};

}  // namespace tool

// The operations that the rigs try, written once as data: which registry, which operation, what it must give.
#pragma once

#include <genreg/Constants.h>

#include <string>
#include <vector>

#include "SchemaFace.h"

namespace prove {

constexpr unsigned int WRONG_ANSWER = 1;

struct Operation {
    unsigned long kind;  // REG_OP_ADD, REG_OP_CHANGE, REG_OP_DELETE; REG_OP_READ: a look-up, then a scan
    Row row;             // REG_OP_DELETE: only its name counts. REG_OP_READ: what the look-up finds
    long count = 0;      // REG_OP_READ: how many the scan finds
    // Not empty: a batch of these, and kind is REG_OP_CHANGE.
    std::vector<Operation> parts = {};

    // Asks the library; its code, or WRONG_ANSWER where it told of other rows than there are.
    [[nodiscard]] unsigned int perform(Registry& registry) const;
    // Batches are abandoned at the first part that is refused.
    [[nodiscard]] unsigned int performParts(Registry& registry) const;
    // What the rows are afterwards, reckoned apart from the library.
    [[nodiscard]] Rows appliedTo(Rows rows) const;
};

// What stands in a registry file: its rows, and how they are laid out.
struct Contents {
    bool present = true;  // false: there is no file
    bool stamped = false;
    std::string preamble;  // text that belongs to no row, before the first
    Rows rows;
};

struct Scenario {
    std::string name;
    const Schema* schema;
    unsigned long features;  // of 0x1, 0x2 and 0x100
    Contents before;
    Operation operation;
    Operation again;                // what a later update does; unlike the first, so that both show
    bool staleCopies = false;       // a temporary copy and a set-aside one lie there
    bool missingDirectory = false;  // the registry's directory does not exist either
    bool linked = false;            // the registry's name is a symbolic link to its file
    bool large = false;             // more records than any buffer holds
    bool quick = false;             // part of --quick

    [[nodiscard]] bool reads() const { return operation.kind == REG_OP_READ; }
    [[nodiscard]] bool appendsInPlace() const;
    [[nodiscard]] Contents after(const Contents& contents, const Operation& change) const;
    [[nodiscard]] std::string bytes(const Contents& contents) const;
};

std::vector<Scenario> updates();
// Look-ups and scans, each with an update behind it by the same object.
std::vector<Scenario> readings();

}  // namespace prove

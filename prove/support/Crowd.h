// What the members of a crowd share, and what one of them has to say about a registry that it scanned.
//
// Each writer owns a few names that nobody else touches, and numbers its changes. It notes each before it makes it and
// again once it is acknowledged, in memory that its death leaves alone. A name's value is the number of the change that
// wrote it, and its comment follows from both, so that no half of a record passes for a whole one.
#pragma once

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "prove/support/SchemaFace.h"
#include "prove/support/Shared.h"

namespace prove {

constexpr int WRITERS = 8;
constexpr int NAMES_PER_WRITER = 6;
constexpr unsigned int MOST_CHANGES = 40'000;  // of one writer

// One change of a writer. Meant until it is acknowledged; one that a death left open is settled from the registry.
struct Change {
    enum State : unsigned char { Meant, Made, NotMade };
    std::atomic<unsigned char> state;
    unsigned char name;
    bool removes;
    bool goesOn;  // the next one is of the same batch
};

struct Journal {
    std::atomic<unsigned int> begun = 0;    // changes 1 to begun are noted
    std::atomic<unsigned int> settled = 0;  // and 1 to settled are made or not made for certain
    Change changes[MOST_CHANGES + 1] = {};
};

struct CrowdBoard {
    Journal journals[WRITERS];
    std::atomic<unsigned long> made = 0;  // changes of all writers that were acknowledged
    std::atomic<unsigned long> batches = 0;
    std::atomic<unsigned long> scans = 0;  // of the readers
    std::atomic<unsigned long> gets = 0;
    std::atomic<bool> over = false;
    Tally tally;
};

[[nodiscard]] std::string crowdName(int writer, int name);
[[nodiscard]] Row crowdRow(int writer, int name, unsigned int change);

// What a scan found: by name, the number of the change that each value tells of, 0 for none.
struct Snapshot {
    unsigned int values[WRITERS][NAMES_PER_WRITER] = {};
    // False, with what is wrong, when the rows are not whole records of the crowd's, each once.
    [[nodiscard]] bool read(const Rows& rows, std::string* wrong);
    // Whether this is what the writer's names held at a moment between its changes `from` and `to`, and between two
    // commits.
    [[nodiscard]] bool fits(const Journal& journal, int writer, unsigned int from, unsigned int to) const;
};

// What a writer's names hold after all its settled changes.
void replay(const Journal& journal, unsigned int (&values)[NAMES_PER_WRITER]);

}  // namespace prove

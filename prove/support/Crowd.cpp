#include "prove/support/Crowd.h"

#include <cstdio>
#include <cstring>

namespace prove {

std::string crowdName(int writer, int name) {
    return "w" + std::to_string(writer) + "n" + std::to_string(name);
}

Row crowdRow(int writer, int name, unsigned int change) {
    unsigned int sum = 2166136261U;
    for (const unsigned int part : {static_cast<unsigned int>(writer), static_cast<unsigned int>(name), change}) {
        sum = (sum ^ part) * 16777619U;
    }
    char comment[16];
    (void)std::snprintf(comment, sizeof comment, "sum %08x", sum);
    return {crowdName(writer, name), static_cast<int>(change), comment};
}

bool Snapshot::read(const Rows& rows, std::string* wrong) {
    for (const Row& row : rows) {
        int writer = -1;
        int name = -1;
        const bool known = std::sscanf(row.name.c_str(), "w%dn%d", &writer, &name) == 2 && writer >= 0 &&
                           writer < WRITERS && name >= 0 && name < NAMES_PER_WRITER;
        if (!known || row.value <= 0 || row != crowdRow(writer, name, static_cast<unsigned int>(row.value))) {
            *wrong = "no whole record: " + row.name + " = " + std::to_string(row.value) + " # " + row.comment;
            return false;
        }
        if (values[writer][name] != 0) {
            *wrong = "twice: " + row.name;
            return false;
        }
        values[writer][name] = static_cast<unsigned int>(row.value);
    }
    return true;
}

bool Snapshot::fits(const Journal& journal, int writer, unsigned int from, unsigned int to) const {
    unsigned int held[NAMES_PER_WRITER] = {};
    const auto& seen = values[writer];
    for (unsigned int number = 0;; ++number) {
        if (number > 0) {
            const Change& change = journal.changes[number];
            if (change.state != Change::NotMade) {
                held[change.name] = change.removes ? 0 : number;
            }
        }
        const bool inBatch = journal.changes[number].goesOn;
        if (number >= from && !inBatch && std::memcmp(held, seen, sizeof held) == 0) {
            return true;
        }
        if (number >= to) {
            return false;
        }
    }
}

void replay(const Journal& journal, unsigned int (&values)[NAMES_PER_WRITER]) {
    std::memset(values, 0, sizeof values);
    for (unsigned int number = 1; number <= journal.settled; ++number) {
        const Change& change = journal.changes[number];
        if (change.state == Change::Made) {
            values[change.name] = change.removes ? 0 : number;
        }
    }
}

}  // namespace prove

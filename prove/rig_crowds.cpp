// Crowds: processes of two threads each that add, change and delete at random, alone and in batches, readers with long
// and short scans and look-ups beside them, and a killer that ends any of them at any moment and starts it again.
//
// Every writer notes what it means to do before it does it and what was acknowledged after. Every scan is held against
// those notes: it must show each writer's names as they were at one moment between the changes acknowledged before it
// was opened and those begun when it was open. At the end every acknowledged change is there, and each that a death cut
// short is wholly in or wholly out, with all of its batch.
//
// The registry lies in memory (/dev/shm) where there is such a place: what is tried are the locks and the order of
// steps, not the medium. With --threads all members are threads of this one process and nobody is killed; that is what
// a build with the thread sanitizer runs. A seed replays what each writer does, not how the system interleaves them.
#include <genreg/Codes.h>
#include <genreg/Constants.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "prove/support/Cases.h"
#include "prove/support/Crowd.h"
#include "prove/support/Folder.h"

namespace {

using namespace std::chrono_literals;
using prove::Cases;
using prove::Change;
using prove::CrowdBoard;
using prove::crowdName;
using prove::crowdRow;
using prove::Folder;
using prove::hex;
using prove::Journal;
using prove::Kind;
using prove::MOST_CHANGES;
using prove::NAMES_PER_WRITER;
using prove::openSchema;
using prove::Row;
using prove::Rows;
using prove::SchemaRegistry;
using prove::Shared;
using prove::Snapshot;
using prove::WRITERS;

#if defined(__SANITIZE_THREAD__)
constexpr bool THREADS_ONLY = true;
#else
constexpr bool THREADS_ONLY = false;
#endif

constexpr int THREADS_PER_PROCESS = 2;
constexpr int WRITING_PROCESSES = WRITERS / THREADS_PER_PROCESS;
constexpr int READING_PROCESSES = 1;
constexpr unsigned int MOST_IN_BATCH = 4;

constexpr unsigned long VERIFIED = REG_FEATURE_DEFERRED_COMMIT;
constexpr unsigned long STAMPED = REG_FEATURE_CHECKSUM_HEADER;

// With duplicates allowed and the commit not deferred, an add appends in place. With a checksum header besides, a death
// between the append and the stamp leaves a header that does not fit, so that kind has no place among killers.
constexpr Kind KINDS[] = {{"text, verified", false, VERIFIED},
                          {"text", false, 0},
                          {"text, adds in place", false, REG_FEATURE_ALLOW_DUPLICATES},
                          {"binary, verified", true, VERIFIED},
                          {"binary, verified, duplicates", true, VERIFIED | REG_FEATURE_ALLOW_DUPLICATES},
                          {"binary, adds in place", true, REG_FEATURE_ALLOW_DUPLICATES},
                          {"binary, verified, checksum", true, VERIFIED | STAMPED},
                          {"binary, checksum, big-endian", true, STAMPED | REG_FEATURE_BIG_ENDIAN}};

// One crowd around one registry.
class Crowd {
public:
    Crowd(const Kind& kind, const std::string& path, unsigned long seed, unsigned long changes)
        : kind_(kind), path_(path), seed_(seed), changes_(changes) {}

    void writer(int number, unsigned long life) {
        Journal& journal = board_->journals[number];
        const auto registry = openSchema(kind_, path_);
        settle(*registry, number);
        unsigned int held[NAMES_PER_WRITER];
        prove::replay(journal, held);
        std::mt19937_64 random(seed_ ^ static_cast<unsigned long>(number + 1) << 32U ^ life << 40U);
        while (board_->made < changes_ && journal.begun + MOST_IN_BATCH < MOST_CHANGES) {
            if (random() % 20 == 0) {
                const auto name = static_cast<int>(random() % NAMES_PER_WRITER);
                refused(*registry, number, name, held[name] != 0);
            } else {
                change(*registry, number, held, random);
            }
        }
    }

    void reader(bool slow, unsigned long life) {
        const auto registry = openSchema(kind_, path_);
        std::mt19937_64 random(seed_ ^ 77U ^ life << 40U ^ (slow ? 1UL << 39U : 0U));
        while (!board_->over) {
            scan(*registry, slow);
            for (int i = 0; i < 5; ++i) {
                (void)look(*registry, static_cast<int>(random() % WRITERS),
                           static_cast<int>(random() % NAMES_PER_WRITER));
            }
            // A crowd of readers on few processors would starve the writers of them, and prove nothing more.
            std::this_thread::sleep_for(slow ? 3ms : 1ms);
        }
    }

    // Ends what a death left open: the registry tells whether it was made, a batch all or none of it.
    void settle(SchemaRegistry& registry, int number) {
        Journal& journal = board_->journals[number];
        unsigned int before[NAMES_PER_WRITER];
        prove::replay(journal, before);
        unsigned int after[NAMES_PER_WRITER];
        std::copy(std::begin(before), std::end(before), after);
        unsigned int open = 0;
        for (unsigned int next = journal.settled + 1; next <= journal.begun; ++next) {
            const Change& change = journal.changes[next];
            open += change.state == Change::Meant ? 1 : 0;
            after[change.name] = change.removes ? 0 : next;
        }
        if (open > 0) {
            unsigned int found[NAMES_PER_WRITER];
            for (int name = 0; name < NAMES_PER_WRITER; ++name) {
                found[name] = look(registry, number, name);
            }
            const bool made = std::equal(std::begin(found), std::end(found), after);
            (void)board_->tally.check(made || std::equal(std::begin(found), std::end(found), before),
                                      at(number) + "neither old nor new after a death");
            for (unsigned int next = journal.settled + 1; next <= journal.begun; ++next) {
                journal.changes[next].state = made ? Change::Made : Change::NotMade;
            }
            board_->made += made ? open : 0;
        }
        journal.settled = journal.begun.load();
    }

    // Once everybody is gone: the registry is what the notes say.
    void judge() {
        const auto registry = openSchema(kind_, path_);
        for (int number = 0; number < WRITERS; ++number) {
            settle(*registry, number);
        }
        Rows rows;
        const unsigned int rc = registry->read(&rows);
        Snapshot snapshot;
        std::string wrong;
        (void)board_->tally.check(rc == 0 && snapshot.read(rows, &wrong), at(-1) + "at the end: " + hex(rc) + wrong);
        for (int number = 0; number < WRITERS; ++number) {
            const Journal& journal = board_->journals[number];
            (void)board_->tally.check(snapshot.fits(journal, number, journal.settled, journal.settled),
                                      at(number) + "the registry is not what was acknowledged");
        }
        (void)board_->tally.check(registry->lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT) == 0, at(-1) + "still locked");
        (void)registry->unlock();
    }

    [[nodiscard]] CrowdBoard& board() const noexcept { return *board_; }

private:
    [[nodiscard]] std::string at(int number) const {
        return std::string(kind_.name) + ", " + (number < 0 ? "" : "writer " + std::to_string(number) + ", ");
    }

    // Asked before an operation: only then may it find no registry.
    [[nodiscard]] bool noFileYet() const { return ::access(path_.c_str(), F_OK) != 0; }

    // One change, or a batch of some.
    void change(SchemaRegistry& registry, int number, unsigned int (&held)[NAMES_PER_WRITER], std::mt19937_64& random) {
        Journal& journal = board_->journals[number];
        const unsigned int first = journal.begun + 1;
        const auto count = static_cast<unsigned int>(random() % 8 == 0 ? 2 + random() % (MOST_IN_BATCH - 1) : 1);
        unsigned int after[NAMES_PER_WRITER];
        std::copy(std::begin(held), std::end(held), after);
        for (unsigned int next = first; next < first + count; ++next) {
            Change& change = journal.changes[next];
            change.name = static_cast<unsigned char>(random() % NAMES_PER_WRITER);
            change.removes = after[change.name] != 0 && random() % 5 < 2;
            change.goesOn = next + 1 < first + count;
            change.state = Change::Meant;
            after[change.name] = change.removes ? 0 : next;
        }
        journal.begun = first + count - 1;
        // What a batch adds and deletes again comes to nothing.
        const bool idle = std::equal(std::begin(held), std::end(held), after);
        unsigned int rc = count > 1 ? registry.begin() : 0;
        for (unsigned int next = first; rc == 0 && next < first + count; ++next) {
            rc = make(registry, number, next, held, journal.changes[next]);
        }
        if (rc == 0 && count > 1) {
            rc = registry.commit();
            rc = idle && rc == REG_UNCHANGED ? 0 : rc;
            board_->batches += rc == 0 ? 1 : 0;
        }
        if (!board_->tally.check(rc == 0, at(number) + "change " + std::to_string(first) + " gave " + hex(rc))) {
            (void)registry.abandon();
            settle(registry, number);
            prove::replay(journal, held);
            return;
        }
        for (unsigned int next = first; next < first + count; ++next) {
            journal.changes[next].state = Change::Made;
        }
        journal.settled = journal.begun.load();
        board_->made += count;
    }

    static unsigned int make(SchemaRegistry& registry, int number, unsigned int next,
                             unsigned int (&held)[NAMES_PER_WRITER], const Change& change) {
        const Row row = crowdRow(number, change.name, next);
        const unsigned int rc = change.removes           ? registry.remove(row.name)
                                : held[change.name] != 0 ? registry.change(row)
                                                         : registry.add(row);
        held[change.name] = change.removes ? 0 : next;
        return rc;
    }

    // What must be refused is, and what is abandoned is not made: the next scan would tell.
    void refused(SchemaRegistry& registry, int number, int name, bool present) {
        const Row row = crowdRow(number, name, MOST_CHANGES);
        unsigned int rc = 0;
        unsigned int expected = REG_NOT_FOUND;
        const bool none = noFileYet();
        if (name == 0) {
            expected = 0;
            rc = registry.begin();
            rc = rc != 0 ? rc : present ? registry.change(row) : registry.add(row);
            rc = rc != 0 ? rc : registry.abandon();
        } else if (!present) {
            rc = registry.remove(row.name);
        } else if ((kind_.features & REG_FEATURE_ALLOW_DUPLICATES) == 0) {
            expected = REG_DUPLICATE;
            rc = registry.add(row);
        } else {
            return;
        }
        (void)board_->tally.check(rc == expected || (none && rc != 0),
                                  at(number) + "a change to be refused gave " + hex(rc));
    }

    void scan(SchemaRegistry& registry, bool slow) {
        const bool none = noFileYet();
        unsigned int from[WRITERS];
        for (int number = 0; number < WRITERS; ++number) {
            from[number] = board_->journals[number].settled;
        }
        if (const unsigned int rc = registry.openScan()) {
            (void)board_->tally.check(none, at(-1) + "a scan could not be opened: " + hex(rc));
            (void)registry.closeScan();
            return;
        }
        unsigned int to[WRITERS];
        for (int number = 0; number < WRITERS; ++number) {
            to[number] = board_->journals[number].begun;
        }
        Rows rows;
        Row row;
        unsigned int rc = 0;
        while ((rc = registry.next(&row)) == 0) {
            rows.push_back(row);
            if (slow && rows.size() % 8 == 0) {
                std::this_thread::sleep_for(500us);
            }
        }
        (void)registry.closeScan();
        ++board_->scans;
        Snapshot snapshot;
        std::string wrong;
        if (!board_->tally.check(rc == REG_NO_MORE_RECORDS && snapshot.read(rows, &wrong),
                                 at(-1) + "a scan ended with " + hex(rc) + " " + wrong)) {
            return;
        }
        for (int number = 0; number < WRITERS; ++number) {
            (void)board_->tally.check(snapshot.fits(board_->journals[number], number, from[number], to[number]),
                                      at(number) + "a scan saw what never was, between changes " +
                                          std::to_string(from[number]) + " and " + std::to_string(to[number]));
        }
    }

    // The number of the change that the name's value tells of, 0 for none.
    unsigned int look(SchemaRegistry& registry, int number, int name) {
        const bool none = noFileYet();
        Row row;
        const unsigned int rc = registry.get(crowdName(number, name), &row);
        ++board_->gets;
        const auto value = rc == 0 ? static_cast<unsigned int>(row.value) : 0;
        const bool absent = rc == REG_NOT_FOUND || (none && rc != 0);
        (void)board_->tally.check(
            absent || (rc == 0 && row.value > 0 && row == crowdRow(number, name, value)),
            at(number) + "a look-up gave " + hex(rc) + " " + row.name + " = " + std::to_string(row.value));
        return value;
    }

    const Kind& kind_;
    const std::string path_;
    const unsigned long seed_;
    const unsigned long changes_;
    const Shared<CrowdBoard> board_;
};

// A member process of a crowd: two writers, or a quick and a slow reader. Life is how often it was started.
pid_t start(Crowd& crowd, int member, unsigned long life) {
    const pid_t child = ::fork();
    if (child == 0) {
        const auto body = [&](int thread) {
            if (member < WRITING_PROCESSES) {
                crowd.writer(member * THREADS_PER_PROCESS + thread, life);
            } else {
                crowd.reader(thread == 1, life);
            }
        };
        std::thread other(body, 1);
        body(0);
        other.join();
        ::_exit(0);
    }
    return child;
}

// Kills and restarts members until the writers are done. Yields how many were killed.
unsigned long killAtRandom(Crowd& crowd, unsigned long seed) {
    constexpr int MEMBERS = WRITING_PROCESSES + READING_PROCESSES;
    std::mt19937_64 random(seed);
    pid_t members[MEMBERS];
    unsigned long life = 0;
    for (int member = 0; member < MEMBERS; ++member) {
        members[member] = start(crowd, member, life);
    }
    unsigned long killed = 0;
    int writing = WRITING_PROCESSES;
    while (writing > 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(1000 + random() % 15'000));
        const auto victim = static_cast<int>(random() % MEMBERS);
        int status = 0;
        if (members[victim] == 0 || ::kill(members[victim], SIGKILL) != 0 ||
            ::waitpid(members[victim], &status, 0) != members[victim]) {
            continue;
        }
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
            ++killed;
            members[victim] = start(crowd, victim, ++life);
        } else {
            (void)crowd.board().tally.check(status == 0 && victim < WRITING_PROCESSES,
                                            "a member ended by itself, badly");
            members[victim] = 0;
            writing -= victim < WRITING_PROCESSES ? 1 : 0;
        }
    }
    crowd.board().over = true;
    for (int member = WRITING_PROCESSES; member < MEMBERS; ++member) {
        int status = 0;
        (void)::waitpid(members[member], &status, 0);
        (void)crowd.board().tally.check(status == 0, "a reader ended badly");
    }
    return killed;
}

void runThreads(Crowd& crowd) {
    std::vector<std::thread> writers;
    for (int number = 0; number < WRITERS; ++number) {
        writers.emplace_back([&crowd, number] { crowd.writer(number, 0); });
    }
    std::thread quick([&crowd] { crowd.reader(false, 0); });
    std::thread slow([&crowd] { crowd.reader(true, 0); });
    for (std::thread& writer : writers) {
        writer.join();
    }
    crowd.board().over = true;
    quick.join();
    slow.join();
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("crowds", argc, argv);
    const bool threads = THREADS_ONLY || cases.has("--threads");
    const unsigned long seed = cases.seed();
    const unsigned long perKind = (cases.quick() ? 4'000UL : 104'000UL) / std::size(KINDS) / (threads ? 2 : 1);
    cases.expectAtLeast(perKind * std::size(KINDS));
    unsigned long made = 0;
    unsigned long scans = 0;
    unsigned long gets = 0;
    unsigned long batches = 0;
    unsigned long killed = 0;
    const Folder folder(true);
    for (std::size_t i = 0; i < std::size(KINDS); ++i) {
        Crowd crowd(KINDS[i], folder.file("crowd" + std::to_string(i)), seed + i, perKind);
        if (threads) {
            runThreads(crowd);
        } else {
            killed += killAtRandom(crowd, seed + i);
        }
        crowd.judge();
        made += crowd.board().made;
        scans += crowd.board().scans;
        gets += crowd.board().gets;
        batches += crowd.board().batches;
        crowd.board().tally.passTo(cases);
    }
    (void)cases.check(made >= perKind * std::size(KINDS) && batches > 0 && scans > 0, "fewer changes than wanted");
    (void)cases.check(threads || killed > 0, "nobody was killed");
    cases.note(std::to_string(made) + " changes acknowledged, some of them in " + std::to_string(batches) +
               " batches, " + std::to_string(scans) + " scans and " + std::to_string(gets) +
               " look-ups held against them, " + std::to_string(killed) + " processes killed, in " + folder.path());
    return cases.finish();
}

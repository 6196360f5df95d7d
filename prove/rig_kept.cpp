// Objects that keep the contents, raced against everybody who changes the file: writers of the library that replace it
// and that append in place, and foreign programs that replace it, write into it and lead its name elsewhere.
//
// One writer numbers its changes of one variable: it says which one it begins and which one was acknowledged, in memory
// that all share. A reader notes the last acknowledged number, asks, and notes the last one that was begun: the answer
// must lie between the two. So an answer older than the last acknowledged change is found, however briefly it is given.
// Changes come in bursts, and with pauses that let the readers keep what they have read. That they do is told at the
// end, when the file has rested: then they ask on, and make no read of the system.
#include <fcntl.h>
#include <genreg/GenRegVarVal.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "prove/support/Cases.h"
#include "prove/support/Folder.h"
#include "prove/support/Shared.h"
#include "tests/support/Ways.h"

namespace {

using Clock = std::chrono::steady_clock;
using prove::Cases;
using prove::Folder;
using prove::Shared;
using prove::Tally;

constexpr int READERS = 3;
constexpr unsigned long PLENTY = 1UL << 20;
constexpr int DIGITS = 8;
constexpr unsigned long ASKED_AT_REST = 10'000;

struct Board {
    std::atomic<unsigned long> begun = 0;
    std::atomic<unsigned long> acknowledged = 0;
    std::atomic<unsigned long> asked = 0;
    std::atomic<bool> rests = false;       // no change comes any more, and the last one is old enough to be kept
    std::atomic<unsigned long> reads = 0;  // of the system, by the readers, since then
    Tally tally;
};

std::string numberText(unsigned long number) {
    std::string text = std::to_string(number);
    return std::string(DIGITS - text.size(), '0') + text;
}

GenRegVarValRecord pair(std::string& variable, std::string* value) {
    GenRegVarValRecord record = {};
    record.contains = VARVAL_HAS_PAIR;
    record.variable = variable.data();
    record.value = value != nullptr ? value->data() : nullptr;
    return record;
}

std::string contents(unsigned long number) {
    std::string all = "# others\n";
    for (int i = 0; i < 50; ++i) {
        all += "other" + std::to_string(i) + " = " + std::to_string(i) + "\n";
    }
    return all + "number0 = 0\nnumber = " + numberText(number) + "\nlast = 1\n";
}

void writeWhole(const std::string& path, const std::string& bytes) {
    std::FILE* const file = std::fopen(path.c_str(), "w");
    const bool written = file != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        std::abort();
    }
}

// How the number gets into the file. False when it did not.
using Way = bool (*)(const std::string& path, unsigned long number);

bool changes(const std::string& path, unsigned long number) {
    unsigned int rc = 0;
    GenRegVarVal registry(path.c_str(), &rc);
    std::string variable = "number";
    std::string value = numberText(number);
    GenRegVarValRecord key = pair(variable, nullptr);
    GenRegVarValRecord record = pair(variable, &value);
    return rc == 0 && registry.Change(VARVAL_MATCH_VARIABLE, &key, &record) == 0;
}

// The last line of that name is asked for where lines are appended, by a variable of its own each.
bool appends(const std::string& path, unsigned long number) {
    unsigned int rc = 0;
    GenRegVarVal registry(path.c_str(), &rc);
    (void)registry.unsetFeature(REG_FEATURE_DEFERRED_COMMIT);
    std::string variable = "number" + std::to_string(number);
    std::string value = numberText(number);
    GenRegVarValRecord record = pair(variable, &value);
    return rc == 0 && registry.Add(VARVAL_MATCH_VARIABLE, &record) == 0;
}

bool replaces(const std::string& path, unsigned long number) {
    writeWhole(path + ".new", contents(number));
    return ::rename((path + ".new").c_str(), path.c_str()) == 0;
}

// One store of the system's, at its place.
bool overwrites(const std::string& path, unsigned long number) {
    const std::size_t at = contents(number).find("number = ") + 9;
    const std::string text = numberText(number);
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const bool written = ::pwrite(descriptor, text.data(), text.size(), static_cast<off_t>(at)) == DIGITS;
    return ::close(descriptor) == 0 && written;
}

// The folder that the path goes through is a link, which leads to another one.
bool leadsElsewhere(const std::string& path, unsigned long number) {
    const std::string link = path.substr(0, path.rfind('/'));
    const std::string folder = link + std::to_string(number % 2);
    (void)::mkdir(folder.c_str(), 0700);
    (void)replaces(folder + "/reg", number);
    (void)::unlink((link + ".new").c_str());
    return ::symlink(folder.c_str(), (link + ".new").c_str()) == 0 &&
           ::rename((link + ".new").c_str(), link.c_str()) == 0;
}

struct Kind {
    const char* name;
    Way way;
    bool appended;
};
constexpr Kind KINDS[] = {{"the library changes", changes, false},
                          {"the library appends in place", appends, true},
                          {"others replace", replaces, false},
                          {"others overwrite in place", overwrites, false},
                          {"a link leads elsewhere", leadsElsewhere, false}};

bool isAnswer(unsigned long before, unsigned long got, unsigned long after) {
    return got >= before && got <= after;
}

// So many read calls this process has made.
unsigned long readsMade() {
    std::ifstream file("/proc/self/io");
    for (std::string word; file >> word;) {
        if (word == "syscr:") {
            unsigned long reads = 0;
            file >> reads;
            return reads;
        }
    }
    return 0;
}

// What the reader is answered: the number, or 0.
unsigned long answer(GenRegVarVal& registry, const Kind& kind, unsigned long sought) {
    std::string variable = kind.appended ? "number" + std::to_string(sought) : "number";
    GenRegVarValRecord key = pair(variable, nullptr);
    GenRegVarValRecord found;
    return registry.Get(VARVAL_MATCH_VARIABLE, &key, &found) == 0 ? std::strtoul(found.value, nullptr, 10) : 0;
}

// How often the system is read for that many answers, after one that may have to read what is there.
unsigned long readsAtRest(const std::function<void()>& ask) {
    ask();
    const unsigned long reads = readsMade();
    const unsigned long own = readsMade() - reads;
    for (unsigned long i = 0; i < ASKED_AT_REST; ++i) {
        ask();
    }
    return readsMade() - reads - 2 * own;
}

// One that cheats repeats its first answer for a while.
void read(Board& board, const Kind& kind, const std::string& path, bool cheats) {
    constexpr unsigned long REPEATED = 1000;
    unsigned int rc = 0;
    GenRegVarVal registry(path.c_str(), &rc);
    rc = rc == 0 ? registry.KeepContents(PLENTY) : rc;
    unsigned long asked = 0;
    unsigned long got = 0;
    const auto ask = [&] {
        const unsigned long before = board.acknowledged;
        got = cheats && asked % REPEATED != 0 ? got : answer(registry, kind, before);
        const unsigned long after = board.begun;
        ++asked;
        board.tally.check(rc == 0 && isAnswer(before, got, after),
                          std::string(kind.name) + ": " + std::to_string(got) + " is no answer between " +
                              std::to_string(before) + " and " + std::to_string(after));
    };
    while (!board.rests) {
        ask();
    }
    board.reads += readsAtRest(ask);
    board.asked += asked;
}

void write(Board& board, const Kind& kind, const std::string& path, double seconds, unsigned long seed) {
    constexpr unsigned long LONGEST_BURST = 20;
    std::mt19937_64 random(seed);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    unsigned long number = 0;
    while (Clock::now() < end) {
        for (unsigned long burst = 1 + random() % LONGEST_BURST; burst > 0; --burst) {
            board.begun = ++number;
            board.tally.check(kind.way(path, number), std::string(kind.name) + ": a change");
            board.acknowledged = number;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % (random() % 2 == 0 ? 3'000 : 300'000)));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    board.rests = true;
}

void race(Cases& cases, const Kind& kind, const Folder& folder, double seconds, unsigned long seed, bool cheats) {
    folder.empty();
    const std::string path = folder.file("there/reg");
    const Shared<Board> board;
    if (kind.way != leadsElsewhere) {
        (void)::mkdir(folder.file("there").c_str(), 0700);
        writeWhole(path, contents(0));
    } else {
        (void)leadsElsewhere(path, 0);
    }
    std::vector<pid_t> readers;
    for (int i = 0; i < READERS; ++i) {
        readers.push_back(::fork());
        if (readers.back() == 0) {
            read(*board, kind, path, cheats);
            ::_exit(0);
        }
    }
    write(*board, kind, path, seconds, seed);
    for (const pid_t reader : readers) {
        int status = 0;
        (void)cases.check(::waitpid(reader, &status, 0) == reader && status == 0, "a reader ended badly");
    }
    board->tally.passTo(cases);
    if (!cheats) {
        (void)cases.check(!KEEPS_CONTENTS || board->reads == 0,
                          std::string(kind.name) + ": " + std::to_string(board->reads) + " reads of a file at rest");
        cases.note(std::string(kind.name) + ": " + std::to_string(board->acknowledged) + " changes, " +
                   std::to_string(board->asked) + " answers");
    }
}

// Changes within one step of the clock, each asked for as soon as it is made, and as often as keeps the contents.
void takeTurns(Cases& cases, const Folder& folder) {
    constexpr unsigned long TURNS = 2000;
    constexpr int TIMES = 3;
    folder.empty();
    const std::string path = folder.file("reg");
    writeWhole(path, contents(0));
    unsigned int rc = 0;
    GenRegVarVal registry(path.c_str(), &rc);
    (void)cases.check(rc == 0 && registry.KeepContents(PLENTY) == 0, "the object is made");
    for (unsigned long number = 1; number <= TURNS; ++number) {
        (void)cases.check(overwrites(path, number), "a change in turn");
        for (int i = 0; i < TIMES; ++i) {
            const unsigned long got = answer(registry, KINDS[0], number);
            (void)cases.check(got == number, "in turns: " + std::to_string(got) + " is no answer after " +
                                                 std::to_string(number) + " was acknowledged");
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Cases cases("kept", argc, argv);
    const double seconds = cases.quick() ? 1 : 10;
    const unsigned long seed = cases.seed();
    cases.expectAtLeast(cases.quick() ? 100'000 : 1'000'000);
    const Folder folder(true);
    cases.control("is no answer between", [&] { race(cases, KINDS[0], folder, 1, seed, true); });
    for (const Kind& kind : KINDS) {
        race(cases, kind, folder, seconds, seed, false);
    }
    // Times that move in steps of the clock, which other file systems of some systems no longer show.
    const bool coarse = ::unshare(CLONE_NEWNS) == 0 &&
                        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        ::mount("none", folder.path().c_str(), "ramfs", 0, nullptr) == 0;
    if (coarse) {
        for (const Kind& kind : KINDS) {
            race(cases, kind, folder, seconds, seed, false);
        }
        takeTurns(cases, folder);
        folder.empty();
        (void)::umount(folder.path().c_str());
    } else {
        cases.skip("a file system of coarse times", "no mounts are granted");
    }
    return cases.finish();
}

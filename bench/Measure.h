// Times rivals in one run and prints a row of the table: they take turns, so that what disturbs the machine disturbs
// each of them alike. All times are microseconds for one operation, medians of the rounds.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace measure {

// "limit" is the bare program, "library" the library; whoever else there is stands beside them under its name.
struct Rival {
    std::string name;
    std::function<void()> once;
};

// A rival's time for a call, in microseconds, in each round.
using Times = std::vector<double>;

inline double microsecondsOf(const Rival& rival, int calls) {
    const auto start = std::chrono::steady_clock::now();
    for (int call = 0; call < calls; ++call) {
        rival.once();
    }
    const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
    return taken.count() / calls;
}

inline double median(Times& times) {
    std::nth_element(times.begin(), times.begin() + static_cast<long>(times.size() / 2), times.end());
    return times[times.size() / 2];
}

// The median of each rival's time for one call, in microseconds. A turn is as many calls as fill some two milliseconds.
inline std::vector<double> inTurns(const std::vector<Rival>& rivals, int rounds) {
    constexpr double TURN = 2000;
    constexpr double MOST_CALLS = 1000;
    std::vector<int> calls;
    for (const Rival& rival : rivals) {
        rival.once();  // warms up
        calls.push_back(static_cast<int>(std::clamp(TURN / microsecondsOf(rival, 1), 1.0, MOST_CALLS)));
    }
    std::vector<Times> times(rivals.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < rivals.size(); ++i) {
            times[i].push_back(microsecondsOf(rivals[i], calls[i]));
        }
    }
    std::vector<double> medians;
    medians.reserve(times.size());
    for (Times& series : times) {
        medians.push_back(median(series));
    }
    return medians;
}

// --- system calls ------------------------------------------------------------------------------------------------

// A program that strace runs: it makes one operation of one rival, between two calls that nothing else makes, and ends.
class Traced {
public:
    static std::string& wanted() {
        static std::string operation;
        return operation;
    }
    static void mark() { (void)::fcntl(-1, F_GETFD); }

    static void run(const std::string& operation, const std::vector<Rival>& rivals) {
        for (const Rival& rival : rivals) {
            if (operation + rival.name == wanted()) {
                rival.once();
                mark();
                rival.once();
                mark();
                std::_Exit(0);
            }
        }
    }
    // The calls of that operation; "-" where strace is missing or may not look.
    static std::string count(const std::string& operation) {
        char listing[] = "/tmp/genreg-bench-calls-XXXXXX";
        const int descriptor = ::mkstemp(listing);
        if (descriptor < 0) {
            return "-";
        }
        (void)::close(descriptor);
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        const int failed = std::system(
            ("strace -o " + std::string(listing) + " '" + self + "' --traced '" + operation + "' >/dev/null 2>&1")
                .c_str());
        std::ifstream lines(listing);
        int marks = 0;
        int calls = 0;
        for (std::string line; std::getline(lines, line);) {
            const bool mark = line.starts_with("fcntl(-1,");
            marks += mark ? 1 : 0;
            calls += !mark && marks == 1 ? 1 : 0;
        }
        (void)::unlink(listing);
        return failed != 0 || marks != 2 ? "-" : std::to_string(calls);
    }
};

// --- the table ---------------------------------------------------------------------------------------------------

constexpr int ROUNDS = 31;
constexpr int COUNTED_SIZE = 100;  // whose system calls are counted

inline void heading() {
    std::printf("%-26s %7s %10s %10s %6s %9s  %s\n", "operation", "size", "limit", "library", "ratio", "calls",
                "beside it");
}

struct Work {
    std::string operation;
    int size;  // of the file, in records or lines
    int rounds = ROUNDS;
    double each = 1;  // operations that a call makes
};

inline void row(const Work& work, const std::vector<Rival>& rivals) {
    const std::string operation = work.operation + "/" + std::to_string(work.size) + "/";
    if (!Traced::wanted().empty()) {
        Traced::run(operation, rivals);
        return;
    }
    std::vector<double> medians = inTurns(rivals, work.rounds);
    double limit = 0;
    double library = 0;
    std::string beside;
    for (std::size_t i = 0; i < rivals.size(); ++i) {
        medians[i] /= work.each;
        if (rivals[i].name == "limit") {
            limit = medians[i];
        } else if (rivals[i].name == "library") {
            library = medians[i];
        } else {
            char text[64];
            (void)std::snprintf(text, sizeof text, " %.1f; ", medians[i]);
            beside += rivals[i].name + text;
        }
    }
    std::string calls;
    if (work.size == COUNTED_SIZE && limit != 0) {
        calls = Traced::count(operation + "limit") + "/" + Traced::count(operation + "library");
    }
    std::printf("%-26s %7d", work.operation.c_str(), work.size);
    limit != 0 ? std::printf(" %10.2f %10.2f %6.2f", limit, library, library / limit)
               : std::printf(" %10s %10.2f %6s", "", library, "");
    std::printf(" %9s  %s\n", calls.c_str(), beside.substr(0, beside.size() - (beside.empty() ? 0 : 2)).c_str());
    (void)std::fflush(stdout);
}

// What each program of the table begins with: strace runs it with the operation that it counts, ./dev bench with
// --no-heading behind the first.
inline void begin(int count, char** arguments) {
    const std::string first = count > 1 ? arguments[1] : "";
    if (first == "--traced" && count > 2) {
        Traced::wanted() = arguments[2];
    } else if (first != "--no-heading") {
        heading();
    }
}

// An object that keeps the contents, and others that are kept open; it has the contents when the rounds begin. The
// limit is a look at the path.
template <class Registry>
void keptRow(const Work& work, Registry& keeps, const std::string& path, const std::function<void()>& once,
             const std::vector<Rival>& others = {}) {
    constexpr unsigned long PLENTY = 64UL << 20;
    constexpr int UNTIL_KEPT = 3;
    if (keeps.KeepContents(PLENTY) != 0) {
        std::abort();
    }
    (void)::usleep(200'000);  // a younger file is not kept
    for (int i = 0; i < UNTIL_KEPT; ++i) {
        once();
    }
    std::vector<Rival> all = {{"limit",
                               [&path] {
                                   struct stat status;
                                   if (::lstat(path.c_str(), &status) != 0) {
                                       std::abort();
                                   }
                               }},
                              {"library", once}};
    all.insert(all.end(), others.begin(), others.end());
    row(work, all);
}

// A folder of its own, removed at the end.
class Scratch {
public:
    Scratch() {
        std::string pattern = (std::filesystem::temp_directory_path() / "genreg-bench-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace measure

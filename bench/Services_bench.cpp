// Looking a service up by name and protocol, beside the C library's getservbyname_r on the same file in the same run.
//
// Both sides do all of it every time: the library's object is constructed, the file opened, searched and closed. Each
// round asks for the same entries on either side, taking turns at going first; the counters are microseconds per
// look-up, medians of the rounds, and ratio is the C library's time over ours: above 1 the library is faster. Larger
// files are bound over /etc/services in a private mount namespace, of root or of a user namespace.
#include <benchmark/benchmark.h>
#include <genreg/GenRegServices.h>
#include <netdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr const char* FILE_PATH = "/etc/services";

struct Entry {
    std::string name;
    std::string protocol;
};

std::vector<Entry> readEntries() {
    std::vector<Entry> entries;
    ::setservent(1);
    while (const servent* entry = ::getservent()) {
        entries.push_back({entry->s_name, entry->s_proto});
    }
    ::endservent();
    return entries;
}

bool registryFinds(const Entry& entry) {
    unsigned int rc = 0;
    GenRegServices services(FILE_PATH, &rc);
    GenRegServicesRecord key;
    key.flags = SERVICES_HAS_NAME;
    key.name = const_cast<char*>(entry.name.c_str());
    key.protocol = const_cast<char*>(entry.protocol.c_str());
    GenRegServicesRecord found;
    return services.Get(SERVICES_MATCH_NAME | SERVICES_MATCH_PROTOCOL, &key, &found) == 0;
}

bool libraryFinds(const Entry& entry) {
    servent storage = {};
    servent* found = nullptr;
    char buffer[4096];
    return ::getservbyname_r(entry.name.c_str(), entry.protocol.c_str(), &storage, buffer, sizeof buffer, &found) ==
               0 &&
           found != nullptr;
}

template <typename Find>
double secondsFor(const std::vector<Entry>& entries, Find find, bool* good) {
    const auto start = std::chrono::steady_clock::now();
    for (const Entry& entry : entries) {
        *good = find(entry) && *good;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

void compare(benchmark::State& state, const std::vector<Entry>& entries) {
    std::vector<double> ours;
    std::vector<double> theirs;
    bool good = !entries.empty();
    bool first = false;
    for (auto _ : state) {
        first = !first;
        if (!first) {
            theirs.push_back(secondsFor(entries, libraryFinds, &good));
        }
        ours.push_back(secondsFor(entries, registryFinds, &good));
        if (first) {
            theirs.push_back(secondsFor(entries, libraryFinds, &good));
        }
        state.SetIterationTime(ours.back());
    }
    if (!good) {
        state.SkipWithError("an entry of the file was not found");
        return;
    }
    const double scale = 1e6 / static_cast<double>(entries.size());
    const double oursMedian = median(ours);
    const double theirsMedian = median(theirs);
    state.counters["genreg_us"] = oursMedian * scale;
    state.counters["getservbyname_r_us"] = theirsMedian * scale;
    state.counters["ratio"] = theirsMedian / oursMedian;
}

// Every entry of the machine's own file, and its first and last alone.
void everyEntry(benchmark::State& state) {
    compare(state, readEntries());
}

void oneEntry(benchmark::State& state, bool last) {
    const std::vector<Entry> entries = readEntries();
    if (entries.empty()) {
        state.SkipWithError("the file has no entries");
        return;
    }
    compare(state, std::vector<Entry>(100, last ? entries.back() : entries.front()));
}

// A file of that many lines, like those of the machine's own, bound over it.
class BoundFile {
public:
    explicit BoundFile(long lines) {
        char pattern[] = "/tmp/rvn-bench-XXXXXX";
        const int descriptor = ::mkstemp(pattern);
        if (descriptor < 0) {
            return;
        }
        (void)::close(descriptor);
        path_ = pattern;
        std::ofstream file(path_);
        for (long i = 0; i < lines; ++i) {
            const std::string number = std::to_string(i);
            file << "service" << number << "\t" << 1 + i % 65535 << (i % 3 == 0 ? "/udp" : "/tcp")
                 << (i % 4 == 0 ? "\t\talias" + number : std::string()) << (i % 5 == 0 ? "\t# a comment" : "") << "\n";
        }
        file.close();
        bound_ = privateNamespace() && ::mount(path_.c_str(), FILE_PATH, nullptr, MS_BIND, nullptr) == 0;
    }
    ~BoundFile() {
        if (bound_) {
            (void)::umount(FILE_PATH);
        }
        (void)::unlink(path_.c_str());
    }
    BoundFile(const BoundFile&) = delete;
    BoundFile& operator=(const BoundFile&) = delete;

    [[nodiscard]] bool isBound() const { return bound_; }

private:
    static bool privateNamespace() {
        static const bool made = (::unshare(CLONE_NEWNS) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
                                 ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        return made;
    }

    std::string path_;
    bool bound_ = false;
};

// Entries spread evenly over a file of that many lines.
void spreadEntries(benchmark::State& state) {
    constexpr std::size_t ASKED = 50;
    const BoundFile file(state.range(0));
    if (!file.isBound()) {
        state.SkipWithError("no private mount namespace to bind the file in");
        return;
    }
    const std::vector<Entry> all = readEntries();
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < ASKED && !all.empty(); ++i) {
        entries.push_back(all[(2 * i + 1) * all.size() / (2 * ASKED)]);
    }
    compare(state, entries);
}

}  // namespace

BENCHMARK(everyEntry)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(oneEntry, first, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(oneEntry, last, true)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(spreadEntries)->Arg(1000)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

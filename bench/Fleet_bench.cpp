// Many hosts and one etcd: how fast they are published, when a viewer has seen the last of them, what its questions
// take, and what all of it costs the store. The hosts are simulated: each has a key and a value of its own, as
// genreg-fleet writes them, put by its own code from one process and from fifty.
#include <fmt/core.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <ctime>
#include <memory>
#include <sstream>

#include "Measure.h"
#include "mirror/HostValue.h"
#include "mirror/Keys.h"
#include "store/Store.h"
#include "tests/support/Etcd.h"

extern char** environ;

namespace {

using Words = std::vector<std::string>;

constexpr int VALUE_BYTES = 4000;
constexpr double SECONDS_PER_DAY = 86400;
constexpr double LEASE_RENEWAL = 30;

[[noreturn]] void giveUp(const std::string& what) {
    std::fprintf(stderr, "Fleet_bench: %s\n", what.c_str());
    std::exit(1);
}

double now() {
    timespec time{};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// --- the hosts ---------------------------------------------------------------------------------------------------

std::string idOf(int host) {
    return fmt::format("{:032x}", static_cast<unsigned>(host) + 1U);
}

// About four kilobytes of instances, one of them only this host has.
std::string valueOf(int host, int generation) {
    fleet::MirroredRegistry registry{"/var/rvn/global.reg", {}};
    std::size_t bytes = 0;
    for (int i = 0; bytes < VALUE_BYTES - 500; ++i) {
        const std::string name = i == 0 ? fmt::format("host{}", host) : fmt::format("inst{}", i);
        registry.records.push_back(tool::Json{{"schema", 1},
                                              {"type", "instance"},
                                              {"service", "RVN"},
                                              {"versionCode", fmt::format("9.{}.0.{}", host % 3 + 5, generation)},
                                              {"instanceName", name},
                                              {"instancePath", "/home/" + name}});
        bytes += registry.records.back().dump().size() + 1;
    }
    fleet::HostValue value;
    value.id = idOf(host);
    value.writer = value.id + ".boot";
    value.sequence = static_cast<std::uint64_t>(generation);
    value.hostName = fmt::format("host{}", host);
    value.time = "2026-01-01T00:00:00Z";
    return fleet::encode(value, fleet::contentOf({}, {registry}));
}

fleet::StoreAccess accessTo(const std::string& endpoint) {
    fleet::StoreAccess access;
    access.endpoints = {endpoint};
    access.insecure = true;
    return access;
}

// --worker ENDPOINT FIRST COUNT GENERATION: puts that many, and prints when the last one was acknowledged.
int work(const Words& words) {
    fleet::Store store(accessTo(words.at(0)));
    const int first = std::stoi(words.at(1));
    const int generation = std::stoi(words.at(3));
    for (int host = first; host < first + std::stoi(words.at(2)); ++host) {
        const std::string key = fleet::registryKey(fleet::DEFAULT_PREFIX, idOf(host));
        std::int64_t revision = 0;
        if (generation > 1) {
            std::vector<fleet::StoredValue> found;
            (void)store.get({key}, found);
            revision = found.at(0).modRevision;
        }
        if (!store.exchange(key, revision, valueOf(host, generation)).done) {
            giveUp("a value was not put");
        }
    }
    std::printf("%.6f\n", now());
    return 0;
}

// --watcher ENDPOINT COUNT: says that it looks on, and when it has seen so many changes.
int look(const Words& words) {
    fleet::Store store(accessTo(words.at(0)));
    const fleet::StoreHead head = store.count(std::string(fleet::DEFAULT_PREFIX));
    fleet::StoreWatch watch(store, std::string(fleet::DEFAULT_PREFIX), head.revision + 1, head);
    std::printf("looking\n");
    (void)std::fflush(stdout);
    for (long left = std::stol(words.at(1)); left > 0;) {
        const auto news = watch.next(60'000);
        left -= news ? static_cast<long>(news->events.size()) : 0;
    }
    std::printf("%.6f\n", now());
    return 0;
}

// --renewer ENDPOINT COUNT: renews a lease so often.
int renew(const Words& words) {
    fleet::Store store(accessTo(words.at(0)));
    const auto lease = store.grant(600);
    for (long left = std::stol(words.at(1)); left > 0; --left) {
        (void)store.renew(lease.id);
    }
    return 0;
}

// --- processes ---------------------------------------------------------------------------------------------------

// A program with its standard output in a pipe.
class Child {
public:
    explicit Child(const Words& words) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            giveUp("there is no pipe");
        }
        std::vector<char*> arguments;
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        (void)posix_spawn_file_actions_init(&actions);
        (void)posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        const int failed = posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ);
        (void)posix_spawn_file_actions_destroy(&actions);
        (void)::close(ends[1]);
        output_ = ::fdopen(ends[0], "r");
        if (failed != 0 || output_ == nullptr) {
            giveUp(words[0] + " does not start");
        }
    }
    ~Child() { (void)std::fclose(output_); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // A line of its output, without its end.
    std::string line() {
        char text[256] = "";
        if (std::fgets(text, sizeof text, output_) == nullptr) {
            giveUp("a process said nothing");
        }
        return std::string(text).substr(0, std::string(text).find('\n'));
    }
    // Waits for its end, with all that it still has to say; its greatest size in MB.
    double finish(int expected = 0) {
        char text[65536];
        while (std::fread(text, 1, sizeof text, output_) > 0) {
        }
        rusage usage{};
        int status = 0;
        if (::wait4(pid_, &status, 0, &usage) != pid_ || !WIFEXITED(status) || WEXITSTATUS(status) != expected) {
            giveUp(fmt::format("a process ended with {:#x}", status));
        }
        return static_cast<double>(usage.ru_maxrss) / 1024;
    }
    [[nodiscard]] pid_t pid() const { return pid_; }

private:
    pid_t pid_ = 0;
    std::FILE* output_ = nullptr;
};

std::string self() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

// Seconds of processor that a process has had.
double processorTime(pid_t process) {
    std::ifstream stream(fmt::format("/proc/{}/stat", process));
    std::string text;
    std::getline(stream, text);
    std::istringstream words(text.substr(text.rfind(')') + 2));
    std::string word;
    double ticks = 0;
    constexpr int USER = 11;
    constexpr int SYSTEM = 12;
    for (int i = 0; i <= SYSTEM && words >> word; ++i) {
        ticks += i == USER || i == SYSTEM ? std::stod(word) : 0;
    }
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double residentMegabytes(pid_t process) {
    std::ifstream stream(fmt::format("/proc/{}/statm", process));
    long all = 0;
    long resident = 0;
    stream >> all >> resident;
    return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// --- the rows ----------------------------------------------------------------------------------------------------

struct Published {
    double seconds = 0;  // until the last one was acknowledged
    double seen = 0;     // after that, until a watch had seen it; it may have been first
};

Published publish(const std::string& endpoint, int hosts, int processes, int generation) {
    Child watcher({self(), "--watcher", endpoint, std::to_string(hosts)});
    (void)watcher.line();
    const double start = now();
    std::vector<std::unique_ptr<Child>> workers;
    for (int i = 0; i < processes; ++i) {
        const int first = hosts / processes * i;
        workers.push_back(
            std::make_unique<Child>(Words{self(), "--worker", endpoint, std::to_string(first),
                                          std::to_string(hosts / processes), std::to_string(generation)}));
    }
    double last = 0;
    for (const auto& worker : workers) {
        last = std::max(last, std::stod(worker->line()));
        (void)worker->finish();
    }
    const double seen = std::stod(watcher.line());
    (void)watcher.finish();
    return {last - start, seen - last};
}

struct Asked {
    double seconds = 0;  // the median
    double megabytes = 0;
};

// What genreg-fleet takes for it as a whole process.
Asked ask(const std::string& settings, const Words& question) {
    constexpr int ROUNDS = 5;
    measure::Times times;
    Asked asked;
    for (int i = 0; i < ROUNDS; ++i) {
        Words words{GENREG_FLEET, "--config", settings, "-q"};
        words.insert(words.end(), question.begin(), question.end());
        const double start = now();
        asked.megabytes = std::max(asked.megabytes, Child(words).finish());
        times.push_back(now() - start);
    }
    asked.seconds = measure::median(times);
    return asked;
}

void heading() {
    std::printf("%-34s %7s %9s\n", "fleet", "hosts", "processes");
}

void row(const std::string& what, int hosts, const std::string& processes, const std::string& result) {
    std::printf("%-34s %7d %9s %s\n", what.c_str(), hosts, processes.c_str(), result.c_str());
    (void)std::fflush(stdout);
}

void publishRows(const EtcdServers& servers, int hosts, int processes, int generation) {
    const Published published = publish(servers.endpoint(), hosts, processes, generation);
    row(generation == 1 ? "publish for the first time" : "publish a change", hosts, std::to_string(processes),
        fmt::format("{:.0f} a second", hosts / published.seconds));
    row("  the last one seen by a watch", hosts, std::to_string(processes),
        fmt::format("{:+.1f} ms from its answer", published.seen * 1000));
}

void viewerRows(const std::string& settings, int hosts) {
    for (const auto& [name, question] : {std::pair<const char*, Words>("viewer: hosts", {"hosts"}),
                                         {"viewer: find, one of them", {"find", "instance", "instanceName=host7"}},
                                         {"viewer: count", {"count", "instance", "versionCode"}}}) {
        const Asked asked = ask(settings, question);
        row(name, hosts, "", fmt::format("{:.2f} s, {:.0f} MB", asked.seconds, asked.megabytes));
    }
}

// What a publisher is in memory when it has published and waits.
void publisherRow(const measure::Scratch& scratch, const EtcdServers& servers) {
    const std::string settings = scratch.path() + "/publisher.conf";
    std::ofstream(settings) << "endpoints = " << servers.endpoint()
                            << "\ninsecure = yes\nprefix = /publisher/\nstate = " << scratch.path()
                            << "/state\nregistries = " << scratch.path() << "/global.reg\n";
    (void)Child(
        {GENREG_TOOL, "-q", "--registry", scratch.path() + "/global.reg", "instance", "set", "RVN", "9.7.0.2", "inst1"})
        .finish();
    (void)Child({GENREG_FLEET, "--config", settings, "-q", "enrol"}).finish();
    Child publisher({GENREG_FLEET, "--config", settings, "publish"});
    fleet::Store store(accessTo(servers.endpoint()));
    while (store.count("/publisher/").count < 2) {
        (void)::usleep(20'000);
    }
    const double megabytes = residentMegabytes(publisher.pid());
    (void)::kill(publisher.pid(), SIGTERM);
    (void)publisher.finish();
    row("publisher: at rest", 1, "1", fmt::format("{:.0f} MB", megabytes));
}

double databaseBytes(const EtcdServers& servers) {
    std::string said;
    if (!servers.control("endpoint status --write-out=json", &said)) {
        giveUp(said);
    }
    const std::string member = "\"dbSize\":";
    return std::stod(said.substr(said.find(member) + member.size()));
}

// What a day is made of: a change of every host, and its lease renewed twice a minute.
void costRows(const EtcdServers& servers, int hosts) {
    const pid_t store = servers.process();
    double before = processorTime(store);
    const double bytes = databaseBytes(servers);
    (void)publish(servers.endpoint(), hosts, 1, 2);
    const double put = (processorTime(store) - before) / hosts;
    row("store: space for a change", hosts, "",
        fmt::format("{:.1f} kB", (databaseBytes(servers) - bytes) / hosts / 1024));
    constexpr int RENEWALS = 5000;
    before = processorTime(store);
    (void)Child({self(), "--renewer", servers.endpoint(), std::to_string(RENEWALS)}).finish();
    const double renewal = (processorTime(store) - before) / RENEWALS;
    const double renewals = SECONDS_PER_DAY / LEASE_RENEWAL;
    row("store: a day, a change a host", hosts, "",
        fmt::format("{:.0f} s of processor ({:.0f} us a put, {:.0f} us a renewal)", hosts * (put + renewals * renewal),
                    put * 1e6, renewal * 1e6));
}

void rowsOf(int hosts) {
    const measure::Scratch scratch;
    const std::string settings = scratch.path() + "/viewer.conf";
    std::filesystem::create_directory(scratch.path() + "/memory");
    (void)::setenv("XDG_STATE_HOME", (scratch.path() + "/memory").c_str(), 1);
    for (const int processes : {1, 50}) {
        const std::string folder = scratch.path() + "/etcd" + std::to_string(processes);
        std::filesystem::create_directory(folder);
        const EtcdServers servers(folder);
        std::ofstream(settings) << "endpoints = " << servers.endpoint() << "\ninsecure = yes\n";
        publishRows(servers, hosts, processes, 1);
        if (processes == 1) {
            continue;
        }
        viewerRows(settings, hosts);
        publisherRow(scratch, servers);
        costRows(servers, hosts);
    }
}

}  // namespace

int main(int count, char** arguments) {
    const std::string first = count > 1 ? arguments[1] : "";
    const Words rest(arguments + std::min(count, 2), arguments + count);
    try {
        if (first == "--worker") {
            return work(rest);
        }
        if (first == "--watcher") {
            return look(rest);
        }
        if (first == "--renewer") {
            return renew(rest);
        }
        const std::string why = EtcdServers::whyNot();
        if (!why.empty()) {
            std::printf("(left out: %s)\n", why.c_str());
            return 0;
        }
        heading();
        rowsOf(1000);
        rowsOf(10000);
    } catch (const std::exception& error) {
        giveUp(error.what());
    }
    return 0;
}

#include "support/Etcd.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

// Of a machine that has much else to do.
constexpr std::chrono::seconds PATIENCE{60};

sockaddr_in loopback(unsigned int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// Below those that the system gives to connections: a client that tries a dead server again and again would be given
// the server's port one day, and be connected with itself.
unsigned int freePort() {
    static std::mt19937 random{std::random_device{}()};
    for (;;) {
        const unsigned int port = std::uniform_int_distribution<unsigned int>(10000, 32000)(random);
        const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(port);
        const bool free = ::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::close(probe);
        if (free) {
            return port;
        }
    }
}

// The answer of a plain HTTP server of this machine, head and all; empty: none in a second.
std::string fetch(unsigned int port, const std::string& path) {
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit = {1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const sockaddr_in address = loopback(port);
    const std::string request = "GET " + path + " HTTP/1.0\r\n\r\n";
    std::string answer;
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(connection, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
        char buffer[4096];
        for (ssize_t count = 0; (count = ::recv(connection, buffer, sizeof buffer, 0)) > 0;) {
            answer.append(buffer, static_cast<std::size_t>(count));
        }
    }
    ::close(connection);
    return answer;
}

bool run(const std::string& command, std::string* said) {
    FILE* const output = ::popen((command + " 2>&1 < /dev/null").c_str(), "re");
    std::string all;
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, output)) > 0;) {
        all.append(buffer, count);
    }
    if (said != nullptr) {
        *said = all;
    }
    return ::pclose(output) == 0;
}

void mustRun(const std::string& command) {
    std::string said;
    if (!run(command, &said)) {
        throw std::runtime_error(command + ": " + said);
    }
}

}  // namespace

Certificates::Certificates(std::string folder) : folder_(std::move(folder)) {
    mustRun(
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=authority "
        "-keyout " +
        path("ca.key") + " -out " + authority());
    add("server");
    add("root");
}

void Certificates::add(const std::string& name, const std::string& names) const {
    addFor("/CN=" + name, name, names);
}

void Certificates::addFor(const std::string& subject, const std::string& name, const std::string& names) const {
    mustRun("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj " + subject +
            " -addext basicConstraints=critical,CA:FALSE -addext subjectAltName=" + names + " -CA " + authority() +
            " -CAkey " + path("ca.key") + " -keyout " + key(name) + " -out " + certificate(name));
}

std::string EtcdServers::whyNot() {
    for (const char* const program : {"etcd", "etcdctl", "openssl"}) {
        if (!run(std::string("command -v ") + program, nullptr)) {
            return std::string("there is no ") + program + " here";
        }
    }
    return {};
}

EtcdServers::EtcdServers(std::string folder, Options options)
    : folder_(std::move(folder)), options_(std::move(options)), members_(options_.members) {
    // Somebody else may take a port before it is used.
    for (int attempt = 1;; ++attempt) {
        choosePorts();
        try {
            for (unsigned int member = 0; member < options_.members; ++member) {
                launch(member);
            }
            for (unsigned int member = 0; member < options_.members; ++member) {
                awaitHealth(member);
            }
            return;
        } catch (const std::runtime_error&) {
            for (unsigned int member = 0; member < options_.members; ++member) {
                kill(member);
                wipe(member);
            }
            if (attempt == 3) {
                throw;
            }
        }
    }
}

EtcdServers::~EtcdServers() {
    for (unsigned int member = 0; member < options_.members; ++member) {
        kill(member);
    }
}

std::string EtcdServers::endpoint(unsigned int member) const {
    return "127.0.0.1:" + std::to_string(members_[member].port);
}

std::vector<std::string> EtcdServers::endpoints() const {
    std::vector<std::string> all;
    for (unsigned int member = 0; member < options_.members; ++member) {
        all.push_back(endpoint(member));
    }
    return all;
}

void EtcdServers::choosePorts() {
    for (Member& member : members_) {
        member.port = freePort();
        member.peerPort = freePort();
        member.toldPeerPort = options_.peerPort ? options_.peerPort(member.peerPort) : member.peerPort;
        member.healthPort = freePort();
    }
}

std::string EtcdServers::place(unsigned int member) const {
    return folder_ + "/etcd-" + std::to_string(member);
}

std::vector<std::string> EtcdServers::arguments(unsigned int member) const {
    const auto url = [](unsigned int port) { return "http://127.0.0.1:" + std::to_string(port); };
    std::string cluster;
    for (unsigned int other = 0; other < options_.members; ++other) {
        cluster += (other == 0 ? "m" : ",m") + std::to_string(other) + "=" + url(members_[other].toldPeerPort);
    }
    const std::string clients = (options_.certificates != nullptr ? "https://" : "http://") + endpoint(member);
    std::vector<std::string> all = {"etcd", "--name", "m" + std::to_string(member), "--data-dir", place(member)};
    const auto add = [&](const char* flag, const std::string& value) {
        all.emplace_back(flag);
        all.push_back(value);
    };
    add("--listen-client-urls", clients);
    add("--advertise-client-urls", clients);
    add("--listen-peer-urls", url(members_[member].peerPort));
    add("--initial-advertise-peer-urls", url(members_[member].toldPeerPort));
    add("--initial-cluster", cluster);
    add("--listen-metrics-urls", url(members_[member].healthPort));
    add("--logger", "zap");
    if (options_.certificates != nullptr) {
        all.emplace_back("--client-cert-auth");
        add("--trusted-ca-file", options_.certificates->authority());
        add("--cert-file", options_.certificates->certificate(options_.server));
        add("--key-file", options_.certificates->key(options_.server));
    }
    all.insert(all.end(), options_.flags.begin(), options_.flags.end());
    return all;
}

void EtcdServers::launch(unsigned int member) {
    std::vector<std::string> texts = arguments(member);
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    const std::string log = place(member) + ".log";
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child == 0) {
        // A group of its own keeps a terminal's Ctrl+C from it, which is for the parent.
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            ::_exit(127);
        }
        const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        ::dup2(output, STDOUT_FILENO);
        ::dup2(output, STDERR_FILENO);
        ::close_range(STDERR_FILENO + 1, ~0U, 0);
        ::execvp(pointers[0], pointers.data());
        ::_exit(127);
    }
    if (child < 0) {
        throw std::runtime_error("etcd cannot be started: fork");
    }
    ::setpgid(child, child);
    members_[member].process = child;
}

bool EtcdServers::ended(unsigned int member) {
    pid_t& process = members_[member].process;
    if (process > 0 && ::waitpid(process, nullptr, WNOHANG) == process) {
        process = -1;
    }
    return process < 0;
}

bool EtcdServers::healthy(unsigned int member) const {
    return fetch(members_[member].healthPort, "/health").find(R"("health":"true")") != std::string::npos;
}

int EtcdServers::leader() const {
    for (unsigned int member = 0; member < options_.members; ++member) {
        if (fetch(members_[member].healthPort, "/metrics").find("\netcd_server_is_leader 1") != std::string::npos) {
            return static_cast<int>(member);
        }
    }
    return -1;
}

void EtcdServers::awaitHealth(unsigned int member) {
    const auto limit = Clock::now() + PATIENCE;
    while (!healthy(member)) {
        if (ended(member) || Clock::now() > limit) {
            throw std::runtime_error("etcd does not answer:\n" + endOfLog(member));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::string EtcdServers::endOfLog(unsigned int member) const {
    std::ifstream file(place(member) + ".log");
    const std::string all{std::istreambuf_iterator<char>(file), {}};
    return all.size() > 2000 ? all.substr(all.size() - 2000) : all;
}

void EtcdServers::kill(unsigned int member) {
    pid_t& process = members_[member].process;
    if (process > 0) {
        ::kill(-process, SIGKILL);
        ::waitpid(process, nullptr, 0);
        process = -1;
    }
}

void EtcdServers::pause(unsigned int member) {
    ::kill(members_[member].process, SIGSTOP);
    // It is done when it is said to be.
    ::waitpid(members_[member].process, nullptr, WUNTRACED);
}

void EtcdServers::resume(unsigned int member) {
    ::kill(members_[member].process, SIGCONT);
}

void EtcdServers::start(unsigned int member) {
    launch(member);
    awaitHealth(member);
}

void EtcdServers::wipe(unsigned int member) {
    std::filesystem::remove_all(place(member));
}

bool EtcdServers::control(const std::string& arguments, std::string* said, unsigned int member) const {
    std::string command = "ETCDCTL_API=3 etcdctl --endpoints=" + endpoint(member);
    if (options_.certificates != nullptr) {
        command += " --cacert=" + options_.certificates->authority() +
                   " --cert=" + options_.certificates->certificate("root") +
                   " --key=" + options_.certificates->key("root");
    }
    return run(command + " " + arguments, said);
}

void EtcdServers::must(const std::string& arguments) const {
    std::string said;
    if (!control(arguments, &said)) {
        throw std::runtime_error("etcdctl " + arguments + ": " + said);
    }
}

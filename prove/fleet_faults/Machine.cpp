#include "prove/fleet_faults/Machine.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <thread>

#include "base/Failure.h"
#include "mirror/Keys.h"
#include "prove/support/Folder.h"
#include "prove/support/Place.h"
#include "settings/Identity.h"
#include "tests/support/BuiltTool.h"

namespace prove {
namespace {

constexpr int CANNOT_RUN = 127;
constexpr int TRIES = 500;  // of 20 ms

int statusOf(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Of the first record.
std::string textOf(const fleet::HostValue& value) {
    for (const fleet::MirroredRegistry& registry : value.registries) {
        for (const tool::Json& record : registry.records) {
            return record.value("comment", "");
        }
    }
    return "";
}

}  // namespace

ToolRun runFleet(const std::string& settings, const Words& words) {
    Words all = {"--config", settings};
    all.insert(all.end(), words.begin(), words.end());
    return runTool(BUILT_FLEET, all);
}

Background::Background(const std::string& program, const Words& words, const std::string& log) : log_(log) {
    std::vector<char*> arguments{const_cast<char*>(program.c_str())};
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t parent = ::getpid();
    process_ = ::fork();
    if (process_ == 0) {
        (void)::setpgid(0, 0);
        (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            ::_exit(CANNOT_RUN);
        }
        const int nowhere = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        (void)::dup2(nowhere, STDIN_FILENO);
        (void)::dup2(output, STDOUT_FILENO);
        (void)::dup2(output, STDERR_FILENO);
        (void)::execv(arguments[0], arguments.data());
        ::_exit(CANNOT_RUN);
    }
    if (process_ < 0) {
        throw std::runtime_error("fork");
    }
}

Background::~Background() {
    kill();
}

void Background::signal(int number) const {
    if (!status_) {
        (void)::kill(process_, number);
    }
}

std::optional<int> Background::ended() {
    int status = 0;
    if (!status_ && ::waitpid(process_, &status, WNOHANG) == process_) {
        status_ = statusOf(status);
    }
    return status_;
}

std::optional<int> Background::end() {
    signal(SIGTERM);
    for (int tries = 0; tries < TRIES && !ended(); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const auto status = ended();
    kill();
    return status;
}

void Background::kill() {
    if (!ended()) {
        signal(SIGKILL);
        int status = 0;
        (void)::waitpid(process_, &status, 0);
        status_ = statusOf(status);
    }
}

std::string Background::log() const {
    return bytesOf(log_).value_or("");
}

std::size_t Background::entriesOf(const char* what) const {
    return namesIn("/proc/" + std::to_string(process_) + "/" + what).size();
}

Machine::Machine(std::string folder, std::string name, const std::string& store)
    : folder_(std::move(folder)), name_(std::move(name)) {
    std::filesystem::create_directories(folder_ + "/registry");
    use(store);
    (void)write("first");
}

void Machine::use(const std::string& store, const std::string& times) {
    (void)putBytes(settings(),
                   store + "state = state\nname = " + name_ + "\nregistries = " + registry() + "\n" + times);
}

void Machine::enrol() {
    const ToolRun run = fleet({"-q", "enrol"});
    id_ = run.out.substr(0, run.out.find('\n'));
    if (!fleet::isHostId(id_)) {
        throw std::runtime_error("enrol: " + run.err);
    }
}

double Machine::write(const std::string& text) {
    const auto begin = std::chrono::steady_clock::now();
    const ToolRun run = runTool(
        BUILT_TOOL, {"-q", "--registry", registry(), "instance", "set", "RVN", "9.7.0.2", "inst1", "comment=" + text});
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    if (run.status != 0) {
        throw std::runtime_error("a registry cannot be written: " + run.err);
    }
    text_ = text;
    traces_ = traces();
    return taken.count();
}

std::string Machine::traces() const {
    std::string all;
    for (const std::string& name : namesIn(folder_ + "/registry")) {
        const std::string path = folder_ + "/registry/" + name;
        struct stat info = {};
        (void)::stat(path.c_str(), &info);
        all += name + " " + std::to_string(info.st_ino) + " " + std::to_string(info.st_mtim.tv_sec) + "." +
               std::to_string(info.st_mtim.tv_nsec) + " " + bytesOf(path).value_or("") + "\n";
    }
    return all;
}

std::string Machine::wrongWithFiles() const {
    if (const std::string now = traces(); now != traces_) {
        return name_ + ": the registry was touched: " + now + " before: " + traces_;
    }
    for (const std::string& name : namesIn(stateFolder())) {
        if (name != "host" && name != ".host.lock" && name != ".host.bkp" && name != "publisher.lck") {
            return name_ + ": a stray file in the state folder: " + name;
        }
    }
    return "";
}

void Machine::start() {
    publisher_ = std::make_unique<Background>(BUILT_FLEET, Words{"--config", settings(), "publish"}, folder_ + "/log");
}

std::uint64_t Machine::acknowledged() const {
    return std::max(seen_, fleet::readIdentity(stateFolder()).confirmed.sequence);
}

void Machine::saw(std::uint64_t sequence) {
    seen_ = std::max(seen_, sequence);
}

Mirrored mirroredOf(fleet::Store& store, const Machine& machine) {
    const std::string prefix(fleet::DEFAULT_PREFIX);
    std::vector<fleet::StoredValue> found;
    (void)store.get({fleet::registryKey(prefix, machine.id()), fleet::aliveKey(prefix, machine.id())}, found);
    Mirrored mirrored;
    for (const fleet::StoredValue& each : found) {
        try {
            if (each.key == fleet::aliveKey(prefix, machine.id())) {
                mirrored.sign = fleet::decodeAlive(each.value);
                mirrored.alive = mirrored.sign.clash.empty();
            } else {
                mirrored.revision = each.modRevision;
                const fleet::HostValue value = fleet::decode(each.value, machine.id());
                mirrored.sequence = value.sequence;
                mirrored.text = textOf(value);
            }
        } catch (const tool::Failure& failure) {
            mirrored.damage = failure.message;
        }
    }
    return mirrored;
}

}  // namespace prove

#include "Place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/System.h"

namespace prove {
namespace {

constexpr const char* BASE_NAME = "settings";
constexpr std::size_t HEADER_SIZE = 32;

}  // namespace

Place::Place(std::string directory, const Scenario& scenario) : directory_(std::move(directory)), scenario_(scenario) {
    registry_ = directory_ + (scenario.missingDirectory ? "/made/" : scenario.linked ? "/real/" : "/") + BASE_NAME;
    named_ = scenario.linked ? directory_ + "/" + BASE_NAME : registry_;
}

std::string Place::hidden(const char* suffix) const {
    const std::filesystem::path path(registry_);
    return path.parent_path() / ("." + path.filename().string() + suffix);
}

std::string Place::backup() const {
    return hidden(".bkp");
}

std::string Place::lock() const {
    return hidden(".lock");
}

void Place::layOut() const {
    namespace fs = std::filesystem;
    fs::remove_all(directory_);
    fs::create_directories(scenario_.missingDirectory ? fs::path(directory_) : fs::path(registry_).parent_path());
    if (scenario_.linked) {
        fs::create_symlink(registry_, named_);
    }
    const auto write = [](const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    };
    if (scenario_.before.present) {
        write(registry_, scenario_.bytes(scenario_.before));
    }
    if (scenario_.staleCopies) {
        write(temporary(), "a copy that somebody left");
        write(setAside(), "an older one, set aside");
    }
}

std::set<std::string> Place::files() const {
    std::set<std::string> names;
    const std::filesystem::path folder = std::filesystem::path(registry_).parent_path();
    if (std::filesystem::exists(folder)) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.insert(entry.path().string());
        }
    }
    return names;
}

std::optional<std::string> bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool isFree(const std::string& path, Claim claim) {
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor == -1) {
        return true;
    }
    const auto wanted = claim == Claim::Exclusive ? platform::FileLock::Exclusive : platform::FileLock::Shared;
    const bool got = platform::lockWholeFile(descriptor, wanted, false) == 0;
    (void)::close(descriptor);
    return got;
}

State stateOf(const Place& place, const Scenario& scenario) {
    const std::optional<std::string> found = bytesOf(place.registry());
    if (!found) {
        return scenario.before.present ? State::Other : State::Old;
    }
    const std::string before = scenario.bytes(scenario.before);
    const std::string after = scenario.bytes(scenario.after(scenario.before, scenario.operation));
    if (*found == after) {
        return State::New;
    }
    if (!scenario.before.present) {
        return found->empty() ? State::Empty : State::Other;
    }
    if (*found == before) {
        return State::Old;
    }
    const bool stamped = scenario.before.stamped && scenario.appendsInPlace();
    if (stamped && *found == before.substr(0, HEADER_SIZE) + after.substr(HEADER_SIZE)) {
        return State::Misfit;
    }
    return State::Other;
}

const char* stateText(State state) {
    switch (state) {
        case State::Old:
            return "old";
        case State::New:
            return "new";
        case State::Empty:
            return "empty";
        case State::Misfit:
            return "new under the old header";
        default:
            return "neither old nor new";
    }
}

}  // namespace prove

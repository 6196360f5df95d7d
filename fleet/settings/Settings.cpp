#include "settings/Settings.h"

#include <fmt/core.h>
#include <genreg/GenRegVarVal.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "base/DiskFiles.h"
#include "base/Text.h"
#include "mirror/Keys.h"
#include "system/System.h"

namespace fleet {
namespace {

constexpr char DEFAULT_STATE_FOLDER[] = "/var/lib/genreg-fleet";
constexpr int LEAST_LEASE = 2;
constexpr int MOST_SECONDS = 24 * 60 * 60;

// A line of the file, with what its failures say.
class Line {
public:
    Line(std::string path, std::size_t number, std::string key, std::string value)
        : path_(std::move(path)), number_(number), key_(std::move(key)), value_(std::move(value)) {
        if (value_.size() > 1 && value_.starts_with('"') && value_.ends_with('"')) {
            value_ = value_.substr(1, value_.size() - 2);
        }
    }

    [[nodiscard]] const std::string& key() const { return key_; }
    [[nodiscard]] const std::string& value() const { return value_; }

    [[nodiscard]] tool::Failure refused(const std::string& message, std::string hint) const {
        tool::Failure failure;
        failure.kind = "invalid";
        failure.exitStatus = tool::EXIT_INVALID;
        failure.path = path_;
        failure.message = fmt::format("{}, line {}: {}", tool::printable(path_), number_, message);
        failure.hint = std::move(hint);
        return failure;
    }

    // Of blanks or commas.
    [[nodiscard]] std::vector<std::string> words() const {
        std::vector<std::string> words;
        for (std::size_t at = 0; at < value_.size();) {
            const std::size_t end = std::min(value_.find_first_of(" \t,", at), value_.size());
            if (end != at) {
                words.push_back(value_.substr(at, end - at));
            }
            at = end + 1;
        }
        return words;
    }

    [[nodiscard]] bool truth() const {
        if (value_ == "yes" || value_ == "no") {
            return value_ == "yes";
        }
        throw refused(fmt::format("{} is {}", key_, tool::cell(value_)), "yes or no");
    }

    [[nodiscard]] int seconds(int least) const {
        int number = 0;
        const char* const end = value_.data() + value_.size();
        const auto [at, error] = std::from_chars(value_.data(), end, number);
        if (error != std::errc() || at != end || number < least || number > MOST_SECONDS) {
            throw refused(fmt::format("{} is {}", key_, tool::cell(value_)),
                          fmt::format("a number of seconds from {} to {}", least, MOST_SECONDS));
        }
        return number;
    }

    // Beside the settings, or among what the service manager handed over.
    [[nodiscard]] std::string path() const {
        if (value_.empty()) {
            throw refused(fmt::format("{} is empty", key_), "the path of a file");
        }
        if (value_.starts_with('/')) {
            return value_;
        }
        if (const char* const credentials = std::getenv("CREDENTIALS_DIRECTORY")) {
            std::string handed = std::string(credentials) + "/" + value_;
            if (std::filesystem::exists(handed)) {
                return handed;
            }
        }
        return tool::folderOf(path_) + "/" + value_;
    }

private:
    std::string path_;
    std::size_t number_;
    std::string key_;
    std::string value_;
};

// A list of paths goes on in words; a blank within one has no way to be told, and is not needed.
std::vector<std::string> registriesOf(const Line& line) {
    std::vector<std::string> paths = line.words();
    for (const std::string& path : paths) {
        if (!path.starts_with('/')) {
            throw line.refused(fmt::format("{} is no full path", tool::cell(path)), "one that begins with /");
        }
    }
    return paths;
}

std::string passwordIn(const std::string& path) {
    std::string password = tool::readFile(path, "read the password");
    password.erase(std::min(password.find('\n'), password.size()));
    return password;
}

struct Key {
    std::string_view name;
    void (*take)(Settings& settings, const Line& line);
};

constexpr Key KEYS[] = {
    {"endpoints", [](Settings& settings, const Line& line) { settings.access.endpoints = line.words(); }},
    {"ca", [](Settings& settings, const Line& line) { settings.access.ca = line.path(); }},
    {"certificate", [](Settings& settings, const Line& line) { settings.access.certificate = line.path(); }},
    {"key", [](Settings& settings, const Line& line) { settings.access.key = line.path(); }},
    {"user", [](Settings& settings, const Line& line) { settings.access.user = line.value(); }},
    {"password-file", [](Settings& settings, const Line& line) { settings.access.password = passwordIn(line.path()); }},
    {"insecure", [](Settings& settings, const Line& line) { settings.access.insecure = line.truth(); }},
    {"prefix", [](Settings& settings, const Line& line) { settings.prefix = line.value(); }},
    {"registries", [](Settings& settings, const Line& line) { settings.registries = registriesOf(line); }},
    {"lease", [](Settings& settings, const Line& line) { settings.leaseSeconds = line.seconds(LEAST_LEASE); }},
    {"compare-every", [](Settings& settings, const Line& line) { settings.compareSeconds = line.seconds(1); }},
    {"state", [](Settings& settings, const Line& line) { settings.stateFolder = line.path(); }},
    {"name", [](Settings& settings, const Line& line) { settings.hostName = line.value(); }},
};

void take(Settings& settings, const Line& line) {
    for (const Key& key : KEYS) {
        if (key.name == line.key()) {
            key.take(settings, line);
            return;
        }
    }
    std::vector<std::string> names;
    for (const Key& key : KEYS) {
        names.emplace_back(key.name);
    }
    const std::string meant = tool::nearest(line.key(), names);
    throw line.refused(fmt::format("there is no setting {}", tool::cell(line.key())),
                       meant.empty() ? "man genreg-fleet has them all" : fmt::format("{} = ...", meant));
}

void readLines(Settings& settings) {
    const std::string bytes = tool::readFile(settings.path, "read the settings");
    std::set<std::string> seen;
    auto record = std::make_unique<GenRegVarValRecord>();
    for (const tool::FileLine& line : tool::fileLines(bytes, false)) {
        std::string text(line.bytes);
        text.erase(std::min(text.find_last_not_of("\r\n") + 1, text.size()));
        const bool fits = text.size() < sizeof record->lineText - 1 && text.find('\0') == std::string::npos;
        if (!fits || GenRegVarVal::ParseLine(record.get(), text.c_str()) != 0) {
            throw Line(settings.path, line.number, "", "").refused("this is no line \"key = value\"", "");
        }
        if ((record->contains & VARVAL_HAS_PAIR) == 0) {
            continue;
        }
        const Line read(settings.path, line.number, record->variable, record->value);
        if (!seen.insert(read.key()).second) {
            throw read.refused(fmt::format("{} is there twice", tool::cell(read.key())), "leave one of them");
        }
        take(settings, read);
    }
}

bool isLoopback(const std::string& endpoint) {
    const std::string host = endpoint.substr(0, endpoint.rfind(':'));
    return host == "localhost" || host == "[::1]" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos);
}

void check(const Settings& settings) {
    const auto refused = [&](const std::string& message, std::string hint) {
        tool::Failure failure;
        failure.kind = "invalid";
        failure.exitStatus = tool::EXIT_INVALID;
        failure.path = settings.path;
        failure.message = fmt::format("{}: {}", tool::printable(settings.path), message);
        failure.hint = std::move(hint);
        return failure;
    };
    const StoreAccess& access = settings.access;
    if (access.endpoints.empty()) {
        throw refused("there are no endpoints", "endpoints = HOST:PORT HOST:PORT ...");
    }
    for (const std::string& endpoint : access.endpoints) {
        const std::size_t colon = endpoint.rfind(':');
        if (colon == std::string::npos || colon == 0 || colon + 1 == endpoint.size() ||
            endpoint.find_first_not_of("0123456789", colon + 1) != std::string::npos ||
            endpoint.find('/') != std::string::npos) {
            throw refused(fmt::format("{} is no endpoint", tool::cell(endpoint)), "HOST:PORT, without https://");
        }
        if (access.insecure && !isLoopback(endpoint)) {
            throw refused(fmt::format("insecure = yes, and {} is not on this machine", tool::cell(endpoint)),
                          "ca, certificate and key; plaintext goes to 127.0.0.1, localhost or [::1] alone");
        }
    }
    const bool secured = !access.ca.empty() || !access.certificate.empty() || !access.key.empty();
    if (access.insecure && secured) {
        throw refused("insecure = yes beside ca, certificate or key", "leave one or the other");
    }
    if (!access.insecure && access.ca.empty()) {
        throw refused("there is no ca", "ca = FILE; or insecure = yes for a store on this machine");
    }
    if (access.certificate.empty() != access.key.empty()) {
        throw refused("certificate and key go together", "name both");
    }
    if (access.user.empty() != access.password.empty()) {
        throw refused("user and password-file go together", "name both");
    }
    if (!settings.prefix.starts_with('/') || !settings.prefix.ends_with('/') ||
        tool::printable(settings.prefix) != settings.prefix) {
        throw refused(fmt::format("prefix is {}", tool::cell(settings.prefix)), "it begins and ends with /");
    }
}

}  // namespace

Settings readSettings(const tool::Context& context) {
    Settings settings;
    settings.path = context.options.config.value_or(DEFAULT_SETTINGS);
    settings.prefix = DEFAULT_PREFIX;
    const char* const state = std::getenv("STATE_DIRECTORY");
    settings.stateFolder = state != nullptr && *state != '\0' ? state : DEFAULT_STATE_FOLDER;
    settings.hostName = tool::hostName();
    readLines(settings);
    check(settings);
    return settings;
}

}  // namespace fleet

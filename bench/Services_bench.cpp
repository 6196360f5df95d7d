// Looking a service up by name and protocol, beside the C library's getservbyname_r on the same file in the same run.
//
// Both sides do all of it every time: the library's object is constructed, the file opened, searched and closed. The
// files are bound over /etc/services in a private mount namespace, of root or of a user namespace; the entry that is
// asked for is the last of them.
#include <genreg/GenRegServices.h>
#include <netdb.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "Bare.h"
#include "Measure.h"

namespace {

constexpr const char* FILE_PATH = "/etc/services";

struct Entry {
    std::string name;
    std::string protocol;
};

bool finds(GenRegServices& services, const Entry& entry) {
    GenRegServicesRecord key;
    key.flags = SERVICES_HAS_NAME;
    key.name = const_cast<char*>(entry.name.c_str());
    key.protocol = const_cast<char*>(entry.protocol.c_str());
    GenRegServicesRecord found;
    return services.Get(SERVICES_MATCH_NAME | SERVICES_MATCH_PROTOCOL, &key, &found) == 0;
}

bool registryFinds(const Entry& entry) {
    unsigned int rc = 0;
    GenRegServices services(FILE_PATH, &rc);
    return finds(services, entry);
}

bool libraryFinds(const Entry& entry) {
    servent storage = {};
    servent* found = nullptr;
    char buffer[4096];
    return ::getservbyname_r(entry.name.c_str(), entry.protocol.c_str(), &storage, buffer, sizeof buffer, &found) ==
               0 &&
           found != nullptr;
}

void benchFile(int lines, const Entry& entry) {
    const bare::Paths paths("/etc", "services");
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(FILE_PATH));
    const auto bareGet = [&] { bare::get(paths, size, bare::lookAtLines); };
    measure::row({"service: look up", lines}, {{"limit", bareGet},
                                               {"library", [&] { bare::require(registryFinds(entry)); }},
                                               {"C library", [&] { bare::require(libraryFinds(entry)); }}});

    unsigned int rc = 0;
    GenRegServices keeps(FILE_PATH, &rc);
    measure::keptRow({"service: look up, kept", lines}, keeps, FILE_PATH, [&] { bare::require(finds(keeps, entry)); });
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

void benchSize(int lines) {
    const BoundFile file(lines);
    if (!file.isBound()) {
        std::printf("service: look up          %7d  left out: no private mount namespace to bind the file in\n", lines);
        return;
    }
    const int last = lines - 1;
    benchFile(lines, {"service" + std::to_string(last), last % 3 == 0 ? "udp" : "tcp"});
}

}  // namespace

int main(int count, char** arguments) {
    measure::begin(count, arguments);
    for (const int lines : {10, 100, 1000, 10000, 100000}) {
        benchSize(lines);
    }
    return 0;
}

// A commit without a registry: its calls, made with files of the tool's own.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "system/System.h"

namespace tool {
namespace {

class Rehearsal {
public:
    explicit Rehearsal(const std::string& folder) : folder_(folder) {}
    ~Rehearsal() {
        for (const std::string& file : made_) {
            (void)unlink(file.c_str());
        }
    }
    Rehearsal(const Rehearsal&) = delete;
    Rehearsal& operator=(const Rehearsal&) = delete;

    std::optional<FailedStep> run(std::size_t bytes) {
        std::string copy;
        std::string old;
        if (const int error = make(copy, bytes)) {
            return FailedStep{"write a file of " + std::to_string(bytes) + " bytes beside it", error};
        }
        if (const int error = make(old, 0)) {
            return FailedStep{"make a file beside it", error};
        }
        const std::string backup = old + ".bkp";
        if (link(old.c_str(), backup.c_str()) != 0) {
            return FailedStep{"give a file beside it a second name (a hard link)", errno};
        }
        made_.push_back(backup);
        if (rename(copy.c_str(), old.c_str()) != 0) {
            return FailedStep{"rename a file beside it over another", errno};
        }
        if (const int error = syncFolder()) {
            return FailedStep{"sync its folder", error};
        }
        if (unlink(backup.c_str()) != 0) {
            return FailedStep{"remove a file beside it", errno};
        }
        return std::nullopt;
    }

private:
    // A new file of so many bytes, on the medium.
    int make(std::string& path, std::size_t bytes) {
        path = folder_ + "/.genreg-check-XXXXXX";
        const int descriptor = mkstemp(path.data());
        if (descriptor < 0) {
            return errno;
        }
        made_.push_back(path);
        const std::string zeros(std::min<std::size_t>(bytes, 65536), '\0');
        int error = 0;
        for (std::size_t left = bytes; left > 0 && error == 0;) {
            const ssize_t written = write(descriptor, zeros.data(), std::min(left, zeros.size()));
            left -= written > 0 ? static_cast<std::size_t>(written) : 0;
            error = written < 0 && errno != EINTR ? errno : 0;
        }
        error = error == 0 && fsync(descriptor) != 0 ? errno : error;
        return close(descriptor) != 0 && error == 0 ? errno : error;
    }

    [[nodiscard]] int syncFolder() const {
        const int descriptor = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor < 0) {
            return 0;  // a folder that may not be read is left to the system
        }
        const int error = fsync(descriptor) != 0 && errno != EINVAL ? errno : 0;
        (void)close(descriptor);
        return error;
    }

    std::string folder_;
    std::vector<std::string> made_;
};

}  // namespace

std::optional<FailedStep> rehearseCommit(const std::string& folder, std::size_t bytes) {
    const HeldSignals signals;
    return Rehearsal(folder).run(bytes);
}

}  // namespace tool

#include "prove/support/Folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace prove {
namespace {

std::string makeFolder(const std::string& parent) {
    std::string pattern = parent + "/prove-XXXXXX";
    return ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
}

}  // namespace

Folder::Folder(bool inMemory) {
    if (inMemory) {
        path_ = makeFolder("/dev/shm");
    }
    if (path_.empty()) {
        const char* given = std::getenv("TMPDIR");
        path_ = makeFolder(given != nullptr && *given != '\0' ? given : "/tmp");
    }
    if (path_.empty()) {
        std::perror("a folder for the rig");
        std::abort();
    }
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void Folder::empty() const {
    std::error_code ignored;
    for (const std::string& name : namesIn(path_)) {
        std::filesystem::remove_all(file(name), ignored);
    }
}

Companions::Companions(const std::string& registry) {
    const std::size_t slash = registry.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : registry.substr(0, slash + 1);
    const std::string base = registry.substr(folder.size());
    lock = folder + "." + base + ".lock";
    backup = folder + "." + base + ".bkp";
    copy = registry + ".tmp";
    corrupt = registry + ".cor";
}

bool putBytes(const std::string& path, const std::string& bytes) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor == -1) {
        return false;
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t part = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        if (part <= 0) {
            break;
        }
        done += static_cast<std::size_t>(part);
    }
    return ::close(descriptor) == 0 && done == bytes.size();
}

std::string accessOf(const std::string& path) {
    struct stat info = {};
    if (::stat(path.c_str(), &info) != 0) {
        return "(gone)";
    }
    char text[64];
    (void)std::snprintf(text, sizeof text, "%o of %u:%u", info.st_mode, info.st_uid, info.st_gid);
    return text;
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<unsigned int> inChild(const std::function<unsigned int()>& body, unsigned int seconds) {
    int ends[2];
    if (::pipe(ends) != 0 || ::fcntl(ends[0], F_SETFD, FD_CLOEXEC) != 0 || ::fcntl(ends[1], F_SETFD, FD_CLOEXEC) != 0) {
        return std::nullopt;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::close(ends[0]);
        // The body may close or fill the low descriptors.
        const int report = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 100);
        (void)::alarm(seconds);
        const unsigned int code = body();
        ::_exit(::write(report, &code, sizeof code) == sizeof code ? 0 : 1);
    }
    (void)::close(ends[1]);
    unsigned int code = 0;
    const bool reported = child != -1 && ::read(ends[0], &code, sizeof code) == sizeof code;
    (void)::close(ends[0]);
    int status = 0;
    if (child == -1 || ::waitpid(child, &status, 0) != child || !reported || status != 0) {
        return std::nullopt;
    }
    return code;
}

int run(const std::vector<std::string>& words) {
    const pid_t child = ::fork();
    if (child == 0) {
        const int nowhere = ::open("/dev/null", O_RDWR);
        (void)::dup2(nowhere, STDIN_FILENO);
        (void)::dup2(nowhere, STDOUT_FILENO);
        (void)::dup2(nowhere, STDERR_FILENO);
        std::vector<char*> arguments;
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        (void)::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
        (void)::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    int status = 0;
    return child != -1 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace prove

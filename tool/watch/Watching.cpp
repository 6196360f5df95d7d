#include "watch/Watching.h"

#include <fmt/core.h>

#include <cerrno>

#include "base/DiskFiles.h"
#include "base/Failure.h"
#include "base/Text.h"

namespace tool {
namespace {

constexpr char LOCK_PATH[] = "/var/rvn/.fmcd.lock";
constexpr char OR_FOLLOW[] = ", or genreg watch --follow, which needs no lock";
constexpr mode_t LOCK_PERMISSIONS = 0644;

Failure heldBy(long pid) {
    Failure failure;
    failure.kind = "locked";
    failure.exitStatus = EXIT_LOCKED;
    failure.path = LOCK_PATH;
    failure.message = pid > 0 ? fmt::format("pid {} is the monitor already ({} is locked)", pid, LOCK_PATH)
                              : fmt::format("another process is the monitor already ({} is locked)", LOCK_PATH);
    failure.hint = "genreg watch --follow, which needs no lock";
    return failure;
}

}  // namespace

MonitorLock::MonitorLock(Output& output) {
    try {
        makeFolder(output, folderOf(LOCK_PATH));
    } catch (Failure& failure) {
        failure.hint += OR_FOLLOW;
        throw;
    }
    if (const int error = lock_.open(LOCK_PATH, LOCK_PERMISSIONS)) {
        Failure failure = systemFailure(error, LOCK_PATH, "become the monitor");
        const bool forbidden = error == EACCES || error == EPERM || error == EROFS;
        failure.hint = forbidden ? "run it as a user who may write there" : failure.hint;
        failure.hint += OR_FOLLOW;
        throw failure;
    }
    long holder = 0;
    const int error = lock_.take(&holder);
    if (error == EAGAIN) {
        throw heldBy(holder);
    }
    if (error != 0) {
        throw systemFailure(error, LOCK_PATH, "lock it");
    }
}

WatchedFiles::WatchedFiles(const std::vector<std::string>& paths) {
    std::string directory;
    if (const int error = watch(paths, &directory)) {
        throw directory.empty() ? systemFailure(error, paths.front(), "watch it")
                                : systemFailure(error, directory, "watch the directory");
    }
}

}  // namespace tool

#include "Blame.h"

#include <genreg/Codes.h>
#include <osse/Errors.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

namespace prove {
namespace {

constexpr std::size_t MOST_CODES = 6;

struct Blame {
    Subject subject;
    const char* call;
    std::array<unsigned int, MOST_CODES> codes;
};

// The steps of an operation that make such a call, and what each of them says when it fails. No other step may take the
// blame, nor may a call fail an operation that is not listed.
constexpr Blame BLAMES[] = {
    {Subject::Registry, "readlink", {REG_OPEN_LOCK_FAILED, REG_OPEN_FILE_FAILED}},
    {Subject::Registry, "openat", {REG_OPEN_FILE_FAILED, REG_CLOSE_FILE_FAILED}},  // the latter: to stamp an append
    {Subject::Registry,
     "fstatat",
     {REG_OPEN_FILE_FAILED, REG_FILE_INFO_FAILED, REG_SET_PERMISSIONS_FAILED, REG_FILE_SIZE_FAILED,
      REG_RECORD_WRITE_FAILED, REG_CLOSE_FILE_FAILED}},
    {Subject::Registry, "fcntl", {REG_LOCK_FILE_FAILED, REG_OPEN_FILE_FAILED}},
    {Subject::Registry, "flock", {REG_LOCK_FILE_FAILED}},
    {Subject::Registry, "lseek", {REG_OPEN_FILE_FAILED, REG_READ_FAILED, REG_SEEK_END_FAILED}},
    {Subject::Registry,
     "pread",
     {REG_READ_FAILED, REG_FRAME_LENGTH_READ_FAILED, REG_FRAME_PAYLOAD_READ_FAILED, REG_CHECKSUM_READ_FAILED,
      REG_RECORD_WRITE_FAILED, REG_CLOSE_FILE_FAILED}},
    {Subject::Registry, "write", {REG_RECORD_WRITE_FAILED}},
    {Subject::Registry, "pwrite", {REG_CLOSE_FILE_FAILED}},
    {Subject::Registry, "fsync", {REG_CLOSE_FILE_FAILED}},
    {Subject::Registry, "close", {REG_CLOSE_FILE_FAILED}},
    {Subject::Copy, "openat", {REG_OPEN_TMP_FAILED}},
    {Subject::Copy, "fcntl", {REG_OPEN_TMP_FAILED}},
    {Subject::Copy,
     "fstatat",
     {REG_SET_PERMISSIONS_FAILED, REG_FILE_INFO_FAILED, REG_CHECKSUM_READ_FAILED, REG_VERIFY_READ_FAILED}},
    {Subject::Copy, "fchmod", {REG_SET_PERMISSIONS_FAILED}},
    {Subject::Copy, "lseek", {REG_OPEN_TMP_FAILED, REG_SEEK_END_FAILED}},
    {Subject::Copy,
     "pread",
     {REG_VERIFY_READ_FAILED, REG_FRAME_LENGTH_READ_FAILED, REG_FRAME_PAYLOAD_READ_FAILED, REG_CHECKSUM_READ_FAILED}},
    {Subject::Copy, "write", {REG_COPY_WRITE_FAILED, REG_CLOSE_TMP_FAILED}},
    {Subject::Copy, "pwrite", {REG_COPY_WRITE_FAILED}},
    {Subject::Copy, "fsync", {REG_CLOSE_TMP_FAILED}},
    {Subject::Copy, "close", {REG_CLOSE_TMP_FAILED}},
    {Subject::Copy, "rename", {REG_RENAME_FAILED}},
    {Subject::SetAside, "unlink", {REG_DELETE_CORRUPT_FAILED}},
    {Subject::Backup, "unlink", {REG_CLOSE_FAILED}},
    {Subject::Lock, "openat", {REG_OPEN_LOCK_FAILED}},
    {Subject::Lock, "fstatat", {REG_OPEN_LOCK_FAILED}},
    {Subject::Lock, "fcntl", {REG_LOCK_HELD, REG_RELEASE_LOCK_FAILED, REG_ALREADY_LOCKED}},
    {Subject::Lock, "flock", {REG_LOCK_HELD, REG_RELEASE_LOCK_FAILED, REG_ALREADY_LOCKED}},
    {Subject::Lock, "close", {REG_CLOSE_LOCK_FAILED}},
    {Subject::Directory, "fstatat", {REG_CREATE_DIRECTORY_FAILED}},
    {Subject::Directory, "mkdir", {REG_CREATE_DIRECTORY_FAILED}},
    {Subject::Directory, "openat", {REG_CREATE_DIRECTORY_FAILED}},
    {Subject::Directory, "fsync", {REG_CREATE_DIRECTORY_FAILED}},
    {Subject::Directory, "linkat", {REG_BACKUP_FAILED}},
};

// The calls whose path is their first argument, and those whose path is their second, behind a descriptor.
constexpr const char* BY_PATH[] = {"rename", "unlink", "readlink", "mkdir"};
constexpr const char* BY_DIRECTORY_AND_PATH[] = {"openat", "fstatat"};

template <std::size_t N>
bool isOneOf(const std::string& name, const char* const (&names)[N]) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

std::string pathOf(pid_t child, const SystemCall& call) {
    const std::string name = callName(call.number);
    std::string path;
    if (isOneOf(name, BY_PATH)) {
        path = textAt(child, call.arguments[0]);
    } else if (isOneOf(name, BY_DIRECTORY_AND_PATH)) {
        path = textAt(child, call.arguments[1]);
    }
    return path.empty() ? descriptorPath(child, call.arguments[0]) : path;
}

}  // namespace

Subject subjectOf(pid_t child, const SystemCall& call, const Place& place) {
    const std::string path = pathOf(child, call);
    const struct {
        std::string path;
        Subject subject;
    } known[] = {{place.registry(), Subject::Registry}, {place.named(), Subject::Registry},
                 {place.temporary(), Subject::Copy},    {place.setAside(), Subject::SetAside},
                 {place.backup(), Subject::Backup},     {place.lock(), Subject::Lock}};
    for (const auto& file : known) {
        if (path == file.path) {
            return file.subject;
        }
    }
    return place.registry().starts_with(path + "/") ? Subject::Directory : Subject::Other;
}

void judgeBlame(Rig& rig, const std::set<Subject>& subjects, const std::string& call, int error,
                const GenRegCause& cause) {
    const unsigned int systemCode = ossErrorMapSystem(error);
    const bool blamed = std::any_of(std::begin(BLAMES), std::end(BLAMES), [&](const Blame& row) {
        return row.call == call && subjects.contains(row.subject) &&
               std::find(row.codes.begin(), row.codes.end(), cause.code) != row.codes.end();
    });
    const bool lockRefused = subjects.contains(Subject::Lock) && cause.code == systemCode;
    rig.check(cause.code != 0 && (blamed || lockRefused), "the wrong step is blamed: " + codeText(cause.code));
    // What a lock that somebody else has answers on some systems.
    const unsigned int told = call == "fcntl" && error == EACCES ? REG_WOULD_BLOCK : systemCode;
    rig.check(cause.platformCode == systemCode || cause.platformCode == told || cause.code == REG_ALREADY_LOCKED,
              "the system's error is not told: " + codeText(cause.platformCode));
}

}  // namespace prove

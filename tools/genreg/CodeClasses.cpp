#include "CodeClasses.h"

#include <genreg/Codes.h>
#include <osse/Errors.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "Failure.h"

namespace tool {
namespace {

constexpr CodeClass DONE{"done", EXIT_DONE, "every operation", "nothing to do", false, false};
constexpr CodeClass UNCHANGED{"unchanged", EXIT_DONE, "Change", "nothing: the file already says so", false, false};
constexpr CodeClass NOT_FOUND{
    "not-found", EXIT_NEGATIVE, "Get, Change, Delete", "check the spelling against the list of names", false, false};
constexpr CodeClass AT_END{
    "not-found", EXIT_NEGATIVE, "GetNext and the readers of lines", "nothing: everything has been read", false, false};
constexpr CodeClass MISSING{
    "missing", EXIT_UNREADABLE, "OpenReg for anything but an add", "check the path; an add creates the file", false,
    false};
constexpr CodeClass UNREADABLE{"unreadable",
                               EXIT_UNREADABLE,
                               "OpenReg, OpenScan, Lock",
                               "check the permissions of the file, its lock file and its directory",
                               false,
                               false};
constexpr CodeClass OPENING{"unreadable",
                            EXIT_UNREADABLE,
                            "Get, Add, Change, Delete, Verify",
                            "check the permissions of the file, its lock file and its directory",
                            true,
                            false};
constexpr CodeClass LISTING{"unreadable",
                            EXIT_UNREADABLE,
                            "the information functions that read",
                            "look at the global registry with genreg status",
                            true,
                            false};
constexpr CodeClass LOCKED{"locked",
                           EXIT_LOCKED,
                           "Lock without waiting, or with a limit",
                           "wait for the holder: genreg lock status FILE, or a longer --wait",
                           false,
                           false};
constexpr CodeClass LOCKING{
    "locked", EXIT_LOCKED, "Add, Change, Delete", "wait for the holder: genreg lock status FILE, or a longer --wait",
    true,     false};
constexpr CodeClass EXISTS{"exists", EXIT_CONFLICT, "Add", "change the record that is there, or add it with --all",
                           false,    false};
constexpr CodeClass SEVERAL{
    "several", EXIT_CONFLICT, "Change, Delete", "look at them all, then name all of them with --all", false, false};
constexpr CodeClass INVALID{"invalid",
                            EXIT_INVALID,
                            "the checks of records, keys, lines and paths",
                            "correct the name, value or path; the file was not touched",
                            false,
                            false};
constexpr CodeClass REFUSED{
    "invalid", EXIT_INVALID, "Get, Add, Change, Delete", "correct the name or value; the file was not touched",
    true,      false};
constexpr CodeClass DAMAGED{"damaged",
                            EXIT_DAMAGED,
                            "every operation that reads the file",
                            "keep a copy of the file; genreg dump shows the damage, genreg diff what a saved one has",
                            false,
                            false};
constexpr CodeClass UNPACKING{"damaged",
                              EXIT_DAMAGED,
                              "every operation that reads the file",
                              "keep a copy of the file; genreg dump shows the damage, genreg diff what a saved one has",
                              true,
                              false};
constexpr CodeClass WRITING{"write-failed",
                            EXIT_WRITE_FAILED,
                            "Add, Change, Delete, CloseReg",
                            "check free space, limits and permissions of the directory, then repeat the change",
                            false,
                            false};
constexpr CodeClass UPDATING{"write-failed",
                             EXIT_WRITE_FAILED,
                             "Add, Change, Delete and the information functions",
                             "check free space, limits and permissions of the directory, then repeat the change",
                             true,
                             false};
constexpr CodeClass VERIFYING{"write-failed",
                              EXIT_WRITE_FAILED,
                              "Verify, for Add, Change and Delete",
                              "compare FILE with FILE.tmp: genreg diff FILE FILE.tmp, then repeat the change",
                              true,
                              false};
constexpr CodeClass DIFFERING{
    "write-failed", EXIT_WRITE_FAILED,
    "Verify",       "compare FILE with FILE.tmp: genreg diff FILE FILE.tmp, then repeat the change",
    false,          false};
constexpr CodeClass AFTERWARDS{"write-failed",
                               EXIT_WRITE_FAILED,
                               "the steps after the commit",
                               "do not repeat the change; look at what is left with genreg status FILE",
                               false,
                               true};
constexpr CodeClass UNLOCKING{"write-failed",
                              EXIT_WRITE_FAILED,
                              "Add, Change, Delete",
                              "do not repeat the change; look at what is left with genreg status FILE",
                              true,
                              true};
constexpr CodeClass MEMORY{"no-memory",
                           EXIT_WRITE_FAILED,
                           "every operation",
                           "free some memory or raise the limit (ulimit -v), then repeat",
                           false,
                           false};
constexpr CodeClass LONG_LAST_LINE{"write-failed",
                                   EXIT_WRITE_FAILED,
                                   "Add, and the functions that fill a buffer",
                                   "end the last line of the file with a newline, then repeat",
                                   false,
                                   false};
constexpr CodeClass DEFECT{"defect",
                           EXIT_DEFECT,
                           "every operation of a program that uses the library wrongly",
                           "this is a defect of the program that called the library: report it with the code",
                           false,
                           false};
constexpr CodeClass SYSTEM_READ{"unreadable",
                                EXIT_UNREADABLE,
                                "any operation that passes on the system's answer",
                                "check the path and its permissions",
                                false,
                                false};
constexpr CodeClass SYSTEM_WRITE{"write-failed",
                                 EXIT_WRITE_FAILED,
                                 "any operation that passes on the system's answer",
                                 "check free space, limits and the file system",
                                 false,
                                 false};

struct Range {
    unsigned int last;  // the class holds from behind the range before up to this code
    const CodeClass& meaning;
};

// In ascending order of the codes; a code between two of the library's belongs to the range that it falls into.
constexpr Range RANGES[] = {
    {0, DONE},
    {REG_BUFFER_TOO_SMALL, LONG_LAST_LINE},
    {REG_NULL_POINTER, DEFECT},
    {REG_NO_MEMORY, MEMORY},
    {REG_WOULD_BLOCK, LOCKED},
    {REG_FIELD_MASK_INCONSISTENT, DAMAGED},
    {REG_DIRECTORY_NAME_FAILED, INVALID},
    {REG_ALREADY_LOCKED, DEFECT},
    {REG_LOCK_FAILED, LOCKING},
    {REG_UNLOCK_FAILED, UNLOCKING},
    {REG_NO_MORE_RECORDS, AT_END},
    {REG_OPEN_FILE_FAILED, UNREADABLE},
    {REG_OPEN_TMP_FAILED, WRITING},
    {REG_END_OF_INPUT, AT_END},
    {REG_LOCK_HELD, LOCKED},
    {REG_OPEN_FAILED, OPENING},
    {REG_CLOSE_FAILED, UPDATING},
    {REG_CLOSE_FILE_FAILED, UNREADABLE},
    {REG_CLOSE_TMP_FAILED, WRITING},
    {REG_FILE_SIZE_FAILED, UNREADABLE},
    {REG_READ_FAILED, DAMAGED},
    {REG_FRAME_PAYLOAD_WRITE_FAILED, WRITING},
    {REG_FRAME_PAYLOAD_READ_FAILED, DAMAGED},
    {REG_OPEN_LOCK_FAILED, UNREADABLE},
    {REG_CLOSE_LOCK_FAILED, AFTERWARDS},
    {REG_SEEK_END_FAILED, WRITING},
    {REG_REWIND_FAILED, UNREADABLE},
    {REG_RENAME_FAILED, WRITING},
    {REG_RECORD_SIZE_REFUSED, DEFECT},
    {REG_NO_CHECKSUM_BUFFER, MEMORY},
    {REG_FREE_NEW_RECORD_FAILED, DEFECT},
    {REG_DUPLICATE, EXISTS},
    {REG_INVALID_ARGUMENT, DEFECT},
    {REG_EMPTY_RECORD, INVALID},
    {REG_NOT_FOUND, NOT_FOUND},
    {REG_UNCHANGED, UNCHANGED},
    {REG_SEVERAL_MATCH, SEVERAL},
    {REG_VERIFY_FAILED, VERIFYING},
    {REG_RECORD_REFUSED, REFUSED},
    {REG_VERIFY_NO_DIFFERENCE, DIFFERING},
    {REG_FORMAT_FAILED, REFUSED},
    {REG_FEATURE_NOT_SET, DEFECT},
    {REG_LINE_NOT_PARSED, INVALID},
    {REG_NO_WORK_BUFFER, MEMORY},
    {REG_NO_PACK_RECORD, DEFECT},
    {REG_DELETE_CORRUPT_FAILED, WRITING},
    {REG_VARIABLE_COMMENT_MISSING, INVALID},
    {REG_NO_PACK_BUFFER, MEMORY},
    {REG_PACKED_SIZE_DIFFERS, DEFECT},
    {REG_NO_UNPACK_BUFFER, MEMORY},
    {REG_FREE_UNPACK_BUFFER_FAILED, DEFECT},
    {REG_UNPACK_FAILED, UNPACKING},
    {REG_PACK_FAILED, UPDATING},
    {REG_FILE_INFO_FAILED, UNREADABLE},
    {REG_SET_PERMISSIONS_FAILED, WRITING},
    {REG_SCAN_OPEN, DEFECT},
    {REG_VERSION_INVALID, INVALID},
    {REG_LIST_HANDLE_NULL, DEFECT},
    {REG_GET_INSTANCE_FAILED, LISTING},
    {REG_REMOVE_INSTANCE_FAILED, UPDATING},
    {REG_INFO_INSTANCE_MISSING, INVALID},
    {REG_LOCK_FILE_FAILED, UNREADABLE},
    {REG_LINE_TOO_LONG, INVALID},
    {REG_VERIFY_SEVERAL_CHANGED, DIFFERING},
    {REG_CALLBACK_MISSING, DEFECT},
    {REG_VERIFY_LOST_RECORD, DIFFERING},
    {REG_NO_LIST, MEMORY},
    {REG_LIST_SERVICE_NULL, INVALID},
    {REG_SET_POSITION_FAILED, UNREADABLE},
    {REG_RELEASE_LOCK_FAILED, AFTERWARDS},
    {REG_SERVICE_NUMBER3_MISSING, INVALID},
    {REG_CREATE_DIRECTORY_FAILED, WRITING},
    {REG_MISSING, MISSING},
    {REG_CHECKSUM_READ_FAILED, DAMAGED},
    {REG_VARIABLE_TEXT_EMPTY, INVALID},
};

constexpr bool ascending() {
    for (std::size_t i = 1; i < std::size(RANGES); ++i) {
        if (RANGES[i - 1].last >= RANGES[i].last) {
            return false;
        }
    }
    return true;
}
static_assert(ascending(), "classes are looked up by halving: keep the ranges in ascending order");

bool meansWriting(int systemError) {
    return systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG || systemError == EIO ||
           systemError == EROFS || systemError == EMLINK;
}

}  // namespace

bool isSystemError(unsigned int code, int* systemError) {
    constexpr unsigned int SYSTEM_ERRORS = 0xa0;
    if (code <= OSS_SYSTEM_ERROR_BASE || code >= OSS_SYSTEM_ERROR_BASE + SYSTEM_ERRORS) {
        return false;
    }
    *systemError = static_cast<int>(code - OSS_SYSTEM_ERROR_BASE);
    return true;
}

const CodeClass& classOf(unsigned int code) {
    int systemError = 0;
    if (isSystemError(code, &systemError)) {
        return meansWriting(systemError) ? SYSTEM_WRITE : SYSTEM_READ;
    }
    const auto* range = std::lower_bound(std::begin(RANGES), std::end(RANGES), code,
                                         [](const Range& r, unsigned int value) { return r.last < value; });
    return range == std::end(RANGES) ? DEFECT : range->meaning;
}

std::string systemAdvice(int systemError) {
    switch (systemError) {
        case EACCES:
        case EPERM:
            return "run it as the owner of the file, or check the permissions of the file and its directory (ls -la)";
        case ENOENT:
            return "check the path";
        case ENOTDIR:
            return "check the path: a part of it is a file, not a directory";
        case EISDIR:
            return "name the file inside the directory";
        case ENOSPC:
        case EDQUOT:
            return "free some space (df, quota), then repeat";
        case EFBIG:
            return "raise the limit on file sizes (ulimit -f), then repeat";
        case EROFS:
            return "the file system is mounted read-only; remount it or work on a copy";
        case EMFILE:
        case ENFILE:
            return "too many open files: raise the limit (ulimit -n)";
        case ELOOP:
            return "the symbolic links lead in a circle; see ls -l";
        case ENAMETOOLONG:
            return "use a shorter name or path";
        case EBADF:
            return "leave its descriptor open; > /dev/null throws it away";
        case EIO:
            return "the device fails: see the system's log before anything else";
        case EDEADLK:
            return "another process waits for this one; repeat";
        default:
            return {};
    }
}

}  // namespace tool

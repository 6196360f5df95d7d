#include "base/CodeClasses.h"

#include <genreg/Codes.h>
#include <osse/Errors.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <numeric>
#include <span>

#include "base/Failure.h"

namespace tool {
namespace {

constexpr CodeClass DONE{"done", EXIT_DONE, "every operation", "nothing to do", false, FileAfter::UNTOLD};
constexpr CodeClass UNCHANGED{"unchanged", EXIT_DONE,        "Change", "nothing: the file already says so",
                              false,       FileAfter::UNTOLD};
constexpr CodeClass NOT_FOUND{
    "not-found", EXIT_NEGATIVE,    "Get, Change, Delete", "check the spelling against the list of names",
    false,       FileAfter::UNTOLD};
constexpr CodeClass AT_END{
    "not-found", EXIT_NEGATIVE,    "GetNext and the readers of lines", "nothing: everything has been read",
    false,       FileAfter::UNTOLD};
constexpr CodeClass MISSING{
    "missing", EXIT_UNREADABLE,  "OpenReg for anything but an add", "check the path; an add creates the file",
    false,     FileAfter::UNTOLD};
constexpr CodeClass UNREADABLE{"unreadable",
                               EXIT_UNREADABLE,
                               "OpenReg, OpenScan, Lock",
                               "check the permissions of the file, its lock file and its directory",
                               false,
                               FileAfter::UNTOLD};
constexpr CodeClass OPENING{"unreadable",
                            EXIT_UNREADABLE,
                            "Get, Add, Change, Delete, Verify",
                            "check the permissions of the file, its lock file and its directory",
                            true,
                            FileAfter::UNTOLD};
constexpr CodeClass LISTING{"unreadable",
                            EXIT_UNREADABLE,
                            "the information functions that read",
                            "look at the global registry with genreg status",
                            true,
                            FileAfter::UNTOLD};
constexpr CodeClass LOCKED{"locked",
                           EXIT_LOCKED,
                           "Lock without waiting, or with a limit",
                           "wait for the holder: genreg lock status FILE, or a longer --wait",
                           false,
                           FileAfter::UNTOLD};
constexpr CodeClass LOCKING{"locked",
                            EXIT_LOCKED,
                            "Add, Change, Delete",
                            "wait for the holder: genreg lock status FILE, or a longer --wait",
                            true,
                            FileAfter::UNTOLD};
constexpr CodeClass EXISTS{"exists", EXIT_CONFLICT,    "Add", "change the record that is there, or add it with --all",
                           false,    FileAfter::UNTOLD};
constexpr CodeClass SEVERAL{
    "several", EXIT_CONFLICT,    "Change, Delete", "look at them all, then name all of them with --all",
    false,     FileAfter::UNTOLD};
constexpr CodeClass INVALID{"invalid",
                            EXIT_INVALID,
                            "the checks of records, keys, lines and paths",
                            "correct the name, value or path; the file was not touched",
                            false,
                            FileAfter::UNTOLD};
constexpr CodeClass REFUSED{
    "invalid", EXIT_INVALID,     "Get, Add, Change, Delete", "correct the name or value; the file was not touched",
    true,      FileAfter::UNTOLD};
constexpr CodeClass DAMAGED{
    "damaged",
    EXIT_DAMAGED,
    "every operation that reads the file",
    "genreg check shows the damage, genreg repair -n what can be kept, genreg diff what a saved one has",
    false,
    FileAfter::UNTOLD};
constexpr CodeClass UNPACKING{
    "damaged",
    EXIT_DAMAGED,
    "every operation that reads the file",
    "genreg check shows the damage, genreg repair -n what can be kept, genreg diff what a saved one has",
    true,
    FileAfter::UNTOLD};
constexpr CodeClass WRITING{"write-failed",
                            EXIT_WRITE_FAILED,
                            "Add, Change, Delete, CloseReg",
                            "check free space, limits and permissions of the directory, then repeat the change",
                            false,
                            FileAfter::KEPT};
constexpr CodeClass UPDATING{"write-failed",
                             EXIT_WRITE_FAILED,
                             "Add, Change, Delete and the information functions",
                             "check free space, limits and permissions of the directory, then repeat the change",
                             true,
                             FileAfter::KEPT};
constexpr CodeClass VERIFYING{"write-failed",
                              EXIT_WRITE_FAILED,
                              "Verify, for Add, Change and Delete",
                              "compare FILE with FILE.tmp: genreg diff FILE FILE.tmp, then repeat the change",
                              true,
                              FileAfter::KEPT};
constexpr CodeClass DIFFERING{
    "write-failed", EXIT_WRITE_FAILED,
    "Verify",       "compare FILE with FILE.tmp: genreg diff FILE FILE.tmp, then repeat the change",
    false,          FileAfter::KEPT};
constexpr CodeClass REPLACED_ALL_THE_SAME{"write-failed", EXIT_WRITE_FAILED,
                                          "Verify",       "look at the records (genreg dump FILE) before anything else",
                                          false,          FileAfter::REPLACED};
constexpr CodeClass PERHAPS_REPLACED{"write-failed", EXIT_WRITE_FAILED,
                                     "Verify",       "look at the records (genreg dump FILE) before anything else",
                                     false,          FileAfter::UNKNOWN};
constexpr CodeClass AFTERWARDS{"write-failed",
                               EXIT_WRITE_FAILED,
                               "the steps after the commit",
                               "do not repeat the change; look at what is left with genreg status FILE",
                               false,
                               FileAfter::REPLACED};
constexpr CodeClass UNLOCKING{"write-failed",
                              EXIT_WRITE_FAILED,
                              "Add, Change, Delete",
                              "do not repeat the change; look at what is left with genreg status FILE",
                              true,
                              FileAfter::REPLACED};
constexpr CodeClass MEMORY{
    "no-memory", EXIT_WRITE_FAILED, "every operation", "free some memory or raise the limit (ulimit -v), then repeat",
    false,       FileAfter::KEPT};
constexpr CodeClass LONG_LAST_LINE{"write-failed",
                                   EXIT_WRITE_FAILED,
                                   "Add, and the functions that fill a buffer",
                                   "end the last line of the file with a newline, then repeat",
                                   false,
                                   FileAfter::KEPT};
constexpr CodeClass DEFECT{"defect",
                           EXIT_DEFECT,
                           "every operation of a program that uses the library wrongly",
                           "this is a defect of the program that called the library: report it with the code",
                           false,
                           FileAfter::UNTOLD};
constexpr CodeClass SYSTEM_READ{"unreadable",
                                EXIT_UNREADABLE,
                                "any operation that passes on the system's answer",
                                "check the path and its permissions",
                                false,
                                FileAfter::UNTOLD};
constexpr CodeClass SYSTEM_WRITE{"write-failed",
                                 EXIT_WRITE_FAILED,
                                 "any operation that passes on the system's answer",
                                 "check free space, limits and the file system",
                                 false,
                                 FileAfter::KEPT};

// Each code is told its class by name, on purpose: what a new one means to an administrator is decided where it is
// made.
constexpr GenRegCode UNCHANGED_CODES[] = {REG_UNCHANGED};
constexpr GenRegCode NOT_FOUND_CODES[] = {REG_NOT_FOUND};
constexpr GenRegCode AT_END_CODES[] = {REG_NO_MORE_RECORDS, REG_END_OF_INPUT};
constexpr GenRegCode MISSING_CODES[] = {REG_MISSING};
constexpr GenRegCode UNREADABLE_CODES[] = {REG_OPEN_FILE_FAILED, REG_CLOSE_FILE_FAILED,   REG_FILE_SIZE_FAILED,
                                           REG_OPEN_LOCK_FAILED, REG_REWIND_FAILED,       REG_FILE_INFO_FAILED,
                                           REG_LOCK_FILE_FAILED, REG_GET_POSITION_FAILED, REG_SET_POSITION_FAILED};
constexpr GenRegCode OPENING_CODES[] = {REG_OPEN_FAILED};
constexpr GenRegCode LISTING_CODES[] = {REG_OPEN_SERVICE_LIST_FAILED, REG_CLOSE_LIST_FAILED,  REG_NEXT_SERVICE_FAILED,
                                        REG_NEXT_INSTANCE_FAILED,     REG_GET_SERVICE_FAILED, REG_GET_INSTANCE_FAILED};
constexpr GenRegCode LOCKED_CODES[] = {REG_WOULD_BLOCK, REG_LOCK_HELD};
constexpr GenRegCode LOCKING_CODES[] = {REG_LOCK_FAILED};
constexpr GenRegCode EXISTS_CODES[] = {REG_DUPLICATE};
constexpr GenRegCode SEVERAL_CODES[] = {REG_SEVERAL_MATCH};
constexpr GenRegCode INVALID_CODES[] = {REG_BASE_NAME_FAILED,
                                        REG_DIRECTORY_NAME_FAILED,
                                        REG_EMPTY_ARGUMENT,
                                        REG_PATH_TOO_LONG,
                                        REG_EMPTY_RECORD,
                                        REG_INITTAB_NO_RUN_LEVEL,
                                        REG_INITTAB_NO_ACTION,
                                        REG_INITTAB_NO_COMMAND,
                                        REG_NO_EQUAL_SIGN,
                                        REG_UNTERMINATED_QUOTE,
                                        REG_NAME_MISSING,
                                        REG_VALUE_MISSING,
                                        REG_SERVICE_WITHOUT_PORT,
                                        REG_SERVICE_NAME_MISSING,
                                        REG_SERVICE_PORT_MISSING,
                                        REG_SERVICE_PROTOCOL_MISSING,
                                        REG_FORMAT_NAME_MISSING,
                                        REG_FORMAT_PORT_MISSING,
                                        REG_FORMAT_PROTOCOL_MISSING,
                                        REG_LINE_NOT_PARSED,
                                        REG_RECORD_TYPE_INVALID,
                                        REG_FIELD_MASK_EMPTY,
                                        REG_INSTANCE_SERVICE_EMPTY,
                                        REG_INSTANCE_NAME_EMPTY,
                                        REG_INSTANCE_PATH_EMPTY,
                                        REG_INSTANCE_USAGE_EMPTY,
                                        REG_INSTANCE_START_AT_BOOT_INVALID,
                                        REG_INSTANCE_MAINTENANCE_INVALID,
                                        REG_INSTANCE_EXTRA_PATH_EMPTY,
                                        REG_INSTANCE_EXTRA_NAME_EMPTY,
                                        REG_INSTANCE_COMMENT_EMPTY,
                                        REG_INSTANCE_SERVICE_MISSING,
                                        REG_INSTANCE_VERSION_MISSING,
                                        REG_INSTANCE_NAME_MISSING,
                                        REG_INSTANCE_PATH_MISSING,
                                        REG_INSTANCE_USAGE_MISSING,
                                        REG_INSTANCE_START_AT_BOOT_MISSING,
                                        REG_INSTANCE_MAINTENANCE_MISSING,
                                        REG_INSTANCE_EXTRA_PATH_MISSING,
                                        REG_INSTANCE_EXTRA_NAME_MISSING,
                                        REG_INSTANCE_COMMENT_MISSING,
                                        REG_SERVICE_SERVICE_EMPTY,
                                        REG_SERVICE_PATH_EMPTY,
                                        REG_SERVICE_ALT_PATH_EMPTY,
                                        REG_SERVICE_TEXT_EMPTY,
                                        REG_SERVICE_SERVICE_MISSING,
                                        REG_SERVICE_VERSION_MISSING,
                                        REG_SERVICE_PATH_MISSING,
                                        REG_SERVICE_ALT_PATH_MISSING,
                                        REG_SERVICE_TEXT_MISSING,
                                        REG_VARIABLE_SERVICE_EMPTY,
                                        REG_VARIABLE_NAME_EMPTY,
                                        REG_VARIABLE_VALUE_EMPTY,
                                        REG_VARIABLE_COMMENT_EMPTY,
                                        REG_VARIABLE_SERVICE_MISSING,
                                        REG_VARIABLE_NAME_MISSING,
                                        REG_VARIABLE_VALUE_MISSING,
                                        REG_VARIABLE_COMMENT_MISSING,
                                        REG_VERSION_NULL,
                                        REG_VERSION_FORMAT_FAILED,
                                        REG_VERSION_BUFFER_TOO_SMALL,
                                        REG_VERSION_INVALID,
                                        REG_INFO_VERSION_MISSING,
                                        REG_INFO_SERVICE_MISSING,
                                        REG_INFO_INSTANCE_MISSING,
                                        REG_LINE_TOO_LONG,
                                        REG_LIST_SERVICE_NULL,
                                        REG_SERVICE_NUMBER1_MISSING,
                                        REG_SERVICE_NUMBER2_MISSING,
                                        REG_SERVICE_FLAG_MISSING,
                                        REG_SERVICE_NUMBER3_MISSING,
                                        REG_VARIABLE_TEXT_EMPTY};
constexpr GenRegCode REFUSED_CODES[] = {REG_RECORD_REFUSED, REG_FORMAT_FAILED};
constexpr GenRegCode DAMAGED_CODES[] = {
    REG_FRAME_TRUNCATED,           REG_UNKNOWN_RECORD_TYPE, REG_FIELD_WITHOUT_MEMBER,
    REG_FIELD_MASK_INCONSISTENT,   REG_READ_FAILED,         REG_FRAME_LENGTH_READ_FAILED,
    REG_FRAME_PAYLOAD_READ_FAILED, REG_CHECKSUM_DIFFERS,    REG_CHECKSUM_READ_FAILED};
constexpr GenRegCode UNPACKING_CODES[] = {REG_UNPACK_FAILED};
constexpr GenRegCode WRITING_CODES[] = {REG_OPEN_TMP_FAILED,
                                        REG_CLOSE_TMP_FAILED,
                                        REG_COPY_WRITE_FAILED,
                                        REG_RECORD_WRITE_FAILED,
                                        REG_DISCARD_FAILED,
                                        REG_FRAME_LENGTH_WRITE_FAILED,
                                        REG_FRAME_PAYLOAD_WRITE_FAILED,
                                        REG_SEEK_END_FAILED,
                                        REG_BACKUP_FAILED,
                                        REG_RENAME_FAILED,
                                        REG_SET_ASIDE_FAILED,
                                        REG_DELETE_CORRUPT_FAILED,
                                        REG_SET_PERMISSIONS_FAILED,
                                        REG_CREATE_DIRECTORY_FAILED};
constexpr GenRegCode UPDATING_CODES[] = {REG_CLOSE_FAILED,          REG_PACK_FAILED,
                                         REG_ADD_SERVICE_FAILED,    REG_ADD_INSTANCE_FAILED,
                                         REG_CHANGE_SERVICE_FAILED, REG_CHANGE_INSTANCE_FAILED,
                                         REG_REMOVE_SERVICE_FAILED, REG_REMOVE_INSTANCE_FAILED};
constexpr GenRegCode VERIFYING_CODES[] = {REG_VERIFY_FAILED};
constexpr GenRegCode DIFFERING_CODES[] = {REG_VERIFY_WRONG_RECORD,  REG_VERIFY_NO_DIFFERENCE,  REG_VERIFY_KEY_DIFFERS,
                                          REG_VERIFY_READ_FAILED,   REG_VERIFY_LENGTH_DIFFERS, REG_VERIFY_OLD_ENDED,
                                          REG_VERIFY_NOTHING_ADDED, REG_VERIFY_OTHER_ADDED,    REG_VERIFY_SEVERAL_ADDED,
                                          REG_VERIFY_LOST_RECORD};
constexpr GenRegCode REPLACED_ALL_THE_SAME_CODES[] = {REG_VERIFY_SEVERAL_CHANGED};
constexpr GenRegCode PERHAPS_REPLACED_CODES[] = {REG_VERIFY_DIFFERS_EARLY};
constexpr GenRegCode AFTERWARDS_CODES[] = {REG_CLOSE_LOCK_FAILED,    REG_NO_NOTIFY,
                                           REG_NOTIFY_FAILED,        REG_SIGNAL_FAILED,
                                           REG_DELETE_BACKUP_FAILED, REG_RELEASE_LOCK_FAILED};
constexpr GenRegCode UNLOCKING_CODES[] = {REG_UNLOCK_FAILED};
constexpr GenRegCode MEMORY_CODES[] = {REG_NO_MEMORY,
                                       REG_NO_RECORD_BUFFER,
                                       REG_NO_OLD_RECORD_BUFFER,
                                       REG_NO_NEW_RECORD_BUFFER,
                                       REG_NO_CHECKSUM_BUFFER,
                                       REG_NO_WORK_BUFFER,
                                       REG_NO_PACK_BUFFER,
                                       REG_NO_UNPACK_BUFFER,
                                       REG_NO_LIST};
constexpr GenRegCode LONG_LAST_LINE_CODES[] = {REG_BUFFER_TOO_SMALL};
constexpr GenRegCode DEFECT_CODES[] = {REG_NULL_POINTER,
                                       REG_NOT_CONFIGURED,
                                       REG_ALREADY_LOCKED,
                                       REG_RECORD_TOO_SMALL,
                                       REG_RECORD_SIZE_REFUSED,
                                       REG_FREE_RECORD_FAILED,
                                       REG_FREE_OLD_RECORD_FAILED,
                                       REG_FREE_NEW_RECORD_FAILED,
                                       REG_INVALID_ARGUMENT,
                                       REG_FEATURE_OUT_OF_RANGE,
                                       REG_FEATURE_NOT_SET,
                                       REG_FREE_WORK_BUFFER_FAILED,
                                       REG_NO_VALIDATE_RECORD,
                                       REG_NO_MATCH_RECORD,
                                       REG_NO_GET_MAX_RECORD_SIZE,
                                       REG_NO_GET_RECORD_SIZE,
                                       REG_NO_GET_PACKED_RECORD_SIZE,
                                       REG_NO_PARSE_LINE,
                                       REG_NO_FORMAT_LINE,
                                       REG_NO_UNPACK_RECORD,
                                       REG_NO_PACK_RECORD,
                                       REG_FREE_PACK_BUFFER_FAILED,
                                       REG_PACKED_SIZE_DIFFERS,
                                       REG_FREE_UNPACK_BUFFER_FAILED,
                                       REG_PATH_BUFFER_TOO_SMALL,
                                       REG_PATH_BUFFER_NULL,
                                       REG_SCAN_NOT_OPEN,
                                       REG_SCAN_OPEN,
                                       REG_BATCH_OPEN,
                                       REG_NO_BATCH,
                                       REG_SERVICE_INFO_NULL,
                                       REG_INSTANCE_INFO_NULL,
                                       REG_LIST_HANDLE_NULL,
                                       REG_CALLBACK_MISSING};

struct Group {
    const CodeClass& meaning;
    std::span<const GenRegCode> codes;
};
constexpr Group GROUPS[] = {{UNCHANGED, UNCHANGED_CODES},
                            {NOT_FOUND, NOT_FOUND_CODES},
                            {AT_END, AT_END_CODES},
                            {MISSING, MISSING_CODES},
                            {UNREADABLE, UNREADABLE_CODES},
                            {OPENING, OPENING_CODES},
                            {LISTING, LISTING_CODES},
                            {LOCKED, LOCKED_CODES},
                            {LOCKING, LOCKING_CODES},
                            {EXISTS, EXISTS_CODES},
                            {SEVERAL, SEVERAL_CODES},
                            {INVALID, INVALID_CODES},
                            {REFUSED, REFUSED_CODES},
                            {DAMAGED, DAMAGED_CODES},
                            {UNPACKING, UNPACKING_CODES},
                            {WRITING, WRITING_CODES},
                            {UPDATING, UPDATING_CODES},
                            {VERIFYING, VERIFYING_CODES},
                            {DIFFERING, DIFFERING_CODES},
                            {REPLACED_ALL_THE_SAME, REPLACED_ALL_THE_SAME_CODES},
                            {PERHAPS_REPLACED, PERHAPS_REPLACED_CODES},
                            {AFTERWARDS, AFTERWARDS_CODES},
                            {UNLOCKING, UNLOCKING_CODES},
                            {MEMORY, MEMORY_CODES},
                            {LONG_LAST_LINE, LONG_LAST_LINE_CODES},
                            {DEFECT, DEFECT_CODES}};

constexpr GenRegCode EVERY_CODE[] = {
#define GENREG_CODE(value, name, sentence) name,
#include <genreg/CodeTable.inc>
#undef GENREG_CODE
};

constexpr bool everyCodeHasOneClass() {
    return std::all_of(std::begin(EVERY_CODE), std::end(EVERY_CODE), [](GenRegCode code) {
        return std::accumulate(std::begin(GROUPS), std::end(GROUPS), 0L, [&](long sum, const Group& group) {
                   return sum + std::count(group.codes.begin(), group.codes.end(), code);
               }) == 1;
    });
}
static_assert(everyCodeHasOneClass(), "a code without a class, or with two: give it one, above");

// Their sentences tell of the file themselves.
constexpr GenRegCode TELL_OF_THE_FILE[] = {
    REG_UNLOCK_FAILED, REG_CLOSE_TMP_FAILED, REG_COPY_WRITE_FAILED, REG_RECORD_WRITE_FAILED, REG_BACKUP_FAILED,
    REG_RENAME_FAILED, REG_NO_NOTIFY,        REG_NOTIFY_FAILED,     REG_SIGNAL_FAILED,       REG_DELETE_BACKUP_FAILED};

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
    if (code == 0) {
        return DONE;
    }
    for (const Group& group : GROUPS) {
        if (std::find(group.codes.begin(), group.codes.end(), static_cast<GenRegCode>(code)) != group.codes.end()) {
            return group.meaning;
        }
    }
    return DEFECT;  // of a library newer than this tool
}

std::string_view fileAfter(unsigned int code) {
    if (std::find(std::begin(TELL_OF_THE_FILE), std::end(TELL_OF_THE_FILE), static_cast<GenRegCode>(code)) !=
        std::end(TELL_OF_THE_FILE)) {
        return {};
    }
    switch (classOf(code).file) {
        case FileAfter::KEPT:
            return "the file was not replaced";
        case FileAfter::REPLACED:
            return "the change stands";
        case FileAfter::UNKNOWN:
            return "the file may have been replaced";
        default:
            return {};
    }
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
